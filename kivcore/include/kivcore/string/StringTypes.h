#pragma once
// The library's string types: UTF-8 bytes and wide text, both over the recycling allocator.
// Wide strings hold UTF-16 where wchar_t is 16 bits (Windows) and UTF-32 where it is 32 bits.

#include <functional>
#include <string>
#include <string_view>

#include "kivcore/allocator/STLAllocator.h"

namespace kivcore {

using u8string =
    std::basic_string<unsigned char, std::char_traits<unsigned char>, allocator::STLAllocator<unsigned char>>;
using wstring = std::basic_string<wchar_t, std::char_traits<wchar_t>, allocator::STLAllocator<wchar_t>>;

}  // namespace kivcore

namespace kivcore {

// Hash for u8string keys of unordered containers.
struct U8StringHash {
  size_t operator()(const u8string& text) const noexcept {
    return std::hash<std::string_view>()(
        std::string_view(reinterpret_cast<const char*>(text.data()), text.size()));
  }
};

}  // namespace kivcore
