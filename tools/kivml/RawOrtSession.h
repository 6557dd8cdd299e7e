#pragma once
// ONNX Runtime on its own, without the library's evaluator: reads a model's interface as declared (with
// the symbolic names of free dimensions, which the library's descriptions do not carry) and runs the
// references that `kivml bench` measures the library against. It shares the process's ONNX Runtime
// environment, which the library's initializers create with global thread pools: sessions with the
// library's options run on those threads, sessions with ONNX Runtime's default options on pools of their
// own. The library's options come from the library itself (ConfigureReferenceSessionOptions), so that
// they cannot drift from an evaluator's.
//
// Run may be called from several threads at once on one session, as ONNX Runtime allows.

#include <onnxruntime_cxx_api.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "kivcore/utility/Guid.h"
#include "onnxruntime/SessionSettings.h"

namespace kivml::cli {

// One input or output as the model declares it.
struct RawFeature {
  std::string name;
  ONNXTensorElementDataType elementType = ONNX_TENSOR_ELEMENT_DATA_TYPE_UNDEFINED;
  std::vector<int64_t> dims;         // -1 for a free dimension
  std::vector<std::string> symbols;  // the dimension's name; empty when it has none
};

class RawOrtSession {
 public:
  // For reading the interface only: the graph is loaded but not optimised.
  static RawOrtSession ForDescription(const std::filesystem::path& model);
  // With the options the library gives an evaluator's session of `batchSize` (every dimension denoted
  // DATA_BATCH fixed at it), on the platform's GPU provider when `gpu`, else on the CPU.
  static RawOrtSession ForInference(const std::filesystem::path& model, int64_t batchSize, bool gpu);
  // As a host would write it by hand: ONNX Runtime's default options untouched, on the CPU. Without
  // DisablePerSessionThreads the session runs on intra-op threads of its own, even in an environment with
  // global thread pools; its batch dimension stays free.
  static RawOrtSession WithDefaultOptions(const std::filesystem::path& model);
  // Not movable: the names handed to Run point into the features.
  RawOrtSession(RawOrtSession&&) = delete;
  RawOrtSession& operator=(RawOrtSession&&) = delete;

  const std::vector<RawFeature>& Inputs() const { return mInputs; }
  const std::vector<RawFeature>& Outputs() const { return mOutputs; }
  // What the library set in the session's options; none for the other sessions.
  const std::optional<ort::SessionSettings>& LibrarySettings() const { return mLibrarySettings; }

  // Runs the model on one value per input, in Inputs() order; the outputs are dropped.
  void Run(const std::vector<Ort::Value>& inputs);

  // A CPU tensor over `data`, which must outlive the value.
  static Ort::Value WrapTensor(void* data, size_t bytes, const std::vector<int64_t>& shape,
                               ONNXTensorElementDataType type);
  // ONNX Runtime's element type for one of the library's; UNDEFINED for anything else.
  static ONNXTensorElementDataType ToOnnxElementType(const kivcore::utility::Guid& elementType);
  // The NumPy-style name of an ONNX element type ("float16"), for types the library cannot carry.
  static std::string OnnxElementTypeName(ONNXTensorElementDataType type);

 private:
  RawOrtSession(const std::filesystem::path& model, const Ort::SessionOptions& options,
                std::optional<ort::SessionSettings> librarySettings = std::nullopt);
  static Ort::Env SharedEnvironment();

  Ort::Env mEnvironment;  // a reference on the process's environment, held while the session lives
  Ort::Session mSession;
  std::vector<RawFeature> mInputs;
  std::vector<RawFeature> mOutputs;
  std::optional<ort::SessionSettings> mLibrarySettings;
  std::vector<const char*> mInputNames;  // into mInputs, for Run
  std::vector<const char*> mOutputNames;
};

}  // namespace kivml::cli
