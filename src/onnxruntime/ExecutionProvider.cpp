#include "onnxruntime/ExecutionProvider.h"

#include "ExitBarrier.h"

namespace kivml::ort {

void ExecutionProvider::WaitForWorkersAtExit() const {
  std::call_once(mExitWaitRegistered, ExitBarrier::WaitAtExit);
}

}  // namespace kivml::ort
