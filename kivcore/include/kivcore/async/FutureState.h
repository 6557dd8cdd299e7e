#pragma once
// The shared state of Promise<T> and its futures: FutureStateBase plus the value. One allocation
// (std::allocate_shared through the memory recycler) holds the control block, the status and the value.
// Threads: the value is written once, by the thread that won TryClaim, before the state is published;
// readers only touch it after IsReady()/HasValue() has returned true. Lifetime: see FutureStateBase.

#include <memory>
#include <new>
#include <type_traits>
#include <utility>
#include <variant>

#include "kivcore/allocator/STLAllocator.h"
#include "kivcore/async/FutureStateBase.h"

namespace kivcore::async {

template <class T>
class FutureState final : public FutureStateBase {
  static_assert(!std::is_reference_v<T> &&
                    std::is_move_constructible_v<std::conditional_t<std::is_void_v<T>, int, T>>,
                "futures carry movable values (or void), not references");

 public:
  // What the state stores: T, or std::monostate for void.
  using Storage = std::conditional_t<std::is_void_v<T>, std::monostate, T>;

  explicit FutureState(std::shared_ptr<AsyncExecutor> continuationExecutor) noexcept
      : FutureStateBase(std::move(continuationExecutor)) {}
  ~FutureState() {
    if (HasValue()) {
      mValue.~Storage();
    }
  }

  static std::shared_ptr<FutureState> Create(std::shared_ptr<AsyncExecutor> continuationExecutor) {
    return std::allocate_shared<FutureState>(allocator::STLAllocator<FutureState>(),
                                             std::move(continuationExecutor));
  }

  // Completes `state` with a value built from `args`; false when it had completed (or begun to) already.
  // A constructor that throws leaves the state failed with that exception.
  template <class... Args>
  static bool CompleteWithValue(const std::shared_ptr<FutureState>& state, Args&&... args) noexcept {
    if (!state->TryClaim()) {
      return false;
    }
    try {
      ::new (static_cast<void*>(std::addressof(state->mValue))) Storage(std::forward<Args>(args)...);
    } catch (...) {
      state->StoreException(std::current_exception());
      Publish(state, true);
      return true;
    }
    Publish(state, false);
    return true;
  }

  // Only after HasValue() has returned true.
  const Storage& Value() const noexcept { return mValue; }
  Storage& Value() noexcept { return mValue; }

 private:
  union {
    Storage mValue;  // alive once HasValue()
  };
};

}  // namespace kivcore::async
