#pragma once
// The library's string types: UTF-8 bytes and wide text, both over the recycling allocator.
// Wide strings hold UTF-16 where wchar_t is 16 bits (Windows) and UTF-32 where it is 32 bits.

#include <string>

#include "kivcore/allocator/STLAllocator.h"

namespace kivcore {

using u8string = std::basic_string<unsigned char, std::char_traits<unsigned char>,
                                   allocator::STLAllocator<unsigned char>>;
using wstring = std::basic_string<wchar_t, std::char_traits<wchar_t>, allocator::STLAllocator<wchar_t>>;

}  // namespace kivcore
