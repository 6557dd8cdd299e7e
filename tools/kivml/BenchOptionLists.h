#pragma once
// The comma-separated lists `kivml bench` takes (--concurrency 1,8,32, --lanes 1,auto). Split here rather
// than by CLI11, which drops empty items ("1,,4") without a word. Each argument may hold several items,
// and the option may be given more than once; the items keep their order.

#include <cstddef>
#include <string>
#include <vector>

namespace kivml::cli {

class BenchOptionLists {
 public:
  static constexpr size_t kMostClients = 4096;
  // Each lane is a worker thread of the evaluator's own.
  static constexpr unsigned kMostLanes = 256;

  // Client thread counts. Throws CLI::ValidationError for an empty item, an item that is not a whole
  // number from 1 to kMostClients, or a count given twice.
  static std::vector<size_t> Concurrency(const std::vector<std::string>& arguments);
  // Lane counts: whole numbers from 1 to kMostLanes, or "auto" or 0 for kFitMachineLanes. Throws
  // CLI::ValidationError for an empty item, any other item, or a count given twice.
  static std::vector<unsigned> Lanes(const std::vector<std::string>& arguments);
};

}  // namespace kivml::cli
