// Every public header compiles on its own and the vocabulary fits together: a host can implement a model
// and its descriptions against these headers alone.
#include "kivml/BatchedInference.h"
#include "kivml/EvaluatorStatistics.h"
#include "kivml/ICoreMLModelAccessor.h"
#include "kivml/IFeatureDescription.h"
#include "kivml/IMLEvaluator.h"
#include "kivml/IMLEvaluatorMetadata.h"
#include "kivml/IMLEvaluatorPrivate.h"
#include "kivml/IMLFeature.h"
#include "kivml/IMLModel.h"
#include "kivml/IONNXMLModelAccessor.h"
#include "kivml/ITensorFeatureDescription.h"
#include "kivml/ITensorMLFeatureAccessor.h"
#include "kivml/ITensorMLFeatureModifier.h"
#include "kivml/ResultCodes.h"
#include "kivml/SetModelException.h"
#include "kivml/TensorFeatureTypes.h"
#include "kivml/features/CreateD3D12ResourceFeature.h"
#include "kivml/features/ID3D12ResourceFeature.h"
#include "kivml/gpu/BufferRecycler.h"
#include "kivml/gpu/BufferUploader.h"
#include "kivml/gpu/D3D12.h"
#include "kivml/gpu/DX12DefaultHeapRecycler.h"
#include "kivml/gpu/DX12HeapRecycler.h"
#include "kivml/gpu/DX12HeapWrapper.h"
#include "kivml/gpu/DX12IntegratedUploader.h"
#include "kivml/gpu/DX12ResourceWrapper.h"
#include "kivml/gpu/DX12UploadHeapRecycler.h"
#include "kivml/gpu/DX12Uploader.h"
#include "kivml/gpu/RecycledBuffer.h"
#include "kivml/utility/TensorFactories.h"
#include "kivml/utility/TensorLayout.h"

#include <gtest/gtest.h>

#include "kivcore/classref/Implements.h"

namespace kivml {
namespace {

class HostModel final : public kivcore::classref::Implements<IMLModel, IONNXMLModelAccessor> {
 public:
  kivcore::utility::ImmutableString GetName() const override {
    return kivcore::utility::ImmutableString::_PrivateCreateStatic("host");
  }
  bool IsEncrypted() const override { return false; }
  std::array<uint8_t, 16> GetEncryptionKey() const override { return {}; }
  FeatureDescriptionVector GetInputFeatureDescriptions() const override { return {}; }
  FeatureDescriptionVector GetOutputFeatureDescriptions() const override { return {}; }
  bool DoesSupportBatchedInference() const override { return true; }
  std::shared_ptr<kivcore::allocator::RecycledMemory> GetONNXMLModel() const override { return nullptr; }
  bool ShouldEvaluateOnGPU() const override { return false; }
};

TEST(PublicHeadersTest, AHostModelAnswersBothOfItsInterfaces) {
  const auto model =
      kivcore::classref::MakeInterfaceRef<IMLModel>(kivcore::classref::CreateObject<HostModel>());
  EXPECT_EQ(model->GetName().View(), "host");
  ASSERT_TRUE(model.Query<IONNXMLModelAccessor>());
  EXPECT_FALSE(model.Query<ICoreMLModelAccessor>());
  EXPECT_FALSE(model.Query<IMLEvaluator>());
}

TEST(PublicHeadersTest, SetModelExceptionHasItsFixedMessage) {
  const SetModelException exception(eBadFeatureDescriptions);
  EXPECT_STREQ(exception.what(), "Exception in kivml::IMLEvaluatorPrivate::SetModel");
  EXPECT_EQ(exception.GetResult(), eBadFeatureDescriptions);
  EXPECT_EQ(static_cast<int>(kBatchedInference), 0);
}

}  // namespace
}  // namespace kivml
