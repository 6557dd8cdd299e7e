#include "customoperators/CustomOperatorRegistrar.h"

#include <atomic>

#include "kivcore/debug/Assert.h"
#include "kivcore/threads/RecursiveMutex.h"
#include "kivcore/threads/ScopedLock.h"

namespace kivml::customoperators {

namespace {

constexpr auto kLockWait = std::chrono::milliseconds(60000);

struct CustomOpTable {
  CustomOpTable() : mutex("kivml::customoperators::CustomOpTable"), ops(8) { ops.max_load_factor(1.0F); }

  kivcore::threads::RecursiveMutex mutex;
  CustomOpMap ops;  // guarded by mutex
};

CustomOpTable& Table() {
  static CustomOpTable table;
  return table;
}

std::atomic<bool> gRegistrationClosed{false};

}  // namespace

CustomOpRegistrar::CustomOpRegistrar(kivcore::utility::ImmutableString name, kivcore::utility::Guid id) {
  bool didInsertCustomOp = false;
  if (!gRegistrationClosed.load()) {
    CustomOpTable& table = Table();
    kivcore::threads::ScopedLock lock(
        table.mutex, "kivml::customoperators::CustomOpRegistrar::CustomOpRegistrar", kLockWait);
    didInsertCustomOp = table.ops.emplace(std::move(name), id).second;
  }
  // Reported as raised at its historic place, so that reports stay comparable between releases.
  if (!didInsertCustomOp &&
      kivcore::debug::DoSimpleAssert("src/customoperators/CustomOperatorRegistrar", 70, "didInsertCustomOp",
                                     "Failed to register custom operator") &&
      kivcore::debug::IsDebuggerAttached()) {
    kivcore::debug::BreakIntoDebugger();
  }
}

CustomOpRegistrar& CustomOpRegistrar::operator=(const CustomOpRegistrar& /*other*/) {
  return *this;
}

CustomOpMap GetRegisteredCustomOps() {
  CustomOpTable& table = Table();
  kivcore::threads::ScopedLock lock(table.mutex, "kivml::customoperators::GetRegisteredCustomOps", kLockWait);
  return table.ops;
}

void CloseCustomOpRegistration() noexcept {
  gRegistrationClosed.exchange(true);
}

}  // namespace kivml::customoperators
