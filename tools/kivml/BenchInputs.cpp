#include "BenchInputs.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <limits>
#include <map>
#include <new>
#include <numeric>
#include <optional>
#include <random>
#include <stdexcept>

#include "Formatting.h"
#include "ModelSignature.h"
#include "ToolError.h"
#include "kivcore/allocator/RecycledMemory.h"
#include "kivml/utility/TensorFactories.h"

namespace kivml::cli {

namespace {

struct DimSetting {
  std::string key;
  int64_t size = 0;
  bool used = false;
};

DimSetting ParseDim(const std::string& argument) {
  const size_t equals = argument.find('=');
  DimSetting setting;
  setting.key = argument.substr(0, equals);
  const std::string value = equals == std::string::npos ? "" : argument.substr(equals + 1);
  size_t parsed = 0;
  try {
    setting.size = std::stoll(value, &parsed);
  } catch (const std::exception&) {
    parsed = 0;
  }
  if (setting.key.empty() || value.empty() || parsed != value.size() || setting.size <= 0) {
    throw ToolError("--dim '" + argument + "': expected NAME=SIZE or INPUT:AXIS=SIZE with a positive SIZE");
  }
  return setting;
}

// "x:2" for input x, axis 2; nullopt when `key` is not of that form for an input of the model.
std::optional<std::pair<const FeatureSignature*, size_t>> AsInputAxis(const ModelSignature& signature,
                                                                      const std::string& key) {
  const size_t colon = key.rfind(':');
  if (colon == std::string::npos || colon + 1 == key.size() ||
      key.find_first_not_of("0123456789", colon + 1) != std::string::npos) {
    return std::nullopt;
  }
  const FeatureSignature* input = signature.FindInput(std::string_view(key).substr(0, colon));
  if (input == nullptr) {
    throw ToolError("--dim " + key + ": the model has no input '" + key.substr(0, colon) +
                    "' (its inputs: " + signature.InputNames() + ")");
  }
  return std::pair(input, static_cast<size_t>(std::stoull(key.substr(colon + 1))));
}

void CheckFree(const FeatureSignature& input, size_t axis, const std::string& key) {
  if (axis >= input.requestShape.size()) {
    throw ToolError("--dim " + key + ": input '" + input.name + "' has " +
                    std::to_string(input.requestShape.size()) + " dimensions");
  }
  if (axis == 0 && input.batchAxis) {
    throw ToolError("--dim " + key + ": that is the batch dimension, one row per request");
  }
  if (input.requestShape[axis] >= 0) {
    throw ToolError("--dim " + key + ": the model fixes that dimension at " +
                    std::to_string(input.requestShape[axis]));
  }
}

void FillRandom(std::byte* data, size_t count, const kivcore::utility::Guid& type, std::mt19937_64& random) {
  const auto fill = [&](auto* values, auto&& draw) {
    std::generate(values, values + count, [&] { return draw(random); });
  };
  std::uniform_int_distribution<int> smallInts(0, 7);
  if (type == features::kFloat32TensorFeatureType) {
    fill(reinterpret_cast<float*>(data), std::uniform_real_distribution<float>(0.0F, 1.0F));
  } else if (type == features::kDoubleTensorFeatureType) {
    fill(reinterpret_cast<double*>(data), std::uniform_real_distribution<double>(0.0, 1.0));
  } else if (type == features::kInt32TensorFeatureType) {
    fill(reinterpret_cast<int32_t*>(data),
         [&](auto& engine) { return static_cast<int32_t>(smallInts(engine)); });
  } else if (type == features::kInt64TensorFeatureType) {
    fill(reinterpret_cast<int64_t*>(data),
         [&](auto& engine) { return static_cast<int64_t>(smallInts(engine)); });
  } else {
    fill(reinterpret_cast<uint8_t*>(data), [](auto& engine) { return static_cast<uint8_t>(engine() & 1U); });
  }
}

size_t ElementCount(const std::vector<int64_t>& shape) {
  return std::accumulate(shape.begin(), shape.end(), size_t{1},
                         [](size_t product, int64_t size) { return product * static_cast<size_t>(size); });
}

// The bytes of `shape` of the input's elements; nothing when they do not fit 64 bits (--dim sizes can be
// anything).
std::optional<size_t> CheckedBytes(const BenchInput& input, const std::vector<int64_t>& shape) {
  size_t bytes = input.elementSize;
  for (const int64_t size : shape) {
    const auto factor = static_cast<size_t>(size);
    if (factor != 0 && bytes > std::numeric_limits<size_t>::max() / factor) {
      return std::nullopt;
    }
    bytes *= factor;
  }
  return bytes;
}

// `need` says how many bytes, and why that is too many.
[[noreturn]] void ThrowTooLarge(const BenchInput& input, const std::vector<int64_t>& shape,
                                const std::string& need) {
  throw ToolError("input '" + input.name + "': " + FormatShape(shape) + " of " + input.typeName + " needs " +
                  need);
}

// Memory for `shape` of the input, which the caller has checked fits 64 bits.
template <class Allocate>
auto AllocateFor(const BenchInput& input, const std::vector<int64_t>& shape, const Allocate& allocate) {
  const size_t bytes = *CheckedBytes(input, shape);
  try {
    return allocate(std::max<size_t>(bytes, 1));
  } catch (const std::bad_alloc&) {
    ThrowTooLarge(input, shape, std::to_string(bytes) + " bytes, more than could be allocated");
  } catch (const std::length_error&) {
    ThrowTooLarge(input, shape, std::to_string(bytes) + " bytes, more than could be allocated");
  }
}

}  // namespace

BenchInputs::BenchInputs(const ModelSignature& signature, const std::vector<std::string>& dims) {
  std::vector<DimSetting> settings;
  std::map<std::pair<std::string, size_t>, size_t> byAxis;  // (input, axis) -> setting
  std::map<std::string, size_t> bySymbol;
  for (const std::string& argument : dims) {
    DimSetting setting = ParseDim(argument);
    if (const auto axis = AsInputAxis(signature, setting.key)) {
      CheckFree(*axis->first, axis->second, setting.key);
      byAxis[{axis->first->name, axis->second}] = settings.size();
    } else {
      bySymbol[setting.key] = settings.size();
    }
    settings.push_back(std::move(setting));
  }

  for (const FeatureSignature& input : signature.Inputs()) {
    BenchInput bench{input.name, input.elementType, input.typeName, ElementSize(input.elementType),
                     {},         input.batchAxis};
    for (size_t axis = 0; axis < input.requestShape.size(); ++axis) {
      if (input.requestShape[axis] >= 0) {
        bench.shape.push_back(input.requestShape[axis]);
        continue;
      }
      const std::string symbol = axis < input.symbols.size() ? input.symbols[axis] : "";
      ResolvedDim resolved{input.name, axis, symbol, kDefaultFreeDimension, "default"};
      const auto explicitAxis = byAxis.find({input.name, axis});
      const auto named = resolved.symbol.empty() ? bySymbol.end() : bySymbol.find(resolved.symbol);
      const size_t chosen = explicitAxis != byAxis.end() ? explicitAxis->second
                            : named != bySymbol.end()    ? named->second
                                                         : settings.size();
      if (chosen < settings.size()) {
        settings[chosen].used = true;
        resolved.size = settings[chosen].size;
        resolved.source = "--dim " + settings[chosen].key;
      }
      bench.shape.push_back(resolved.size);
      mFreeDims.push_back(std::move(resolved));
    }
    if (!CheckedBytes(bench, bench.shape)) {
      ThrowTooLarge(bench, bench.shape, "more bytes than 64 bits count");
    }
    mInputs.push_back(std::move(bench));
  }

  for (const DimSetting& setting : settings) {
    const auto isBatch = [&](const FeatureSignature& input) {
      return input.batchAxis && input.symbols.front() == setting.key;
    };
    if (!setting.used && std::any_of(signature.Inputs().begin(), signature.Inputs().end(), isBatch)) {
      throw ToolError("--dim " + setting.key + ": that is the batch dimension, one row per request");
    }
    if (!setting.used) {
      std::string named;
      for (const ResolvedDim& dim : mFreeDims) {
        if (!dim.symbol.empty() && named.find(dim.symbol) == std::string::npos) {
          named += (named.empty() ? "" : ", ") + dim.symbol;
        }
      }
      throw ToolError("--dim " + setting.key + ": no free dimension has that name (" +
                      (named.empty() ? std::string("the model names none") : "named: " + named) +
                      "; INPUT:AXIS names any)");
    }
  }
}

utility::FeatureContainerVector BenchInputs::MakeRequest(uint64_t seed) const {
  std::mt19937_64 random(seed);
  utility::FeatureContainerVector request;
  for (const BenchInput& input : mInputs) {
    const size_t count = ElementCount(input.shape);
    auto memory = AllocateFor(input, input.shape,
                              [](size_t bytes) { return kivcore::allocator::RecycledMemory::Create(bytes); });
    FillRandom(reinterpret_cast<std::byte*>(memory->Buffer()), count, input.elementType, random);
    ShapeType shape(input.shape.begin(), input.shape.end());
    request.push_back({kivcore::utility::ImmutableString::Create(input.name),
                       utility::CreatePackedTensor(std::move(memory), input.elementSize, std::move(shape))});
  }
  return request;
}

RawBatch BenchInputs::MakeRawBatch(size_t rows, uint64_t seed) const {
  std::mt19937_64 random(seed);
  RawBatch batch;
  for (const BenchInput& input : mInputs) {
    std::vector<int64_t> shape = input.shape;
    if (input.batchAxis) {
      shape.front() = static_cast<int64_t>(rows);
    }
    if (!CheckedBytes(input, shape)) {
      ThrowTooLarge(input, shape, "more bytes than 64 bits count");
    }
    const size_t count = ElementCount(shape);
    auto& data = batch.data.emplace_back(
        AllocateFor(input, shape, [](size_t bytes) { return std::vector<std::byte>(bytes); }));
    FillRandom(data.data(), count, input.elementType, random);
    batch.values.push_back(RawOrtSession::WrapTensor(data.data(), count * input.elementSize, shape,
                                                     RawOrtSession::ToOnnxElementType(input.elementType)));
  }
  return batch;
}

}  // namespace kivml::cli
