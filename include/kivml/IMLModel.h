#pragma once
// A model as the host presents it. A model object also implements one or both payload accessors
// (IONNXMLModelAccessor, ICoreMLModelAccessor). None of these operations fail: an empty description list
// or a false batching answer are answers, and the evaluator decides what they mean.
// Slot order is part of the contract.

#include <array>
#include <cstdint>
#include <vector>

#include "kivcore/allocator/STLAllocator.h"
#include "kivcore/classref/InterfaceRef.h"
#include "kivcore/utility/ImmutableString.h"
#include "kivml/IFeatureDescription.h"

namespace kivml {

using FeatureDescriptionVector =
    std::vector<kivcore::classref::InterfaceRef<IFeatureDescription>,
                kivcore::allocator::STLAllocator<kivcore::classref::InterfaceRef<IFeatureDescription>>>;

class IMLModel : public kivcore::classref::Unknown {
 public:
  static constexpr kivcore::utility::Guid kIID{"0A609101-F2F5-446C-B9D0-253FB0AAA20E", 36};

  // Display name; used in log lines and to name the evaluator's worker thread.
  virtual kivcore::utility::ImmutableString GetName() const = 0;
  virtual bool IsEncrypted() const = 0;
  // Meaningful only when IsEncrypted(); the library never stores or derives the key itself.
  virtual std::array<uint8_t, 16> GetEncryptionKey() const = 0;
  // One description per model input, in the model's input order.
  virtual FeatureDescriptionVector GetInputFeatureDescriptions() const = 0;
  virtual FeatureDescriptionVector GetOutputFeatureDescriptions() const = 0;
  // Whether the model accepts a batch dimension, so several requests can run in one prediction.
  virtual bool DoesSupportBatchedInference() const = 0;
};

}  // namespace kivml
