#include "CalculateOptimalBatchSize.h"

#include <algorithm>
#include <limits>
#include <mutex>
#include <optional>

#include "WholeNumberSetting.h"
#include "kivcore/debug/DebugDatabase.h"
#include "kivml/ITensorFeatureDescription.h"
#include "kivml/Settings.h"
#include "kivml/utility/TensorLayout.h"

namespace kivml {

namespace {

constexpr uint64_t kDefaultMultiplier = 16;
constexpr uint64_t kRowGranule = 8;

}  // namespace

uint64_t GetBatchSizeMultiplier() {
  static std::mutex mutex;
  static uint64_t cachedChangeCount = std::numeric_limits<uint64_t>::max();
  static uint64_t cachedMultiplier = kDefaultMultiplier;

  auto& database = kivcore::debug::DebugDatabase::Instance();
  std::lock_guard lock(mutex);
  // Read the count first: a change racing with the read below then only causes one more read later.
  const uint64_t changeCount = database.GetChangeCount();
  if (changeCount != cachedChangeCount) {
    const std::optional<uint64_t> multiplier = ReadWholeNumberSetting(settings::kBatchSizeMultiplier.key);
    cachedMultiplier = multiplier && *multiplier != 0 ? *multiplier : kDefaultMultiplier;
    cachedChangeCount = changeCount;
  }
  return cachedMultiplier;
}

size_t CalculateOptimalBatchSize(size_t memoryAllowance, const FeatureDescriptionVector& descriptions) {
  const uint64_t multiplier = GetBatchSizeMultiplier();
  if (memoryAllowance == 0) {
    return kRowGranule;
  }
  uint64_t rowBytes = 0;
  for (const auto& description : descriptions) {
    rowBytes += utility::CalculateTensorFeatureSize(description.Query<ITensorFeatureDescription>());
  }
  rowBytes = std::max<uint64_t>(rowBytes, 1);

  uint64_t rows = memoryAllowance / rowBytes;
  rows = rows > std::numeric_limits<uint64_t>::max() - (kRowGranule - 1)
             ? std::numeric_limits<uint64_t>::max() & ~(kRowGranule - 1)
             : (rows + kRowGranule - 1) & ~(kRowGranule - 1);
  const uint64_t cap = multiplier > std::numeric_limits<uint64_t>::max() / kRowGranule
                           ? std::numeric_limits<uint64_t>::max()
                           : multiplier * kRowGranule;
  return static_cast<size_t>(std::min(std::max(rows, kRowGranule), cap));
}

}  // namespace kivml
