#include <io.h>
#include <windows.h>

#include <cstdio>

#include "StandardErrorTerminal.h"

namespace kivml::cli {

bool StandardErrorTerminal::IsTerminal() {
  return _isatty(_fileno(stderr)) != 0;
}

std::optional<size_t> StandardErrorTerminal::Columns() {
  CONSOLE_SCREEN_BUFFER_INFO console{};
  if (!GetConsoleScreenBufferInfo(GetStdHandle(STD_ERROR_HANDLE), &console)) {
    return std::nullopt;
  }
  // The visible window, not the buffer, which is often far wider.
  const int columns = console.srWindow.Right - console.srWindow.Left + 1;
  return columns > 0 ? std::optional<size_t>(static_cast<size_t>(columns)) : std::nullopt;
}

}  // namespace kivml::cli
