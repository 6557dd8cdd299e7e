#pragma once
// Standard error as a terminal, for the progress bar: whether it is one, and how wide it is. One
// implementation per platform (StandardErrorTerminal_linux.cpp, StandardErrorTerminal_windows.cpp).

#include <cstddef>
#include <optional>

namespace kivml::cli {

class StandardErrorTerminal {
 public:
  static bool IsTerminal();
  // Its width in columns, asked each time since a window may be resized; nothing when standard error is
  // not a terminal or the terminal does not say.
  static std::optional<size_t> Columns();
};

}  // namespace kivml::cli
