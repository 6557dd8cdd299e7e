#pragma once
// The .npy image layout shared by the debug and the standard readers and writers: the magic, two version
// bytes, a little-endian header length, the header text, then the data. One writer composes every image
// this library makes, so both kinds are laid out and padded alike.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include "kivcore/allocator/RecycledMemory.h"

namespace kivml::debug::npy {

inline constexpr std::string_view kMagic{"\x93NUMPY", 6};
// Magic and version bytes; the header length follows.
inline constexpr size_t kLengthOffset = 8;
// Bytes before the header text of a version 1.0 image (16-bit length).
inline constexpr size_t kVersion1Preamble = 10;
// Bytes before the header text of a version 2.0 or 3.0 image (32-bit length).
inline constexpr size_t kVersion2Preamble = 12;
// Data start at a multiple of this, so that readers can use them in place.
inline constexpr size_t kDataAlignment = 64;

// A version 1.0 image of `byteCount` bytes from `data` under `dictionary`. The header is the dictionary,
// spaces and one "\n", as long as needed for the data to begin at a multiple of 64; a dictionary that
// already ends on that boundary gets a whole line more, since the newline needs a byte of its own.
// Throws kiv_exception (eBadFeature) when the header does not fit the 16-bit length.
std::shared_ptr<kivcore::allocator::RecycledMemory> ComposeImage(std::string_view dictionary,
                                                                 const void* data, uint64_t byteCount);

// Whether the `size` bytes at `bytes` begin with the magic.
bool HasMagic(const char* bytes, size_t size) noexcept;

// The unsigned little-endian number in the `count` (at most 8) bytes at `bytes`.
uint64_t ReadLittleEndian(const char* bytes, size_t count) noexcept;

// The image's bytes from `offset` (at most its size) to its end, as a buffer of their own that is not a
// copy: it holds a reference to the image, so the image lives as long as any tensor made over it.
std::shared_ptr<const kivcore::allocator::RecycledMemory> ShareImageData(
    const std::shared_ptr<const kivcore::allocator::RecycledMemory>& image, uint64_t offset);

}  // namespace kivml::debug::npy
