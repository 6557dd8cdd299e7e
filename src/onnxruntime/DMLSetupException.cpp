#include "onnxruntime/DMLSetupException.h"

namespace kivml::ort {

DMLSetupException::DMLSetupException() : DMLSetupException(kNoSuitableAdapter) {}

DMLSetupException::DMLSetupException(int result) : kiv_exception("DML setup exception", result) {}

}  // namespace kivml::ort
