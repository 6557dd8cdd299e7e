#include "kivcore/debug/Trace.h"

#include "utility/CallbackSlot.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <utility>

#include "Environment.h"
#include "kivcore/string/StringConversions.h"
#include "utility/CallbackSlot.h"

namespace kivcore::debug {
namespace {

constexpr const char* kTraceVariable = "KIVCORE_TRACE";

// What a check may conclude without locking: the environment is not read yet, nothing traces, or some
// category traces (then the levels decide). Kept apart from the locked state so the disabled path is one
// relaxed load.
enum Mode : int { kNotInitialised = 0, kAllDisabled = 1, kSomeEnabled = 2 };
constinit std::atomic<int> gMode{kNotInitialised};
constinit std::atomic<uint64_t> gChangeCount{0};

struct TraceState {
  std::shared_mutex mutex;
  std::map<std::string, int, std::less<>> levels;  // guarded by mutex
  int defaultLevel = -1;                           // guarded by mutex; the "*" level
  utility::CallbackSlot<TraceSink> sink;           // empty means standard error
  std::once_flag environmentRead;
  std::mutex stderrMutex;  // keeps default-sink lines whole
};

TraceState& GetState() {
  static TraceState* state = new TraceState();  // static destructors may still trace
  return *state;
}

// Caller holds the state's mutex exclusively.
void SetLevelLocked(TraceState& state, std::string_view category, int maxLevel) {
  if (category == "*") {
    state.defaultLevel = maxLevel;
  } else {
    state.levels.insert_or_assign(std::string(category), maxLevel);
  }
}

// Caller holds the state's mutex exclusively. The count moves last, with release, so that whoever sees
// the new count also sees the new mode.
void PublishChangeLocked(const TraceState& state) {
  const bool anyEnabled =
      state.defaultLevel >= 0 || std::any_of(state.levels.begin(), state.levels.end(),
                                             [](const auto& entry) { return entry.second >= 0; });
  gMode.store(anyEnabled ? kSomeEnabled : kAllDisabled, std::memory_order_relaxed);
  gChangeCount.fetch_add(1, std::memory_order_release);
}

// Caller holds the state's mutex exclusively.
int ApplySettingsLocked(TraceState& state, std::string_view settings) {
  int applied = 0;
  while (!settings.empty()) {
    const size_t end = settings.find_first_of(",;");
    const std::string_view entry = settings.substr(0, end);
    settings = end == std::string_view::npos ? std::string_view() : settings.substr(end + 1);
    const size_t equals = entry.find('=');
    if (equals == std::string_view::npos) {
      continue;
    }
    const std::string_view category = string::TrimBlanks(entry.substr(0, equals));
    const std::string_view value = string::TrimBlanks(entry.substr(equals + 1));
    int level = 0;
    const auto [next, error] = std::from_chars(value.data(), value.data() + value.size(), level);
    if (category.empty() || value.empty() || error != std::errc() || next != value.data() + value.size()) {
      continue;
    }
    SetLevelLocked(state, category, level);
    ++applied;
  }
  return applied;
}

void ApplyEnvironment(TraceState& state) {
  const std::optional<std::string> settings = detail::GetEnvironmentUtf8(kTraceVariable);
  std::unique_lock lock(state.mutex);
  if (settings) {
    ApplySettingsLocked(state, *settings);
  }
  PublishChangeLocked(state);
}

TraceState& GetInitialisedState() {
  TraceState& state = GetState();
  if (gMode.load(std::memory_order_relaxed) == kNotInitialised) {
    std::call_once(state.environmentRead, [&state] { ApplyEnvironment(state); });
  }
  return state;
}

bool IsEnabled(std::string_view category, int level) {
  const int mode = gMode.load(std::memory_order_relaxed);
  if (mode == kAllDisabled) {
    return false;
  }
  TraceState& state = mode == kNotInitialised ? GetInitialisedState() : GetState();
  std::shared_lock lock(state.mutex);
  const auto it = state.levels.find(category);
  const int maxLevel = it != state.levels.end() ? it->second : state.defaultLevel;
  return maxLevel >= 0 && level <= maxLevel;
}

void WriteToStandardError(TraceState& state, int level, const std::string& category,
                          const std::string& message) {
  std::string line = "[" + category + ":" + std::to_string(level) + "] " + message;
  // A message that ends its own line (for the sake of hosts' sinks) gets no second one.
  if (!message.ends_with('\n')) {
    line += '\n';
  }
  std::lock_guard lock(state.stderrMutex);
  std::fwrite(line.data(), 1, line.size(), stderr);
  std::fflush(stderr);
}

}  // namespace

bool TraceEnabled(const unsigned char* category, int level, bool refresh) {
  if (refresh) {
    ApplyEnvironment(GetInitialisedState());
  }
  const auto* text = reinterpret_cast<const char*>(category);
  return IsEnabled(text == nullptr ? std::string_view() : std::string_view(text), level);
}

bool TraceEnabled(std::string_view category, int level) {
  return IsEnabled(category, level);
}

void Trace(int level, const std::string& category, const std::string& message) {
  if (!IsEnabled(category, level)) {
    return;
  }
  TraceState& state = GetState();
  const std::shared_ptr<const TraceSink> sink = state.sink.Get();
  if (sink) {
    (*sink)(level, category, message);
  } else {
    WriteToStandardError(state, level, category, message);
  }
}

uint64_t TraceChangeCount() noexcept {
  if (gMode.load(std::memory_order_relaxed) == kNotInitialised) {
    try {
      GetInitialisedState();
    } catch (...) {
      // Out of memory while reading the environment: tracing stays as it is.
    }
  }
  return gChangeCount.load(std::memory_order_acquire);
}

void SetTraceLevel(std::string_view category, int maxLevel) {
  TraceState& state = GetInitialisedState();
  std::unique_lock lock(state.mutex);
  SetLevelLocked(state, category, maxLevel);
  PublishChangeLocked(state);
}

void ClearTraceLevels() {
  TraceState& state = GetInitialisedState();
  std::unique_lock lock(state.mutex);
  state.levels.clear();
  state.defaultLevel = -1;
  PublishChangeLocked(state);
}

int ApplyTraceSettings(std::string_view settings) {
  TraceState& state = GetInitialisedState();
  std::unique_lock lock(state.mutex);
  const int applied = ApplySettingsLocked(state, settings);
  PublishChangeLocked(state);
  return applied;
}

TraceSink SetTraceSink(TraceSink sink) {
  return GetState().sink.Exchange(std::move(sink));
}

}  // namespace kivcore::debug
