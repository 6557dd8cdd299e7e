#pragma once
// The ONNX Runtime function table this module uses, and the check every call's status goes through.
// ONNX Runtime's own exception type (Ort::Exception) carries failures: hosts that use ONNX Runtime's C++
// interface already know it, and kivml turns it into eInferenceFailure where a result code is needed.

#include <onnxruntime_c_api.h>

// Only the exception type of the C++ interface is used; its wrappers would bind a newer table. The kivml
// tool, whose sources may include this header, defines the macro for all of them.
#ifdef ORT_API_MANUAL_INIT
#include <onnxruntime_cxx_api.h>
#else
#define ORT_API_MANUAL_INIT
#include <onnxruntime_cxx_api.h>
#undef ORT_API_MANUAL_INIT
#endif

#include <memory>
#include <utility>

namespace kivml::ort {

// The table of API version 16, fetched once per module.
const OrtApi& Api();

// Throws Ort::Exception with the status's code and message when `status` is not null (it is released).
void ThrowIfFailed(OrtStatus* status);

// Owning handles for ONNX Runtime objects, released with their Release function.
template <class T, void (ORT_API_CALL* OrtApi::*Release)(T*)>
struct OrtReleaser {
  void operator()(T* object) const noexcept {
    if (object != nullptr) {
      (Api().*Release)(object);
    }
  }
};

using UniqueTypeInfo = std::unique_ptr<OrtTypeInfo, OrtReleaser<OrtTypeInfo, &OrtApi::ReleaseTypeInfo>>;
using UniqueTensorInfo =
    std::unique_ptr<OrtTensorTypeAndShapeInfo,
                    OrtReleaser<OrtTensorTypeAndShapeInfo, &OrtApi::ReleaseTensorTypeAndShapeInfo>>;
using UniqueValue = std::unique_ptr<OrtValue, OrtReleaser<OrtValue, &OrtApi::ReleaseValue>>;
using UniqueSessionOptions =
    std::unique_ptr<OrtSessionOptions, OrtReleaser<OrtSessionOptions, &OrtApi::ReleaseSessionOptions>>;
using UniqueSession = std::unique_ptr<OrtSession, OrtReleaser<OrtSession, &OrtApi::ReleaseSession>>;
using UniqueRunOptions =
    std::unique_ptr<OrtRunOptions, OrtReleaser<OrtRunOptions, &OrtApi::ReleaseRunOptions>>;
using UniqueModelMetadata =
    std::unique_ptr<OrtModelMetadata, OrtReleaser<OrtModelMetadata, &OrtApi::ReleaseModelMetadata>>;

// The default CPU allocator of ONNX Runtime.
OrtAllocator* DefaultAllocator();

// A string ONNX Runtime allocated with `allocator`, freed with it.
struct AllocatedString {
  OrtAllocator* allocator = nullptr;
  char* text = nullptr;
  AllocatedString() = default;
  AllocatedString(OrtAllocator* owner, char* value) noexcept : allocator(owner), text(value) {}
  AllocatedString(AllocatedString&& other) noexcept
      : allocator(other.allocator), text(std::exchange(other.text, nullptr)) {}
  AllocatedString(const AllocatedString&) = delete;
  AllocatedString& operator=(const AllocatedString&) = delete;
  AllocatedString& operator=(AllocatedString&&) = delete;
  ~AllocatedString();
};

}  // namespace kivml::ort
