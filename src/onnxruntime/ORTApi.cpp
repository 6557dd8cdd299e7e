#include "onnxruntime/ORTApi.h"

#include <string>

#include "kivcore/config/ResultCodes.h"
#include "kivcore/config/kiv_exception.h"

namespace kivml::ort {

namespace {

constexpr uint32_t kApiVersion = 16;

const OrtApi* LoadApi() {
  const OrtApi* api = OrtGetApiBase()->GetApi(kApiVersion);
  if (api == nullptr) {
    throw kivcore::kiv_exception("ONNX Runtime does not serve API version 16",
                                 kivcore::config::eUnexpectedException);
  }
  return api;
}

}  // namespace

const OrtApi& Api() {
  static const OrtApi* const api = LoadApi();
  return *api;
}

void ThrowIfFailed(OrtStatus* status) {
  if (status == nullptr) {
    return;
  }
  const OrtApi& api = Api();
  const OrtErrorCode code = api.GetErrorCode(status);
  std::string message = api.GetErrorMessage(status);
  api.ReleaseStatus(status);
  throw Ort::Exception(std::move(message), code);
}

OrtAllocator* DefaultAllocator() {
  OrtAllocator* allocator = nullptr;
  ThrowIfFailed(Api().GetAllocatorWithDefaultOptions(&allocator));
  return allocator;
}

AllocatedString::~AllocatedString() {
  if (text != nullptr) {
    allocator->Free(allocator, text);
  }
}

}  // namespace kivml::ort
