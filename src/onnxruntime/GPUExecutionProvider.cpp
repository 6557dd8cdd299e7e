#include "onnxruntime/GPUExecutionProvider.h"

#include "onnxruntime/DMLSetupException.h"
#include "onnxruntime/ORTApi.h"

namespace kivml::ort {

namespace {

// Where custom operator domains would be added to GPU sessions; no session of this library uses any.
void AddCustomOperatorDomains(OrtSessionOptions* /*options*/) {}

}  // namespace

void GPUExecutionProvider::Append(OrtSessionOptions* options, SessionSettings& settings) const {
  AppendProvider(options);
  // GPU providers allocate their own buffers; the CPU memory pattern planner only gets in their way (the
  // DirectML provider requires it off).
  ThrowIfFailed(Api().DisableMemPattern(options));
  settings.memoryPattern = false;
  ThrowIfFailed(Api().SetSessionExecutionMode(options, ORT_SEQUENTIAL));
  settings.executionMode = ORT_SEQUENTIAL;
  AddCustomOperatorDomains(options);
}

bool GPUExecutionProvider::IsSetupFailure(const std::exception_ptr& failure) const {
  if (!failure) {
    return false;
  }
  try {
    std::rethrow_exception(failure);
  } catch (const DMLSetupException&) {
    return true;
  } catch (const Ort::Exception&) {
    return true;
  } catch (...) {
    return false;
  }
}

}  // namespace kivml::ort
