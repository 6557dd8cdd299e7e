// Parses and prints a Guid through the installed kivcore and lists the shared objects it loaded, which
// the test driver checks all come from the installed tree.
#include <cstdlib>
#include <iostream>

#include "kivcore/utility/Guid.h"

#ifdef __linux__
#include <link.h>
#endif

int main() {
  constexpr char kText[] = "{e3834f7c-735b-473d-a10e-70c3987a25d1}";
  const kivcore::utility::Guid guid(kText, sizeof(kText) - 1);
  std::cout << "guid " << guid.ToString() << '\n';

#ifdef __linux__
  dl_iterate_phdr(
      [](dl_phdr_info* info, size_t, void*) {
        if (info->dlpi_name != nullptr && info->dlpi_name[0] != '\0') {
          std::cout << "loaded " << info->dlpi_name << '\n';
        }
        return 0;
      },
      nullptr);
#endif
  return EXIT_SUCCESS;
}
