#include "kivcore/debug/TypeName.h"

#include <cxxabi.h>

#include <cstdlib>
#include <memory>

#include "kivcore/string/StringConversions.h"

namespace kivcore::debug {

u8string GetTypeName(const std::type_info& type) {
  int status = 0;
  std::unique_ptr<char, decltype(&std::free)> demangled(
      abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), &std::free);
  return string::ToU8(status == 0 && demangled ? demangled.get() : type.name());
}

}  // namespace kivcore::debug
