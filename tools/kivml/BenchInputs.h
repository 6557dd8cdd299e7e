#pragma once
// The inputs `kivml bench` sends: shapes taken from the model, with the batch dimension at one row per
// request and every other free dimension from --dim (by its symbolic name or as INPUT:AXIS) or a default;
// values drawn at random (uniform in [0, 1) for floats, small integers, random bools).

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "RawOrtSession.h"
#include "kivcore/utility/Guid.h"
#include "kivml/IMLEvaluator.h"

namespace kivml::cli {

class ModelSignature;

struct BenchInput {
  std::string name;
  kivcore::utility::Guid elementType;
  std::string typeName;
  size_t elementSize = 0;
  std::vector<int64_t> shape;  // one request's
  bool batchAxis = false;      // the leading dimension is the batch
};

// How a free dimension got its size.
struct ResolvedDim {
  std::string input;
  size_t axis = 0;
  std::string symbol;  // empty when the model names none
  int64_t size = 0;
  std::string source;  // "--dim x:2", "--dim H", "default"
};

// `rows` requests joined along the batch axis, for ONNX Runtime: the values read from `data`.
struct RawBatch {
  std::vector<std::vector<std::byte>> data;
  std::vector<Ort::Value> values;
};

class BenchInputs {
 public:
  static constexpr int64_t kDefaultFreeDimension = 32;

  // `dims` holds the --dim arguments; throws ToolError for one that is malformed, names nothing or names
  // a dimension that is not free, or when an input would need more bytes than 64 bits count.
  BenchInputs(const ModelSignature& signature, const std::vector<std::string>& dims);

  const std::vector<BenchInput>& Inputs() const { return mInputs; }
  const std::vector<ResolvedDim>& FreeDims() const { return mFreeDims; }

  // One request over fresh random values. Throws ToolError naming the input and the bytes asked for when
  // memory cannot hold them.
  utility::FeatureContainerVector MakeRequest(uint64_t seed) const;
  // `rows` requests' worth of fresh random values in one batch, in the model's input order; throws as
  // MakeRequest does.
  RawBatch MakeRawBatch(size_t rows, uint64_t seed) const;

 private:
  std::vector<BenchInput> mInputs;
  std::vector<ResolvedDim> mFreeDims;
};

}  // namespace kivml::cli
