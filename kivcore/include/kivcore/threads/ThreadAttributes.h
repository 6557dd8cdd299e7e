#pragma once
// How an executor creates its worker threads, beyond name and priority.

#include <cstddef>

namespace kivcore::threads {

struct ThreadAttributes {
  // Stack size in bytes; 0 keeps the platform's default. Raised to the platform minimum and rounded up
  // to whole pages where the platform needs it.
  std::size_t stackSize = 0;
};

}  // namespace kivcore::threads
