#pragma once
// The header dictionary of standard .npy images, as numpy.save writes it and numpy.load reads it: a
// Python dict literal with exactly the keys 'descr', 'fortran_order' and 'shape'.

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kivml::debug {

struct StandardNumpyHeader {
  std::string mDescriptor;
  bool mFortranOrder = false;
  std::vector<uint64_t> mShape;
};

// The shape as Python writes a tuple: "(2, 4)", "(5,)", "()".
std::string FormatShapeTuple(std::span<const uint64_t> shape);

// "{'descr': '<f4', 'fortran_order': False, 'shape': (2, 4), }", keys sorted as numpy writes them.
std::string FormatStandardNumpyDictionary(std::string_view descriptor, std::span<const uint64_t> shape);

// Parses the header text: keys in any order, whitespace anywhere, a trailing comma or not, trailing
// whitespace (numpy's padding) after the closing brace. Throws kiv_exception (eBadFeature) saying what is
// wrong for anything else: another syntax, a missing, repeated or unknown key, a value of the wrong kind,
// a dimension beyond 64 bits.
StandardNumpyHeader ParseStandardNumpyHeader(std::string_view text);

}  // namespace kivml::debug
