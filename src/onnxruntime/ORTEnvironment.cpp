#include "onnxruntime/ORTEnvironment.h"

#include <atomic>
#include <memory>
#include <string>
#include <string_view>

#include "kivcore/debug/DebugDatabase.h"
#include "kivcore/debug/Trace.h"
#include "kivcore/utility/CPUCount.h"
#include "kivml/Settings.h"
#include "onnxruntime/ORTApi.h"
#include "utility/ProcessEnvironment.h"
#include "utility/TraceCategory.h"

namespace kivml::ort {

namespace {

using UniqueEnv = std::unique_ptr<OrtEnv, OrtReleaser<OrtEnv, &OrtApi::ReleaseEnv>>;
using UniqueThreadingOptions =
    std::unique_ptr<OrtThreadingOptions, OrtReleaser<OrtThreadingOptions, &OrtApi::ReleaseThreadingOptions>>;

struct EnvironmentHolder {
  UniqueEnv env;
  std::atomic<OrtEnv*> current{nullptr};
};

EnvironmentHolder& Holder() {
  static EnvironmentHolder holder;
  return holder;
}

}  // namespace

bool ORTEnvironment::SpinningAllowed() {
  const std::string_view key = settings::kAllowSpinning.key;
  auto& database = kivcore::debug::DebugDatabase::Instance();
  return database.HasEntry(key) && database.GetEntry(key) == "true";
}

uint32_t ORTEnvironment::GlobalPoolThreadCount(uint32_t processors) noexcept {
  return processors <= 2 ? processors : processors - 2;
}

void ORTEnvironment::Create() {
  utility::SetEnvironmentVariableUnlessSet("ORT_DISABLE_TELEMETRY", "1");

  const OrtApi& api = Api();
  const auto threads = static_cast<int>(GlobalPoolThreadCount(kivcore::utility::CPUCount()));
  OrtThreadingOptions* rawOptions = nullptr;
  ThrowIfFailed(api.CreateThreadingOptions(&rawOptions));
  const UniqueThreadingOptions options(rawOptions);
  ThrowIfFailed(api.SetGlobalInterOpNumThreads(options.get(), threads));
  ThrowIfFailed(api.SetGlobalIntraOpNumThreads(options.get(), threads));
  // Idle workers sleep, which suits a library inside someone else's application; a host that owns the
  // machine may let them spin, trading processor time for latency.
  const bool spin = SpinningAllowed();
  ThrowIfFailed(api.SetGlobalSpinControl(options.get(), spin ? 1 : 0));
  KIV_TRACE(kTraceCategory, 5,
            "ONNX Runtime's shared thread pools: " + std::to_string(threads) + " threads each, idle ones " +
                (spin ? "spin" : "sleep"));

  OrtEnv* rawEnv = nullptr;
  ThrowIfFailed(api.CreateEnvWithGlobalThreadPools(ORT_LOGGING_LEVEL_WARNING, "", options.get(), &rawEnv));
  UniqueEnv env(rawEnv);
  ThrowIfFailed(api.SetLanguageProjection(env.get(), ORT_PROJECTION_CPLUSPLUS));

  EnvironmentHolder& holder = Holder();
  holder.current.store(env.get());
  holder.env = std::move(env);
}

OrtEnv* ORTEnvironment::Get() {
  return Holder().current.load();
}

}  // namespace kivml::ort
