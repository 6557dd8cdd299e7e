#pragma once
// Building and inspecting .npy images byte by byte in the debug I/O tests.

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "kivcore/allocator/RecycledMemory.h"
#include "kivml/TensorFeatureTypes.h"

namespace kivml::debug::testing {

inline std::shared_ptr<const kivcore::allocator::RecycledMemory> ImageOf(std::string_view bytes) {
  auto image = kivcore::allocator::RecycledMemory::Create(bytes.size());
  if (!bytes.empty()) {
    std::memcpy(image->Buffer(), bytes.data(), bytes.size());
  }
  return image;
}

inline std::string BytesOf(const std::shared_ptr<const kivcore::allocator::RecycledMemory>& image) {
  return image ? std::string(image->Buffer(), image->Size()) : std::string();
}

// The bytes of the values as they lie in memory.
template <typename T>
std::string Raw(std::initializer_list<T> values) {
  std::string bytes(values.size() * sizeof(T), '\0');
  std::memcpy(bytes.data(), std::data(values), bytes.size());
  return bytes;
}

// An image with the given version bytes, a 16-bit (major 1) or 32-bit header length, the header text
// verbatim, and the data.
inline std::string Npy(std::string_view header, std::string_view data, char major = 1, char minor = 0) {
  std::string image = std::string("\x93NUMPY", 6) + major + minor;
  const size_t lengthBytes = major == 1 ? 2 : 4;
  for (size_t i = 0; i < lengthBytes; ++i) {
    image += static_cast<char>((header.size() >> (8 * i)) & 0xFF);
  }
  image.append(header);
  image.append(data);
  return image;
}

// What numpy.save writes for a header dictionary followed by `spaces` spaces of padding.
inline std::string NumpySaved(std::string_view dictionary, size_t spaces, std::string_view data,
                              char major = 1) {
  return Npy(std::string(dictionary) + std::string(spaces, ' ') + "\n", data, major);
}

inline std::vector<uint64_t> ToVector(const ShapeType& values) {
  return {values.begin(), values.end()};
}

}  // namespace kivml::debug::testing
