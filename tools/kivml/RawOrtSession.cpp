#include "RawOrtSession.h"

#include <mutex>

#include "ToolError.h"
#include "kivml/TensorFeatureTypes.h"
#include "onnxruntime/ConfigureReferenceSessionOptions.h"

namespace kivml::cli {

namespace {

// The library binds this version too; ONNX Runtime's C++ header is newer than what we ask of it.
constexpr uint32_t kApiVersion = 16;

std::vector<RawFeature> Describe(const Ort::Session& session, bool inputs) {
  Ort::AllocatorWithDefaultOptions allocator;
  const size_t count = inputs ? session.GetInputCount() : session.GetOutputCount();
  std::vector<RawFeature> features(count);
  for (size_t i = 0; i < count; ++i) {
    RawFeature& feature = features[i];
    feature.name =
        (inputs ? session.GetInputNameAllocated(i, allocator) : session.GetOutputNameAllocated(i, allocator))
            .get();
    const Ort::TypeInfo type = inputs ? session.GetInputTypeInfo(i) : session.GetOutputTypeInfo(i);
    if (type.GetONNXType() != ONNX_TYPE_TENSOR) {
      continue;  // sequences and maps keep an undefined element type and no shape
    }
    const auto tensor = type.GetTensorTypeAndShapeInfo();
    feature.elementType = tensor.GetElementType();
    feature.dims = tensor.GetShape();
    for (const char* symbol : tensor.GetSymbolicDimensions()) {
      feature.symbols.emplace_back(symbol != nullptr ? symbol : "");
    }
  }
  return features;
}

}  // namespace

Ort::Env RawOrtSession::SharedEnvironment() {
  static std::once_flag initialised;
  static const OrtApi* api = nullptr;
  std::call_once(initialised, [] {
    api = OrtGetApiBase()->GetApi(kApiVersion);
    if (api != nullptr) {
      Ort::InitApi(api);
    }
  });
  if (api == nullptr) {
    throw ToolError("the loaded ONNX Runtime (" + std::string(OrtGetApiBase()->GetVersionString()) +
                    ") does not serve API version " + std::to_string(kApiVersion));
  }
  // The environment is a process singleton: this takes a reference on the library's.
  return Ort::Env();
}

RawOrtSession::RawOrtSession(const std::filesystem::path& model, const Ort::SessionOptions& options,
                             std::optional<ort::SessionSettings> librarySettings)
    : mEnvironment(SharedEnvironment()), mSession(nullptr), mLibrarySettings(std::move(librarySettings)) {
  try {
    mSession = Ort::Session(mEnvironment, model.c_str(), options);
    mInputs = Describe(mSession, true);
    mOutputs = Describe(mSession, false);
  } catch (const Ort::Exception& exception) {
    throw ToolError("ONNX Runtime cannot load '" + model.string() + "': " + exception.what());
  }
  for (const RawFeature& input : mInputs) {
    mInputNames.push_back(input.name.c_str());
  }
  for (const RawFeature& output : mOutputs) {
    mOutputNames.push_back(output.name.c_str());
  }
}

RawOrtSession RawOrtSession::ForDescription(const std::filesystem::path& model) {
  SharedEnvironment();  // the API must be bound before any wrapper is made
  Ort::SessionOptions options;
  options.DisablePerSessionThreads();
  options.SetGraphOptimizationLevel(ORT_DISABLE_ALL);
  return RawOrtSession(model, options);
}

RawOrtSession RawOrtSession::ForInference(const std::filesystem::path& model, int64_t batchSize, bool gpu) {
  SharedEnvironment();
  Ort::SessionOptions options;
  ort::SessionSettings settings;
  try {
    settings = tool::ConfigureReferenceSessionOptions(options, batchSize, gpu);
  } catch (const std::exception& exception) {
    throw ToolError(std::string("the library's session options for raw ONNX Runtime") +
                    (gpu ? " on the GPU" : "") + " cannot be set up: " + exception.what());
  }
  return RawOrtSession(model, options, settings);
}

RawOrtSession RawOrtSession::WithDefaultOptions(const std::filesystem::path& model) {
  SharedEnvironment();
  return RawOrtSession(model, Ort::SessionOptions());
}

void RawOrtSession::Run(const std::vector<Ort::Value>& inputs) {
  mSession.Run(Ort::RunOptions(nullptr), mInputNames.data(), inputs.data(), inputs.size(),
               mOutputNames.data(), mOutputNames.size());
}

Ort::Value RawOrtSession::WrapTensor(void* data, size_t bytes, const std::vector<int64_t>& shape,
                                     ONNXTensorElementDataType type) {
  const auto memory = Ort::MemoryInfo::CreateCpu(OrtArenaAllocator, OrtMemTypeDefault);
  return Ort::Value::CreateTensor(memory, data, bytes, shape.data(), shape.size(), type);
}

ONNXTensorElementDataType RawOrtSession::ToOnnxElementType(const kivcore::utility::Guid& elementType) {
  if (elementType == features::kFloat32TensorFeatureType) {
    return ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT;
  }
  if (elementType == features::kDoubleTensorFeatureType) {
    return ONNX_TENSOR_ELEMENT_DATA_TYPE_DOUBLE;
  }
  if (elementType == features::kInt32TensorFeatureType) {
    return ONNX_TENSOR_ELEMENT_DATA_TYPE_INT32;
  }
  if (elementType == features::kInt64TensorFeatureType) {
    return ONNX_TENSOR_ELEMENT_DATA_TYPE_INT64;
  }
  if (elementType == features::kBoolTensorFeatureType) {
    return ONNX_TENSOR_ELEMENT_DATA_TYPE_BOOL;
  }
  return ONNX_TENSOR_ELEMENT_DATA_TYPE_UNDEFINED;
}

std::string RawOrtSession::OnnxElementTypeName(ONNXTensorElementDataType type) {
  switch (type) {
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT:
      return "float32";
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_UINT8:
      return "uint8";
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_INT8:
      return "int8";
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_UINT16:
      return "uint16";
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_INT16:
      return "int16";
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_INT32:
      return "int32";
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_INT64:
      return "int64";
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_STRING:
      return "string";
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_BOOL:
      return "bool";
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT16:
      return "float16";
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_DOUBLE:
      return "float64";
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_UINT32:
      return "uint32";
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_UINT64:
      return "uint64";
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_BFLOAT16:
      return "bfloat16";
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_UNDEFINED:
      return "not a tensor";
    default:
      return "ONNX type " + std::to_string(static_cast<int>(type));
  }
}

}  // namespace kivml::cli
