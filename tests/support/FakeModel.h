#pragma once
// A model with a name and fixed input descriptions, for pipeline tests. Outputs mirror the inputs.

#include <array>
#include <utility>

#include "kivcore/classref/Implements.h"
#include "kivml/IMLModel.h"
#include "support/FakeTensorDescription.h"

namespace kivml::testing {

class FakeModel final : public kivcore::classref::Implements<IMLModel> {
 public:
  FakeModel(const char* name, FeatureDescriptionVector inputs)
      : mName(kivcore::utility::ImmutableString::Create(name)), mInputs(std::move(inputs)) {}

  kivcore::utility::ImmutableString GetName() const override { return mName; }
  bool IsEncrypted() const override { return false; }
  std::array<uint8_t, 16> GetEncryptionKey() const override { return {}; }
  FeatureDescriptionVector GetInputFeatureDescriptions() const override { return mInputs; }
  FeatureDescriptionVector GetOutputFeatureDescriptions() const override { return mInputs; }
  bool DoesSupportBatchedInference() const override { return true; }

 private:
  kivcore::utility::ImmutableString mName;
  FeatureDescriptionVector mInputs;
};

// A model with one int32 input "x" of shape (1): a request carries one number.
inline kivcore::classref::InterfaceRef<IMLModel> MakeScalarModel(const char* name = "scalar") {
  FeatureDescriptionVector inputs{MakeDescription("x", features::kInt32TensorFeatureType, {1})};
  return kivcore::classref::MakeInterfaceRef<IMLModel>(
      kivcore::classref::CreateObject<FakeModel>(name, std::move(inputs)));
}

}  // namespace kivml::testing
