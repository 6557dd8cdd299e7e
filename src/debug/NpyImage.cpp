#include "debug/NpyImage.h"

#include <cstring>
#include <limits>
#include <new>
#include <string>

#include "kivcore/config/kiv_exception.h"
#include "kivml/ResultCodes.h"

namespace kivml::debug::npy {

using kivcore::allocator::RecycledMemory;

std::shared_ptr<RecycledMemory> ComposeImage(std::string_view dictionary, const void* data,
                                             uint64_t byteCount) {
  const size_t unpadded = kVersion1Preamble + dictionary.size() + 1;  // + the closing "\n"
  const size_t prefix = (unpadded + kDataAlignment - 1) / kDataAlignment * kDataAlignment;
  const size_t headerLength = prefix - kVersion1Preamble;
  if (headerLength > std::numeric_limits<uint16_t>::max()) {
    const std::string message =
        "a .npy header of " + std::to_string(headerLength) + " bytes does not fit a version 1.0 image";
    throw kivcore::kiv_exception(message.c_str(), eBadFeature);
  }
  if (byteCount > std::numeric_limits<size_t>::max() - prefix) {
    throw std::bad_array_new_length();
  }

  auto image = RecycledMemory::Create(prefix + static_cast<size_t>(byteCount));
  char* out = image->Buffer();
  std::memcpy(out, kMagic.data(), kMagic.size());
  out[6] = 1;  // major version
  out[7] = 0;  // minor version
  out[kLengthOffset] = static_cast<char>(headerLength & 0xFF);
  out[kLengthOffset + 1] = static_cast<char>(headerLength >> 8);
  std::memcpy(out + kVersion1Preamble, dictionary.data(), dictionary.size());
  std::memset(out + kVersion1Preamble + dictionary.size(), ' ', prefix - unpadded);
  out[prefix - 1] = '\n';
  if (byteCount > 0) {
    std::memcpy(out + prefix, data, static_cast<size_t>(byteCount));
  }
  return image;
}

bool HasMagic(const char* bytes, size_t size) noexcept {
  return bytes != nullptr && size >= kMagic.size() && std::string_view(bytes, kMagic.size()) == kMagic;
}

uint64_t ReadLittleEndian(const char* bytes, size_t count) noexcept {
  uint64_t value = 0;
  for (size_t i = count; i > 0; --i) {
    value = (value << 8) | static_cast<unsigned char>(bytes[i - 1]);
  }
  return value;
}

std::shared_ptr<const RecycledMemory> ShareImageData(const std::shared_ptr<const RecycledMemory>& image,
                                                     uint64_t offset) {
  auto view = RecycledMemory::Create(0);
  // The view is read-only in spirit; the tensor's modifier can still write through it, as it can with any
  // shared tensor buffer, and then changes the image itself.
  char* begin = const_cast<char*>(image->Buffer()) + offset;
  view->AttachToExternalBuffer(image, begin, image->Size() - static_cast<size_t>(offset));
  return view;
}

}  // namespace kivml::debug::npy
