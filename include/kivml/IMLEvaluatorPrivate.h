#pragma once
// The set-up side of an evaluator, used by the evaluator factory. Slot order is part of the contract.

#include "kivcore/async/Future.h"
#include "kivcore/classref/InterfaceRef.h"
#include "kivml/IMLModel.h"

namespace kivml {

class IMLEvaluatorPrivate : public kivcore::classref::Unknown {
 public:
  static constexpr kivcore::utility::Guid kIID{"6EFC800F-177F-4338-8269-B0E70157FBD0", 36};

  // Binds the model; returns a result code.
  virtual int SetModel(kivcore::classref::InterfaceRef<IMLModel> model) = 0;
  virtual void SetShouldUseBatching(bool shouldUseBatching) = 0;
  // Loads the model on the evaluator's worker and returns at once; the future yields the load's result
  // code. Requests queued before or during the load are taken up once it ends.
  virtual kivcore::async::Future<int> Start() = 0;
};

}  // namespace kivml
