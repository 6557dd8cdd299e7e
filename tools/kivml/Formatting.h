#pragma once
// Text the commands share: element type names, shapes, result codes and aligned columns.

#include <cstdint>
#include <exception>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "kivcore/utility/Guid.h"

namespace kivml::cli {

// "float32", "float64", "int32", "int64" or "bool"; empty for a type the library does not have.
std::string ElementTypeName(const kivcore::utility::Guid& elementType);
// Bytes per element; 0 for a type the library does not have.
size_t ElementSize(const kivcore::utility::Guid& elementType);
// The types a user can exchange with the tool, for messages: "float32, float64, int32, int64, bool".
std::string SupportedElementTypeNames();

// "[1, 3, ?, ?]": negative sizes are free dimensions.
template <class Range>
std::string FormatShape(const Range& dims) {
  std::string text = "[";
  bool first = true;
  for (const auto size : dims) {
    text += first ? "" : ", ";
    first = false;
    if constexpr (std::is_signed_v<std::remove_cvref_t<decltype(size)>>) {
      text += size < 0 ? std::string("?") : std::to_string(size);
    } else {
      text += std::to_string(size);
    }
  }
  return text + "]";
}

// "0x806C0003", the form the library's result codes are documented in.
std::string FormatResultCode(int result);
// The result code and message of a caught exception: "0x806C0004: <what>".
std::string DescribeFailure(const std::exception_ptr& failure);
// `value` with `decimals` digits after the point.
std::string FormatFixed(double value, int decimals);

// `text` safe to print on a terminal: control characters as \xNN (C0 and DEL) or \u00NN (C1, as UTF-8
// encodes them), so that names and metadata from a model or a file cannot move the cursor, recolour or
// clear the screen, and a NUL cannot cut a message short. Other characters, other UTF-8 included, stay.
std::string EscapeControlCharacters(std::string_view text);

// Prints rows as columns separated by two blanks, each as wide as its widest cell, with control
// characters escaped. `align` holds 'l' or 'r' per column (missing ones are left-aligned); trailing blanks
// are trimmed.
void PrintColumns(std::ostream& out, const std::vector<std::vector<std::string>>& rows,
                  std::string_view indent, std::string_view align = {});

}  // namespace kivml::cli
