#include <sys/ioctl.h>
#include <unistd.h>

#include "StandardErrorTerminal.h"

namespace kivml::cli {

bool StandardErrorTerminal::IsTerminal() {
  return isatty(STDERR_FILENO) != 0;
}

std::optional<size_t> StandardErrorTerminal::Columns() {
  winsize size{};
  // A pseudo-terminal nobody has sized reports 0 columns.
  if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) {
    return std::nullopt;
  }
  return size.ws_col;
}

}  // namespace kivml::cli
