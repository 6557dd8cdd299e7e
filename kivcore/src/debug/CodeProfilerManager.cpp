#include "kivcore/debug/CodeProfilerManager.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <limits>

#include "kivcore/debug/DebugDatabase.h"

namespace kivcore::debug {
namespace {

struct Row {
  std::string name;
  uint64_t calls = 0;
  uint64_t total = 0;
  uint64_t min = std::numeric_limits<uint64_t>::max();
  uint64_t max = 0;
};

}  // namespace

CodeProfilerManager& CodeProfilerManager::Get() {
  static CodeProfilerManager* manager = [] {
    auto* created = new CodeProfilerManager();  // regions in static objects report until the very end
    created->LoadSettings(DebugDatabase::Instance());
    return created;
  }();
  return *manager;
}

void CodeProfilerManager::SetConditionalProfiling(bool conditional) noexcept {
  mConditional.store(conditional, std::memory_order_relaxed);
}

void CodeProfilerManager::SetProfilingVolume(int volume) noexcept {
  mVolume.store(volume, std::memory_order_relaxed);
}

bool CodeProfilerManager::IsVolumeProfiled(int volume) const noexcept {
  return !IsConditionalProfiling() || volume <= GetProfilingVolume();
}

void CodeProfilerManager::LoadSettings(const DebugDatabase& database) {
  const std::string conditional = database.GetEntry(std::string_view(kConditionalKey));
  if (conditional == "1" || conditional == "true") {
    SetConditionalProfiling(true);
  } else if (conditional == "0" || conditional == "false") {
    SetConditionalProfiling(false);
  }
  const std::string volumeText = database.GetEntry(std::string_view(kVolumeKey));
  int volume = 0;
  const char* end = volumeText.data() + volumeText.size();
  if (const auto [next, error] = std::from_chars(volumeText.data(), end, volume);
      !volumeText.empty() && error == std::errc() && next == end) {
    SetProfilingVolume(volume);
  }
}

boost::intrusive_ptr<ProfileDataLog> CodeProfilerManager::CreateNewProfileDataLog(const char* name,
                                                                                  int volume) {
  boost::intrusive_ptr<ProfileDataLog> log(new ProfileDataLog(name != nullptr ? name : "", volume));
  std::lock_guard lock(mMutex);
  mLogs.push_back(log);
  return log;
}

boost::intrusive_ptr<ProfileDataLog> CodeProfilerManager::GetOrCreateProfileDataLog(const char* name,
                                                                                    int volume) {
  const std::string_view key = name != nullptr ? name : "";
  std::lock_guard lock(mMutex);
  if (const auto it = mNamed.find(key); it != mNamed.end()) {
    return it->second;
  }
  boost::intrusive_ptr<ProfileDataLog> log(new ProfileDataLog(std::string(key), volume));
  mLogs.push_back(log);
  mNamed.emplace(key, log);
  return log;
}

std::string CodeProfilerManager::Summary() const {
  std::vector<boost::intrusive_ptr<ProfileDataLog>> logs;
  {
    std::lock_guard lock(mMutex);
    logs = mLogs;
  }
  std::map<std::string_view, Row> byName;
  for (const auto& log : logs) {
    Row& row = byName[log->Name()];
    row.name = log->Name();
    const uint64_t calls = log->CallCount();
    row.calls += calls;
    row.total += log->TotalNanoseconds();
    if (calls > 0) {
      row.min = std::min(row.min, log->MinNanoseconds());
      row.max = std::max(row.max, log->MaxNanoseconds());
    }
  }
  std::vector<Row> rows;
  rows.reserve(byName.size());
  for (auto& entry : byName) {
    rows.push_back(std::move(entry.second));
  }
  std::stable_sort(rows.begin(), rows.end(), [](const Row& a, const Row& b) { return a.total > b.total; });

  size_t nameWidth = 6;
  for (const Row& row : rows) {
    nameWidth = std::max(nameWidth, row.name.size());
  }
  // Names go in apart from the numbers: they may be longer than the line buffer.
  std::string table = "Region";
  table.append(nameWidth - table.size(), ' ');
  char line[128];
  std::snprintf(line, sizeof(line), " %12s %12s %12s %12s %12s\n", "Calls", "Total ms", "Mean us", "Min us",
                "Max us");
  table += line;
  for (const Row& row : rows) {
    const double mean = row.calls > 0 ? static_cast<double>(row.total) / static_cast<double>(row.calls) : 0.0;
    const double min = row.calls > 0 ? static_cast<double>(row.min) : 0.0;
    table += row.name;
    table.append(nameWidth - row.name.size(), ' ');
    std::snprintf(line, sizeof(line), " %12llu %12.3f %12.3f %12.3f %12.3f\n",
                  static_cast<unsigned long long>(row.calls), static_cast<double>(row.total) / 1e6,
                  mean / 1e3, min / 1e3, static_cast<double>(row.max) / 1e3);
    table += line;
  }
  return table;
}

void CodeProfilerManager::Reset() {
  std::lock_guard lock(mMutex);
  for (const auto& log : mLogs) {
    log->Reset();
  }
}

}  // namespace kivcore::debug
