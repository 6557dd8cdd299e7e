#include "kivcore/utility/ImmutableString.h"

#include <cstring>
#include <ostream>

#include "kivcore/allocator/STLAllocator.h"
#include "kivcore/string/StringConversions.h"

namespace kivcore::utility {
namespace {
constexpr const char* kEmpty = "";
}

ImmutableString::ImmutableString() noexcept : mData(kEmpty), mSize(0) {}

ImmutableString::ImmutableString(ImmutableString&& other) noexcept
    : mOwner(std::move(other.mOwner)), mData(other.mData), mSize(other.mSize) {
  other.mData = kEmpty;
  other.mSize = 0;
}

ImmutableString& ImmutableString::operator=(ImmutableString&& other) noexcept {
  if (this != &other) {
    mOwner = std::move(other.mOwner);
    mData = other.mData;
    mSize = other.mSize;
    other.mData = kEmpty;
    other.mSize = 0;
  }
  return *this;
}

ImmutableString ImmutableString::Create(std::string_view text) {
  ImmutableString result;
  if (text.empty()) {
    return result;
  }
  auto buffer = std::allocate_shared<char[]>(allocator::STLAllocator<char>(), text.size() + 1);
  std::memcpy(buffer.get(), text.data(), text.size());
  buffer[text.size()] = '\0';
  result.mData = buffer.get();
  result.mSize = text.size();
  result.mOwner = std::move(buffer);
  return result;
}

ImmutableString ImmutableString::Create(const char* text) {
  return Create(text == nullptr ? std::string_view() : std::string_view(text));
}

ImmutableString ImmutableString::Create(const unsigned char* text) {
  return Create(reinterpret_cast<const char*>(text));
}

ImmutableString ImmutableString::Create(const u8string& text) {
  return Create(std::string_view(reinterpret_cast<const char*>(text.data()), text.size()));
}

ImmutableString ImmutableString::_PrivateCreateStatic(const char* literal) noexcept {
  ImmutableString result;
  if (literal != nullptr) {
    result.mData = literal;
    result.mSize = std::strlen(literal);
  }
  return result;
}

wstring ImmutableString::ToString() const {
  return string::UTF8to16(View());
}

std::ostream& operator<<(std::ostream& out, const ImmutableString& text) {
  return out << text.View();
}

}  // namespace kivcore::utility
