#pragma once
// Standard-library allocator over the MemoryRecycler; the allocator of every container and string of the
// library. Stateless: all instances compare equal.

#include <cstddef>
#include <limits>
#include <new>
#include <type_traits>

#include "kivcore/allocator/MemoryRecycler.h"

namespace kivcore::allocator {

template <class T>
class STLAllocator {
 public:
  using value_type = T;
  using propagate_on_container_move_assignment = std::true_type;
  using is_always_equal = std::true_type;

  STLAllocator() noexcept = default;
  template <class U>
  STLAllocator(const STLAllocator<U>&) noexcept {}

  T* allocate(size_t n) {
    static_assert(
        alignof(T) <= MemoryRecycler::kSmallAlignment || sizeof(T) >= MemoryRecycler::kLargeAlignment,
        "the recycler cannot honour this alignment");
    if (n > std::numeric_limits<size_t>::max() / sizeof(T)) {
      throw std::bad_array_new_length();
    }
    size_t actual = 0;
    return static_cast<T*>(MemoryRecycler::Allocate(n * sizeof(T), actual));
  }

  void deallocate(T* p, size_t n) noexcept { MemoryRecycler::Recycle(p, n * sizeof(T)); }

  template <class U>
  friend bool operator==(const STLAllocator&, const STLAllocator<U>&) noexcept {
    return true;
  }
};

// Class-specific new/delete through the recycler, for objects made with plain `new`.
template <class T>
struct Allocated {
  static void* operator new(size_t bytes) {
    size_t actual = 0;
    return MemoryRecycler::Allocate(bytes, actual);
  }
  static void operator delete(void* p, size_t bytes) noexcept { MemoryRecycler::Recycle(p, bytes); }
};

}  // namespace kivcore::allocator
