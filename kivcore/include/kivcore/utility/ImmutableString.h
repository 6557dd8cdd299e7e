#pragma once
// A shared, immutable UTF-8 string for feature names and similar keys. Copies share one buffer, so
// passing names around costs a reference count, not an allocation. Strings made with
// _PrivateCreateStatic point at a literal that lives for the whole run and own nothing.

#include <cstddef>
#include <functional>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>

#include "kivcore/kivcore_export.h"
#include "kivcore/string/StringTypes.h"

namespace kivcore::utility {

class KIVCORE_EXPORT ImmutableString {
 public:
  ImmutableString() noexcept;
  ImmutableString(const ImmutableString&) = default;
  ImmutableString(ImmutableString&& other) noexcept;
  ImmutableString& operator=(const ImmutableString&) = default;
  ImmutableString& operator=(ImmutableString&& other) noexcept;
  ~ImmutableString() = default;

  static ImmutableString Create(const char* text);
  static ImmutableString Create(const unsigned char* text);
  static ImmutableString Create(const u8string& text);
  static ImmutableString Create(std::string_view text);
  static ImmutableString _PrivateCreateStatic(const char* literal) noexcept;

  const char* begin() const noexcept { return mData; }
  const char* end() const noexcept { return mData + mSize; }
  const char* c_str() const noexcept { return mData; }
  size_t size() const noexcept { return mSize; }
  bool empty() const noexcept { return mSize == 0; }
  std::string_view View() const noexcept { return {mData, mSize}; }
  std::string ToStdString() const { return std::string(mData, mSize); }
  // The text as a wide string.
  wstring ToString() const;

  friend bool operator==(const ImmutableString& a, const ImmutableString& b) noexcept {
    return a.View() == b.View();
  }
  friend auto operator<=>(const ImmutableString& a, const ImmutableString& b) noexcept {
    return a.View() <=> b.View();
  }

 private:
  std::shared_ptr<const char[]> mOwner;  // null for the empty and static strings
  const char* mData;                     // always NUL-terminated
  size_t mSize;
};

KIVCORE_EXPORT std::ostream& operator<<(std::ostream& out, const ImmutableString& text);

}  // namespace kivcore::utility

template <>
struct std::hash<kivcore::utility::ImmutableString> {
  size_t operator()(const kivcore::utility::ImmutableString& text) const noexcept {
    return std::hash<std::string_view>()(text.View());
  }
};
