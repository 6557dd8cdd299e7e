#include "kivcore/config/InitializerRegistrar.h"

#include <algorithm>
#include <mutex>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "kivcore/debug/Assert.h"
#include "kivcore/logging/Logging.h"

namespace kivcore::config {
namespace detail {

enum class InitializerState {
  kPending,
  kSucceeded,
  kFailed,   // ran and failed: not run again until RunShutdown
  kBlocked,  // not run because a dependency did not succeed; reconsidered by the next run
  kInCycle,  // not run because it is part of a dependency cycle; reconsidered by the next run
};

struct InitializerEntry {
  // Set by the constructor, then only read.
  std::string name;
  EInitializerContextFlags flags = kInitializerDefault;
  std::function<bool()> initialize;
  std::function<void()> shutdown;
  std::function<void()> cleanup;
  std::vector<std::string> dependsOn;

  bool registered = true;                               // guarded by Registry::mutex
  InitializerState state = InitializerState::kPending;  // guarded by Registry::runMutex

  bool IsOptional() const noexcept { return (flags & kInitializerOptional) != 0; }
};

}  // namespace detail

namespace {

using detail::InitializerEntry;
using detail::InitializerState;
using EntryList = std::vector<std::shared_ptr<InitializerEntry>>;

struct Registry {
  std::mutex runMutex;  // held for a whole run or shutdown; taken before mutex
  std::mutex mutex;
  EntryList entries;      // guarded by mutex; registration order
  EntryList initialized;  // guarded by mutex; order of initialization
};

Registry& GetRegistry() {
  static Registry* registry = new Registry();  // registrars are static objects of any module
  return *registry;
}

constinit thread_local bool tInsideRun = false;

class ScInsideRun {
 public:
  ScInsideRun() noexcept { tInsideRun = true; }
  ~ScInsideRun() { tInsideRun = false; }
  ScInsideRun(const ScInsideRun&) = delete;
  ScInsideRun& operator=(const ScInsideRun&) = delete;
};

bool NameMatches(const std::string& dependency, const std::string& name) {
  if (!dependency.empty() && dependency.back() == '*') {
    return name.compare(0, dependency.size() - 1, dependency, 0, dependency.size() - 1) == 0;
  }
  return name == dependency;
}

bool IsRegistered(Registry& registry, const InitializerEntry& entry) {
  std::lock_guard lock(registry.mutex);
  return entry.registered;
}

void ReportFailure(const std::string& text) {
  if (debug::DoSimpleAssert(__FILE__, __LINE__, "initializers succeed", text.c_str()) &&
      debug::IsDebuggerAttached()) {
    debug::BreakIntoDebugger();
  }
}

// Orders `candidates` dependencies first, registration order otherwise, and collects the entries that
// are part of a dependency cycle. Runs with runMutex held, so states are stable.
class Planner {
 public:
  explicit Planner(const EntryList& all) : mAll(all) {}

  void Visit(InitializerEntry* entry) {
    mMarks[entry] = Mark::kVisiting;
    mStack.push_back(entry);
    for (const std::string& dependency : entry->dependsOn) {
      for (const auto& other : mAll) {
        if (other.get() == entry || !IsCandidate(*other) || !NameMatches(dependency, other->name)) {
          continue;
        }
        const Mark mark = MarkOf(other.get());
        if (mark == Mark::kVisiting) {
          RecordCycle(other.get());
        } else if (mark == Mark::kUnvisited) {
          Visit(other.get());
        }
      }
    }
    mStack.pop_back();
    mMarks[entry] = Mark::kDone;
    mOrder.push_back(entry);
  }

  static bool IsCandidate(const InitializerEntry& entry) {
    return entry.state != InitializerState::kSucceeded && entry.state != InitializerState::kFailed;
  }

  bool IsVisited(InitializerEntry* entry) const { return MarkOf(entry) != Mark::kUnvisited; }
  const std::vector<InitializerEntry*>& Order() const { return mOrder; }
  const std::unordered_set<InitializerEntry*>& InCycle() const { return mInCycle; }

 private:
  enum class Mark { kUnvisited, kVisiting, kDone };

  Mark MarkOf(InitializerEntry* entry) const {
    const auto it = mMarks.find(entry);
    return it == mMarks.end() ? Mark::kUnvisited : it->second;
  }

  void RecordCycle(InitializerEntry* start) {
    const auto first = std::find(mStack.begin(), mStack.end(), start);
    std::string path;
    for (auto it = first; it != mStack.end(); ++it) {
      mInCycle.insert(*it);
      path += (*it)->name + " -> ";
    }
    ReportFailure("Initializer dependency cycle: " + path + start->name);
  }

