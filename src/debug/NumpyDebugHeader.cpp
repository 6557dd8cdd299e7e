#include "debug/NumpyDebugHeader.h"

#include <array>

#include <boost/lexical_cast.hpp>

namespace kivml::debug {

std::string ComposeNumpyDebugDictionary(std::string_view descriptor, std::span<const uint64_t> shape) {
  std::string text = "{'descr': '";
  text.append(descriptor);
  text += "', 'fortran_order': False, 'shape': (";
  if (shape.size() == 1) {
    text += "1, ";  // a vector is written as a row of one
  }
  for (size_t i = 0; i < shape.size(); ++i) {
    if (i > 0) {
      text += ", ";
    }
    text += std::to_string(shape[i]);
  }
  text += ")}";
  return text;
}

std::optional<NumpyDebugHeader> MatchNumpyDebugHeader(std::string_view header) noexcept {
  // ECMAScript's '.' matches anything but '\n' and '\r', so only a final "\n" (the "\n?") may hold a line
  // break; everything before it is the body that the literals and ".*" runs must cover.
  std::string_view body = header;
  if (!body.empty() && body.back() == '\n') {
    body.remove_suffix(1);
  }
  if (body.find_first_of("\n\r") != std::string_view::npos) {
    return std::nullopt;
  }

  // Past the leading '{', the expression is literals, each after a ".*" run. A backtracking matcher with
  // greedy runs settles on the latest feasible position of every literal, taken from left to right; as a
  // run matches anything, those positions are the ones found from right to left by placing each literal
  // at its last occurrence that still ends before the next literal's. Each capture is the greedy run that
  // follows the first "'", the ":" after fortran_order, or the "(", and so reaches up to the next literal.
  static constexpr std::array<std::string_view, 13> kLiterals{
      "descr", ":", "'", "'", ",", "fortran_order", ":", ",", "shape", ":", "(", ")", "}"};
  std::array<size_t, kLiterals.size()> at{};
  size_t limit = body.size();  // the latest position at which the current literal may end
  for (size_t i = kLiterals.size(); i > 0; --i) {
    const std::string_view literal = kLiterals[i - 1];
    if (limit < literal.size()) {
      return std::nullopt;
    }
    const size_t found = body.rfind(literal, limit - literal.size());
    if (found == std::string_view::npos) {
      return std::nullopt;
    }
    at[i - 1] = found;
    limit = found;
  }
  if (body.empty() || body.front() != '{' || at[0] < 1) {
    return std::nullopt;
  }
  const auto between = [&](size_t first, size_t next) {
    const size_t begin = at[first] + kLiterals[first].size();
    return body.substr(begin, at[next] - begin);
  };
  return NumpyDebugHeader{between(2, 3), between(6, 7), between(10, 11)};
}

std::optional<std::vector<uint64_t>> ParseNumpyDebugDimensions(std::string_view shapeText) {
  std::vector<uint64_t> dimensions;
  size_t position = 0;
  while (position < shapeText.size()) {
    if (shapeText[position] < '0' || shapeText[position] > '9') {
      ++position;
      continue;
    }
    size_t end = position;
    while (end < shapeText.size() && shapeText[end] >= '0' && shapeText[end] <= '9') {
      ++end;
    }
    try {
      dimensions.push_back(boost::lexical_cast<uint64_t>(shapeText.substr(position, end - position)));
    } catch (const boost::bad_lexical_cast&) {
      return std::nullopt;  // more digits than 64 bits hold
    }
    position = end;
  }
  return dimensions;
}

}  // namespace kivml::debug
