#pragma once
// Start-up and shut-down steps registered by the modules of the runtime, usually as static objects:
//   static config::InitializerRegistrar registrar("kivml::Backend", config::kInitializerDefault, &Init,
//                                                 &Shutdown, nullptr, {"kivcore::Memory", "kivml::ops::*"});
// RunInitializers() runs each registered initializer that has not run yet, exactly once: dependencies
// first, registration order otherwise. Dependencies on names that are not registered are ignored. An
// initializer fails by returning false or throwing (the exception is logged); its dependents then do not
// run (unless it is optional). Initializers in a dependency cycle are reported with an assertion and not
// run. RunShutdown() calls the shutdown steps of the initialized ones in reverse order of initialization,
// then their cleanup steps, and makes them pending again.
//
// The registry lives in a never-destroyed function-local static, so registrars may be constructed and
// destroyed during static initialization and termination. Everything is safe to call from any thread.

#include <array>
#include <functional>
#include <memory>

#include "kivcore/config/DependencyNamePacket.h"
#include "kivcore/config/EInitializerContextFlags.h"
#include "kivcore/kivcore_export.h"

namespace kivcore::config {

namespace detail {
struct InitializerEntry;  // the registry's record of one registrar
}

using InitializerDependencies = std::array<DependencyNamePacket, 16>;

class KIVCORE_EXPORT InitializerRegistrar {
 public:
  // Registers the steps under `name` (copied). Empty functions are steps with nothing to do.
  InitializerRegistrar(const char* name, EInitializerContextFlags flags,
                       const std::function<bool()>& initialize, const std::function<void()>& shutdown = {},
                       const std::function<void()>& cleanup = {},
                       const InitializerDependencies& dependsOn = {});
  // Unregisters: no step of it starts after this returns, and it no longer counts for the result of
  // RunInitializers.
  virtual ~InitializerRegistrar();
  InitializerRegistrar(const InitializerRegistrar&) = delete;
  InitializerRegistrar& operator=(const InitializerRegistrar&) = delete;

 private:
  std::shared_ptr<detail::InitializerEntry> mEntry;  // set by the constructor, shared with running passes
};

// Runs the pending initializers (see above), including those registered while it runs. Returns false
// when a registered non-optional initializer has failed or could not run (failures of earlier runs
// count until the failed registrar is destroyed or RunShutdown resets it). Concurrent callers wait for the
// one running; a call made from inside an initializer returns true at once (the outer run picks up whatever
// the initializer registered).
KIVCORE_EXPORT bool RunInitializers();

// Shuts the initialized ones down (see above). Waits for a run in progress; a call from inside an
// initializer or shutdown step is reported with an assertion and does nothing.
KIVCORE_EXPORT void RunShutdown();

}  // namespace kivcore::config
