#pragma once
// 128-bit class and interface identifier. A literal type: ids written as constants are built at compile
// time, so they are valid before any static initialiser that reads them runs. Text form is the
// 8-4-4-4-12 hexadecimal one ("E3834F7C-735B-473D-A10E-70C3987A25D1"), optionally in braces.

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <stdexcept>
#include <string>

#include "kivcore/kivcore_export.h"

namespace kivcore::utility {

class KIVCORE_EXPORT Guid {
 public:
  constexpr Guid() noexcept = default;
  constexpr Guid(uint64_t high, uint64_t low) noexcept : mHigh(high), mLow(low) {}
  // Throws std::invalid_argument on malformed text (a compile error when evaluated as a constant).
  constexpr Guid(const char* text, size_t length) { Parse(text, length); }

  static Guid CreateUnique();

  constexpr bool IsNil() const noexcept { return mHigh == 0 && mLow == 0; }
  constexpr uint64_t High() const noexcept { return mHigh; }
  constexpr uint64_t Low() const noexcept { return mLow; }
  // The 16 bytes in text order.
  std::array<uint8_t, 16> Bytes() const noexcept;
  // Upper-case 8-4-4-4-12 form without braces.
  std::string ToString() const;

  friend constexpr bool operator==(const Guid&, const Guid&) noexcept = default;
  friend constexpr std::strong_ordering operator<=>(const Guid&, const Guid&) noexcept = default;

 private:
  constexpr void Parse(const char* text, size_t length) {
    if (text == nullptr) {
      throw std::invalid_argument("Guid: null text");
    }
    if (length == 38 && text[0] == '{' && text[37] == '}') {
      ++text;
      length = 36;
    }
    if (length != 36) {
      throw std::invalid_argument("Guid: text is not in 8-4-4-4-12 form");
    }
    int digits = 0;
    for (size_t i = 0; i < 36; ++i) {
      const char c = text[i];
      if (i == 8 || i == 13 || i == 18 || i == 23) {
        if (c != '-') {
          throw std::invalid_argument("Guid: text is not in 8-4-4-4-12 form");
        }
        continue;
      }
      uint64_t v = 0;
      if (c >= '0' && c <= '9') {
        v = static_cast<uint64_t>(c - '0');
      } else if (c >= 'a' && c <= 'f') {
        v = static_cast<uint64_t>(c - 'a' + 10);
      } else if (c >= 'A' && c <= 'F') {
        v = static_cast<uint64_t>(c - 'A' + 10);
      } else {
        throw std::invalid_argument("Guid: text has a non-hexadecimal digit");
      }
      if (digits < 16) {
        mHigh = (mHigh << 4) | v;
      } else {
        mLow = (mLow << 4) | v;
      }
      ++digits;
    }
  }

  uint64_t mHigh = 0;
  uint64_t mLow = 0;
};

KIVCORE_EXPORT std::ostream& operator<<(std::ostream& out, const Guid& guid);

}  // namespace kivcore::utility

template <>
struct std::hash<kivcore::utility::Guid> {
  size_t operator()(const kivcore::utility::Guid& guid) const noexcept {
    const uint64_t mixed = guid.High() ^ (guid.Low() * 0x9E3779B97F4A7C15ull);
    return static_cast<size_t>(mixed ^ (mixed >> 32));
  }
};
