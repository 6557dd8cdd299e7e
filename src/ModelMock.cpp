#include "kivml/ModelMock.h"

#include <utility>

namespace kivml {

ModelMock::ModelMock(kivcore::utility::ImmutableString name,
                     std::shared_ptr<kivcore::allocator::RecycledMemory> payload,
                     FeatureDescriptionVector inputs, FeatureDescriptionVector outputs)
    : mName(std::move(name)),
      mPayload(std::move(payload)),
      mInputs(std::move(inputs)),
      mOutputs(std::move(outputs)) {}

void ModelMock::SetEncryptionKey(const std::array<uint8_t, 16>& key) {
  mKey = key;
  mEncrypted = true;
}

}  // namespace kivml
