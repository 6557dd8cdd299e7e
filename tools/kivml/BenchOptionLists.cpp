#include "BenchOptionLists.h"

#include <boost/algorithm/string/split.hpp>

#include <functional>
#include <set>

#include "CLI11Include.h"
#include "WholeNumberValidator.h"
#include "kivml/EvaluatorOptions.h"

namespace kivml::cli {

namespace {

// The items of every argument, each turned into a number by `read`, which returns CLI11's kind of error
// text ("" when the item is fine); `name` shows a number in messages.
template <class Number>
std::vector<Number> ParseList(const std::string& option, const std::vector<std::string>& arguments,
                              const std::function<std::string(const std::string& item, Number& value)>& read,
                              const std::function<std::string(Number value)>& name) {
  std::vector<Number> values;
  std::set<Number> seen;
  for (const std::string& argument : arguments) {
    std::vector<std::string> items;
    boost::algorithm::split(items, argument, [](char c) { return c == ','; });
    for (const std::string& item : items) {
      if (item.empty()) {
        throw CLI::ValidationError(option, "'" + argument + "' has an empty item");
      }
      Number value{};
      if (const std::string error = read(item, value); !error.empty()) {
        throw CLI::ValidationError(option, error);
      }
      if (!seen.insert(value).second) {
        throw CLI::ValidationError(option, name(value) + " is given twice");
      }
      values.push_back(value);
    }
  }
  return values;
}

// A whole number within [least, most]; CLI11's message otherwise.
template <class Number>
std::string ReadCount(const std::string& item, Number least, Number most, Number& value) {
  std::string text = item;  // the validators may rewrite what they check
  std::string error = WholeNumberValidator()(text);
  if (error.empty()) {
    error = CLI::Range(least, most)(text);
  }
  if (error.empty()) {
    value = static_cast<Number>(std::stoull(text));
  }
  return error;
}

}  // namespace

std::vector<size_t> BenchOptionLists::Concurrency(const std::vector<std::string>& arguments) {
  return ParseList<size_t>(
      "--concurrency", arguments,
      [](const std::string& item, size_t& value) { return ReadCount<size_t>(item, 1, kMostClients, value); },
      [](size_t value) { return std::to_string(value); });
}

std::vector<unsigned> BenchOptionLists::Lanes(const std::vector<std::string>& arguments) {
  return ParseList<unsigned>(
      "--lanes", arguments,
      [](const std::string& item, unsigned& value) {
        if (item == "auto") {
          value = kFitMachineLanes;
          return std::string();
        }
        const std::string error = ReadCount<unsigned>(item, 0, kMostLanes, value);
        return error.empty() ? error : error + " (or auto, the machine's fit)";
      },
      [](unsigned value) { return value == kFitMachineLanes ? std::string("auto") : std::to_string(value); });
}

}  // namespace kivml::cli
