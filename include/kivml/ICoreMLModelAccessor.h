#pragma once

#include <memory>

#include "kivcore/allocator/RecycledMemory.h"
#include "kivcore/classref/UnknownBase.h"
#include "kivcore/filesupport/Dir.h"

namespace kivml {

// The Core ML payload of a model: a compiled model directory or the model in memory.
class ICoreMLModelAccessor : public kivcore::classref::Unknown {
 public:
  static constexpr kivcore::utility::Guid kIID{"18E3FD01-6163-4C4F-8266-5FBDF61EF316", 36};

  virtual kivcore::filesupport::Dir GetCoreMLModelFile() const = 0;
  virtual std::shared_ptr<const kivcore::allocator::RecycledMemory> GetCoreMLModelBuffer() const = 0;
};

}  // namespace kivml
