#include "onnxruntime/PredictException.h"

namespace kivml::ort {

PredictException::PredictException(int result) : kiv_exception("Exception in Predict() chain.", result) {}

}  // namespace kivml::ort
