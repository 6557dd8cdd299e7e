#pragma once
// A task posted on an executor on behalf of an owner, which it keeps alive until the task runs. Running it
// calls (owner->*kOnRun)(); destroyed without having run (refused by the executor, or dropped by its
// shutdown) it calls (owner->*kOnLost)(), so the owner does not wait for a run that will never come.
// std::function demands a copy constructor, but executors must move tasks: a copy destroyed unrun would
// report a loss.

#include <memory>
#include <utility>

namespace kivcore::threads {

template <class Owner, void (Owner::*kOnRun)(), void (Owner::*kOnLost)() noexcept>
class OwnedTask {
 public:
  explicit OwnedTask(std::shared_ptr<Owner> owner) noexcept : mOwner(std::move(owner)) {}
  OwnedTask(const OwnedTask& other) = default;
  OwnedTask(OwnedTask&& other) noexcept = default;
  OwnedTask& operator=(const OwnedTask&) = delete;
  OwnedTask& operator=(OwnedTask&&) = delete;
  ~OwnedTask() {
    if (mOwner) {
      ((*mOwner).*kOnLost)();
    }
  }

  void operator()() {
    const std::shared_ptr<Owner> owner = std::move(mOwner);
    ((*owner).*kOnRun)();
  }

 private:
  std::shared_ptr<Owner> mOwner;  // null once run
};

}  // namespace kivcore::threads