  const EntryList& mAll;
  std::unordered_map<InitializerEntry*, Mark> mMarks;
  std::vector<InitializerEntry*> mStack;
  std::vector<InitializerEntry*> mOrder;
  std::unordered_set<InitializerEntry*> mInCycle;
};

// The name of a dependency of `entry` that holds it back, or null when it may run.
const InitializerEntry* FindBlockingDependency(const InitializerEntry& entry, const EntryList& all) {
  for (const std::string& dependency : entry.dependsOn) {
    for (const auto& other : all) {
      if (other.get() != &entry && NameMatches(dependency, other->name) && !other->IsOptional() &&
          other->state != InitializerState::kSucceeded) {
        return other.get();
      }
    }
  }
  return nullptr;
}

void RunOne(Registry& registry, const std::shared_ptr<InitializerEntry>& entry) {
  bool succeeded = false;
  try {
    succeeded = !entry->initialize || entry->initialize();
    if (!succeeded) {
      logging::LogMessage("Initializer " + entry->name + " failed");
    }
  } catch (...) {
    logging::LogException(std::current_exception(), "initializer " + entry->name, nullptr);
  }
  entry->state = succeeded ? InitializerState::kSucceeded : InitializerState::kFailed;
  if (succeeded) {
    std::lock_guard lock(registry.mutex);
    if (entry->registered) {
      registry.initialized.push_back(entry);
    }
  }
}

// One pass over the entries not considered yet by this run; returns whether there were any.
bool RunPass(Registry& registry, std::unordered_set<InitializerEntry*>& considered) {
  EntryList all;
  {
    std::lock_guard lock(registry.mutex);
    all = registry.entries;
  }
  Planner planner(all);
  bool any = false;
  for (const auto& entry : all) {
    if (Planner::IsCandidate(*entry) && !considered.contains(entry.get()) &&
        !planner.IsVisited(entry.get())) {
      planner.Visit(entry.get());
    }
  }
  std::unordered_map<InitializerEntry*, std::shared_ptr<InitializerEntry>> owners;
  for (const auto& entry : all) {
    owners.emplace(entry.get(), entry);
  }
  for (InitializerEntry* entry : planner.Order()) {
    if (!considered.insert(entry).second) {
      continue;  // reached again as a dependency of a newly registered one
    }
    any = true;
    if (!IsRegistered(registry, *entry)) {
      continue;
    }
    if (planner.InCycle().contains(entry)) {
      entry->state = InitializerState::kInCycle;
      continue;
    }
    if (const InitializerEntry* blocking = FindBlockingDependency(*entry, all)) {
      entry->state = InitializerState::kBlocked;
      logging::LogMessage("Initializer " + entry->name + " not run: its dependency " + blocking->name +
                          " did not succeed");
      continue;
    }
    RunOne(registry, owners.at(entry));
  }
  return any;
}

}  // namespace

InitializerRegistrar::InitializerRegistrar(const char* name, EInitializerContextFlags flags,
                                           const std::function<bool()>& initialize,
                                           const std::function<void()>& shutdown,
                                           const std::function<void()>& cleanup,
                                           const InitializerDependencies& dependsOn)
    : mEntry(std::make_shared<InitializerEntry>()) {
  mEntry->name = name != nullptr ? name : "";
  mEntry->flags = flags;
  mEntry->initialize = initialize;
  mEntry->shutdown = shutdown;
  mEntry->cleanup = cleanup;
  for (const DependencyNamePacket& dependency : dependsOn) {
    if (dependency.name != nullptr && *dependency.name != '\0') {
      mEntry->dependsOn.emplace_back(dependency.name);
    }
  }
  Registry& registry = GetRegistry();
  std::lock_guard lock(registry.mutex);
  registry.entries.push_back(mEntry);
}

InitializerRegistrar::~InitializerRegistrar() {
  Registry& registry = GetRegistry();
  std::lock_guard lock(registry.mutex);
  mEntry->registered = false;
  std::erase(registry.entries, mEntry);
  std::erase(registry.initialized, mEntry);
}

bool RunInitializers() {
  if (tInsideRun) {
    return true;
  }
  Registry& registry = GetRegistry();
  std::lock_guard runLock(registry.runMutex);
  ScInsideRun inside;
  std::unordered_set<InitializerEntry*> considered;
  while (RunPass(registry, considered)) {
    // Initializers may have registered more (modules they loaded): run those too.
  }
  std::lock_guard lock(registry.mutex);
  // Entries registered by other threads since the last pass are still pending: they do not count.
  return std::none_of(registry.entries.begin(), registry.entries.end(), [](const auto& entry) {
    return !entry->IsOptional() && entry->state != InitializerState::kSucceeded &&
           entry->state != InitializerState::kPending;
  });
}

void RunShutdown() {
  if (tInsideRun) {
    ReportFailure("RunShutdown called from inside an initializer or shutdown step");
    return;
  }
  Registry& registry = GetRegistry();
  std::lock_guard runLock(registry.runMutex);
  ScInsideRun inside;
  EntryList initialized;
  {
    std::lock_guard lock(registry.mutex);
    initialized.swap(registry.initialized);
  }
  const auto runSteps = [&registry, &initialized](std::function<void()> InitializerEntry::*step,
                                                  const char* what) {
    for (auto it = initialized.rbegin(); it != initialized.rend(); ++it) {
      const InitializerEntry& entry = **it;
      if (!(entry.*step) || !IsRegistered(registry, entry)) {
        continue;
      }
      try {
        (entry.*step)();
      } catch (...) {
        logging::LogException(std::current_exception(), std::string(what) + " of " + entry.name, nullptr);
      }
    }
  };
  runSteps(&InitializerEntry::shutdown, "shutdown");
  runSteps(&InitializerEntry::cleanup, "cleanup");
  EntryList all;
  {
    std::lock_guard lock(registry.mutex);
    all = registry.entries;
  }
  for (const auto& entry : all) {
    entry->state = InitializerState::kPending;
  }
}

}  // namespace kivcore::config
