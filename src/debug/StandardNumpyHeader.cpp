#include "debug/StandardNumpyHeader.h"

#include <limits>

#include "kivcore/config/kiv_exception.h"
#include "kivml/ResultCodes.h"

namespace kivml::debug {

namespace {

[[noreturn]] void Fail(const std::string& what) {
  const std::string message = "bad .npy header: " + what;
  throw kivcore::kiv_exception(message.c_str(), eBadFeature);
}

// Python's whitespace between tokens, the newline and spaces of numpy's padding included.
bool IsSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
}

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

bool IsIdentifierCharacter(char c) {
  return IsDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

void SkipSpace(std::string_view& rest) {
  while (!rest.empty() && IsSpace(rest.front())) {
    rest.remove_prefix(1);
  }
}

// Consumes `token` (after any whitespace) when it comes next.
bool Accept(std::string_view& rest, char token) {
  SkipSpace(rest);
  if (rest.empty() || rest.front() != token) {
    return false;
  }
  rest.remove_prefix(1);
  return true;
}

void Expect(std::string_view& rest, char token, const char* where) {
  if (!Accept(rest, token)) {
    Fail(std::string("expected '") + token + "' " + where);
  }
}

// A quoted string without escapes, in single or double quotes; numpy writes nothing else.
std::string_view ParseString(std::string_view& rest, const char* what) {
  SkipSpace(rest);
  if (rest.empty() || (rest.front() != '\'' && rest.front() != '"')) {
    Fail(std::string(what) + " is not a string");
  }
  const char quote = rest.front();
  const size_t end = rest.find(quote, 1);
  if (end == std::string_view::npos) {
    Fail(std::string("unterminated string in ") + what);
  }
  const std::string_view text = rest.substr(1, end - 1);
  if (text.find_first_of("\\\n") != std::string_view::npos) {
    Fail(std::string(what) + " holds an escape or a line break");
  }
  rest.remove_prefix(end + 1);
  return text;
}

bool ParseBool(std::string_view& rest) {
  SkipSpace(rest);
  size_t length = 0;
  while (length < rest.size() && IsIdentifierCharacter(rest[length])) {
    ++length;
  }
  const std::string_view word = rest.substr(0, length);
  if (word != "True" && word != "False") {
    Fail("'fortran_order' is not True or False");
  }
  rest.remove_prefix(length);
  return word == "True";
}

uint64_t ParseDimension(std::string_view& rest) {
  SkipSpace(rest);
  if (rest.empty() || !IsDigit(rest.front())) {
    Fail("'shape' is not a tuple of non-negative integers");
  }
  uint64_t value = 0;
  while (!rest.empty() && IsDigit(rest.front())) {
    const auto digit = static_cast<uint64_t>(rest.front() - '0');
    if (value > (std::numeric_limits<uint64_t>::max() - digit) / 10) {
      Fail("a dimension of 'shape' does not fit 64 bits");
    }
    value = value * 10 + digit;
    rest.remove_prefix(1);
  }
  return value;
}

// "()", "(N,)" or "(N, M, ...)" with an optional trailing comma; "(N)" is a number in Python, not a tuple.
std::vector<uint64_t> ParseShape(std::string_view& rest) {
  if (!Accept(rest, '(')) {
    Fail("'shape' is not a tuple");
  }
  std::vector<uint64_t> shape;
  while (!Accept(rest, ')')) {
    shape.push_back(ParseDimension(rest));
    if (Accept(rest, ',')) {
      continue;
    }
    if (shape.size() == 1 || !Accept(rest, ')')) {
      Fail("'shape' is not a tuple of non-negative integers");
    }
    break;
  }
  return shape;
}

}  // namespace

std::string FormatShapeTuple(std::span<const uint64_t> shape) {
  std::string text = "(";
  for (size_t i = 0; i < shape.size(); ++i) {
    if (i > 0) {
      text += ", ";
    }
    text += std::to_string(shape[i]);
  }
  text += shape.size() == 1 ? ",)" : ")";
  return text;
}

std::string FormatStandardNumpyDictionary(std::string_view descriptor, std::span<const uint64_t> shape) {
  std::string text = "{'descr': '";
  text.append(descriptor);
  text += "', 'fortran_order': False, 'shape': ";
  text += FormatShapeTuple(shape);
  text += ", }";
  return text;
}

StandardNumpyHeader ParseStandardNumpyHeader(std::string_view text) {
  StandardNumpyHeader header;
  bool seenDescriptor = false;
  bool seenFortranOrder = false;
  bool seenShape = false;
  const auto firstSighting = [](bool& seen, std::string_view key) {
    if (seen) {
      Fail("key '" + std::string(key) + "' appears twice");
    }
    seen = true;
  };

  std::string_view rest = text;
  Expect(rest, '{', "at the start");
  while (!Accept(rest, '}')) {
    const std::string_view key = ParseString(rest, "a key");
    Expect(rest, ':', "after a key");
    if (key == "descr") {
      firstSighting(seenDescriptor, key);
      header.mDescriptor = ParseString(rest, "'descr'");
    } else if (key == "fortran_order") {
      firstSighting(seenFortranOrder, key);
      header.mFortranOrder = ParseBool(rest);
    } else if (key == "shape") {
      firstSighting(seenShape, key);
      header.mShape = ParseShape(rest);
    } else {
      Fail("unknown key '" + std::string(key) + "'");
    }
    if (!Accept(rest, ',')) {
      Expect(rest, '}', "after a value");
      break;
    }
  }
  SkipSpace(rest);
  if (!rest.empty()) {
    Fail("text follows the dictionary");
  }
  if (!seenDescriptor || !seenFortranOrder || !seenShape) {
    Fail(std::string("key '") +
         (!seenDescriptor     ? "descr"
          : !seenFortranOrder ? "fortran_order"
                              : "shape") +
         "' is missing");
  }
  return header;
}

}  // namespace kivml::debug
