#include "kivcore/utility/CPUCount.h"

#include <algorithm>
#include <thread>

namespace kivcore::utility {

unsigned int CPUCount() noexcept {
  return std::max(1u, std::thread::hardware_concurrency());
}

}  // namespace kivcore::utility
