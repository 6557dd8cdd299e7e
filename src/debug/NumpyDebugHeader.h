#pragma once
// The header dictionary of the debug images, in both directions: composed exactly as DumpDataToNumpy
// writes it, and matched as CreateTensorFromNumpy has always accepted it, by the regular expression
//   \{.*descr.*:.*'(.*).*'.*,.*fortran_order.*:(.*),.*shape.*:.*\((.*)\).*\}.*\n?
// (ECMAScript, whole text). MatchNumpyDebugHeader gives the same verdict and the same three captures as
// std::regex_match with that expression, without its cost: libstdc++ matches by recursive backtracking,
// which on a hostile 32 KB header overflows the stack or runs for ages.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kivml::debug {

struct NumpyDebugHeader {
  std::string_view mDescriptor;    // between the quotes after "descr"
  std::string_view mFortranOrder;  // after "fortran_order:", up to the comma; never consulted
  std::string_view mShape;         // inside the parentheses after "shape"
};

// "{'descr': '<f4', 'fortran_order': False, 'shape': (2, 4)}": no trailing comma, and a shape (N) is
// written as (1, N).
std::string ComposeNumpyDebugDictionary(std::string_view descriptor, std::span<const uint64_t> shape);

// The captures of the expression above, or nullopt when it does not match. Views into `header`.
std::optional<NumpyDebugHeader> MatchNumpyDebugHeader(std::string_view header) noexcept;

// Every run of decimal digits in `shapeText`, in order, as a dimension; nullopt when a run does not fit
// 64 bits (the lexical cast fails), since a debug reader must hand back nothing rather than throw.
std::optional<std::vector<uint64_t>> ParseNumpyDebugDimensions(std::string_view shapeText);

}  // namespace kivml::debug
