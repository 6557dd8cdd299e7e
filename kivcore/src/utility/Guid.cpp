#include "kivcore/utility/Guid.h"

#include <cstdio>
#include <ostream>
#include <random>

namespace kivcore::utility {

Guid Guid::CreateUnique() {
  thread_local std::mt19937_64 engine = [] {
    std::random_device device;
    std::seed_seq seed{device(), device(), device(), device(), device(), device()};
    return std::mt19937_64(seed);
  }();
  uint64_t high = engine();
  uint64_t low = engine();
  // RFC 4122 version 4 (random) with the variant bits 10.
  high = (high & ~0xF000ull) | 0x4000ull;
  low = (low & ~(0xC0ull << 56)) | (0x80ull << 56);
  return Guid(high, low);
}

std::array<uint8_t, 16> Guid::Bytes() const noexcept {
  std::array<uint8_t, 16> bytes{};
  for (int i = 0; i < 8; ++i) {
    bytes[static_cast<size_t>(i)] = static_cast<uint8_t>(mHigh >> (56 - 8 * i));
    bytes[static_cast<size_t>(8 + i)] = static_cast<uint8_t>(mLow >> (56 - 8 * i));
  }
  return bytes;
}

std::string Guid::ToString() const {
  char text[37];
  std::snprintf(text, sizeof(text), "%08X-%04X-%04X-%04X-%012llX", static_cast<unsigned>(mHigh >> 32),
                static_cast<unsigned>((mHigh >> 16) & 0xFFFF), static_cast<unsigned>(mHigh & 0xFFFF),
                static_cast<unsigned>(mLow >> 48), static_cast<unsigned long long>(mLow & 0xFFFFFFFFFFFFull));
  return std::string(text, 36);
}

std::ostream& operator<<(std::ostream& out, const Guid& guid) {
  return out << guid.ToString();
}

}  // namespace kivcore::utility
