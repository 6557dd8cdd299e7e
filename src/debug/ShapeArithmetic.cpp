#include "debug/ShapeArithmetic.h"

#include <algorithm>
#include <limits>

namespace kivml::debug {

std::optional<uint64_t> CheckedElementCount(std::span<const uint64_t> shape) noexcept {
  // A zero dimension empties the tensor however large the others are, so it is settled before any
  // product can overflow.
  if (std::find(shape.begin(), shape.end(), uint64_t{0}) != shape.end()) {
    return 0;
  }
  uint64_t count = 1;
  for (const uint64_t dimension : shape) {
    if (count > std::numeric_limits<uint64_t>::max() / dimension) {
      return std::nullopt;
    }
    count *= dimension;
  }
  return count;
}

std::optional<uint64_t> CheckedByteCount(std::span<const uint64_t> shape, uint64_t elementSize) noexcept {
  const std::optional<uint64_t> count = CheckedElementCount(shape);
  if (!count || (elementSize != 0 && *count > std::numeric_limits<uint64_t>::max() / elementSize)) {
    return std::nullopt;
  }
  return *count * elementSize;
}

StrideType ComputeDebugStrides(std::span<const uint64_t> shape) {
  StrideType strides;
  strides.reserve(shape.size() + 1);
  strides.push_back(1);
  for (const uint64_t dimension : shape) {
    strides.push_back(dimension * strides.back());
  }
  std::reverse(strides.begin(), strides.end());
  return strides;
}

}  // namespace kivml::debug
