#include "kivcore/filesupport/CommonDirs.h"

#include <optional>
#include <string>

#include "../debug/Environment.h"
#include "ExecutablePath.h"
#include "PathConversion.h"
#include "kivcore/string/StringConversions.h"

namespace kivcore::filesupport::commondirs {

Dir ResourcesDir() {
  if (const std::optional<std::string> configured =
          debug::detail::GetEnvironmentUtf8("KIVCORE_RESOURCES_DIR");
      configured && !configured->empty()) {
    return Dir(string::UTF8to16(*configured));
  }
  const wstring executable = detail::ExecutablePath();
  if (executable.empty()) {
    return Dir();
  }
  return Dir(detail::FromFilesystemPath(detail::ToFilesystemPath(executable).parent_path()));
}

}  // namespace kivcore::filesupport::commondirs
