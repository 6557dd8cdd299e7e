#pragma once
// A T built in place and never destroyed, for function-local statics that other threads may still use
// while the process exits: static destructors run in the exiting thread while worker threads go on, so a
// static they read must not go away under them. Indestructible itself is trivially destructible, so no
// exit handler is registered for it; whatever the T owns stays reachable and is not reported as a leak.
//
//   static const Indestructible<std::map<int, int>> table(std::map<int, int>{{1, 2}});
//   table->find(1);

#include <new>
#include <type_traits>
#include <utility>

namespace kivcore::utility {

template <class T>
class Indestructible {
 public:
  template <class... Args>
  explicit Indestructible(Args&&... args) noexcept(std::is_nothrow_constructible_v<T, Args&&...>) {
    ::new (static_cast<void*>(mStorage)) T(std::forward<Args>(args)...);
  }
  Indestructible(const Indestructible&) = delete;
  Indestructible& operator=(const Indestructible&) = delete;
  ~Indestructible() = default;

  T& operator*() noexcept { return *Get(); }
  const T& operator*() const noexcept { return *Get(); }
  T* operator->() noexcept { return Get(); }
  const T* operator->() const noexcept { return Get(); }

 private:
  T* Get() noexcept { return std::launder(reinterpret_cast<T*>(mStorage)); }
  const T* Get() const noexcept { return std::launder(reinterpret_cast<const T*>(mStorage)); }

  alignas(T) unsigned char mStorage[sizeof(T)];
};

}  // namespace kivcore::utility
