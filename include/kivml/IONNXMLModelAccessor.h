#pragma once

#include <memory>

#include "kivcore/allocator/RecycledMemory.h"
#include "kivcore/classref/UnknownBase.h"

namespace kivml {

// The ONNX payload of a model. Deciphering an enciphered payload is the accessor's business: the bytes it
// returns are a plain ONNX model.
class IONNXMLModelAccessor : public kivcore::classref::Unknown {
 public:
  static constexpr kivcore::utility::Guid kIID{"F0E0F208-2FCF-4E91-994E-0A0278EB454C", 36};

  virtual std::shared_ptr<kivcore::allocator::RecycledMemory> GetONNXMLModel() const = 0;
  // Whether the model is to run on the GPU (the evaluator falls back to the CPU when that fails).
  virtual bool ShouldEvaluateOnGPU() const = 0;
};

}  // namespace kivml
