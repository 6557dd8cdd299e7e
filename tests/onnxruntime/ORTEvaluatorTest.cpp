// The ONNX Runtime evaluator end to end: models loaded through CreatePreferredEvaluator, requests queued
// from several threads, batched and unbatched, and the ways a request or a model can be wrong.

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "gpu/AdapterSelection.h"
#include "kivcore/classref/ClassFactory.h"
#include "kivcore/config/ResultCodes.h"
#include "kivcore/debug/DebugDatabase.h"
#include "kivcore/debug/Trace.h"
#include "kivcore/string/StringConversions.h"
#include "kivml/IMLEvaluatorMetadata.h"
#include "kivml/ModelMock.h"
#include "kivml/ResultCodes.h"
#include "onnxruntime/ORTEvaluator.h"
#include "onnxruntime/OrtTestSupport.h"
#include "support/FakeModel.h"

namespace kivml::testing {
namespace {

using kivcore::classref::InterfaceRef;
using Future = kivcore::async::Future<utility::FeatureContainerVector>;

ort::ORTEvaluator& Backend(const InterfaceRef<IMLEvaluator>& evaluator) {
  return dynamic_cast<ort::ORTEvaluator&>(*evaluator);
}

utility::FeatureContainerVector AddRequest(float a, float b) {
  return MakeInputs(
      {{"input1", MakeTensor<float>({1, 3}, {a, a, a})}, {"input2", MakeTensor<float>({1, 3}, {b, b, b})}});
}

class ORTEvaluatorTest : public OrtTest {};

TEST_F(ORTEvaluatorTest, AddsOneByOneWithABatchOfOne) {
  const auto evaluator = Start(CreateONNXModelFromFile(TestModelPath("add")), kUnbatchedInference);
  ASSERT_TRUE(evaluator);
  // Unbatched, the "DATA_BATCH" dimension is fixed to 1 in the session itself.
  EXPECT_EQ(Backend(evaluator).GetSessionBatchSize(), 1);
  EXPECT_EQ(GetEvaluatorBatchSize(evaluator), 1U);
  EXPECT_EQ(Backend(evaluator).GetInputDescriptions().at("input1")->GetTensorShape(),
            DescriptionShapeType({1, 3}));
  EXPECT_EQ(evaluator->CheckHealth(), 0);

  auto future = evaluator->QueueFeatures(AddRequest(1.5F, 2.0F));
  ASSERT_EQ(ResultOf(future), 0) << MessageOf(future);
  const auto outputs = future.Get();
  ASSERT_EQ(outputs.size(), 1U);
  EXPECT_EQ(ValuesOf<float>(outputs, "output1"), std::vector<float>({3.5F, 3.5F, 3.5F}));
  EXPECT_EQ(outputs.front().mFeature.Query<ITensorMLFeatureAccessor>()->GetShape(), ShapeType({1, 3}));
}

TEST_F(ORTEvaluatorTest, LogicalAndOnBooleans) {
  const auto evaluator = Start(CreateONNXModelFromFile(TestModelPath("logical_and")), kUnbatchedInference);
  ASSERT_TRUE(evaluator);
  auto future = evaluator->QueueFeatures(MakeInputs({{"input1", MakeTensor<uint8_t>({1, 4}, {1, 1, 0, 0})},
                                                     {"input2", MakeTensor<uint8_t>({1, 4}, {1, 0, 1, 0})}}));
  ASSERT_EQ(ResultOf(future), 0) << MessageOf(future);
  const auto tensor = future.Get().front().mFeature.Query<ITensorMLFeatureAccessor>();
  EXPECT_EQ(tensor->GetDataTypeSize(), 1U);
  EXPECT_EQ(ValuesOf<uint8_t>(future.Get(), "output1"), std::vector<uint8_t>({1, 0, 0, 0}));
}

TEST_F(ORTEvaluatorTest, ManyProducersGetTheirOwnRowsOfPaddedBatches) {
  const auto evaluator = Start(CreateONNXModelFromFile(TestModelPath("add")), kBatchedInference);
  ASSERT_TRUE(evaluator);
  // Sized from the free video memory of the machine's adapter: 8 without one.
  const int64_t batchSize = Backend(evaluator).GetSessionBatchSize();
  EXPECT_EQ(batchSize % 8, 0);
  EXPECT_EQ(GetEvaluatorBatchSize(evaluator), static_cast<size_t>(batchSize));
  EXPECT_EQ(Backend(evaluator).GetInputDescriptions().at("input1")->GetTensorShape(),
            DescriptionShapeType({batchSize, 3}));

  constexpr int kProducers = 6;
  constexpr int kRequests = 150;  // not a multiple of the batch size: the last batch is padded
  std::vector<std::vector<Future>> futures(kProducers);
  std::vector<std::thread> producers;
  for (int p = 0; p < kProducers; ++p) {
    producers.emplace_back([&, p] {
      for (int i = 0; i < kRequests; ++i) {
        futures[p].push_back(
            evaluator->QueueFeatures(AddRequest(static_cast<float>(p), static_cast<float>(i))));
      }
    });
  }
  for (auto& producer : producers) {
    producer.join();
  }
  for (int p = 0; p < kProducers; ++p) {
    for (int i = 0; i < kRequests; ++i) {
      ASSERT_EQ(ResultOf(futures[p][i]), 0) << MessageOf(futures[p][i]);
      const auto sum = static_cast<float>(p + i);
      ASSERT_EQ(ValuesOf<float>(futures[p][i].Get(), "output1"), std::vector<float>({sum, sum, sum}));
    }
  }
}

TEST_F(ORTEvaluatorTest, FreeDimensionsComeFromTheRequest) {
  const auto model = CreateONNXModelFromFile(TestModelPath("free_hw"));
  EXPECT_TRUE(model->DoesSupportBatchedInference());
  const auto described = model->GetInputFeatureDescriptions().front().Query<ITensorFeatureDescription>();
  EXPECT_EQ(described->GetTensorShape(), DescriptionShapeType({1, 1, -1, -1}));

  const auto image = [](uint64_t height, uint64_t width) {
    return MakeInputs(
        {{"image", MakeTensor<float>({1, 1, height, width}, std::vector<float>(height * width, 1.0F))}});
  };
  const auto unbatched = Start(model, kUnbatchedInference);
  ASSERT_TRUE(unbatched);
  for (const auto& [height, width] : {std::pair(2, 3), std::pair(5, 7)}) {
    auto future = unbatched->QueueFeatures(image(height, width));
    ASSERT_EQ(ResultOf(future), 0) << MessageOf(future);
    EXPECT_EQ(ValuesOf<float>(future.Get(), "sum"), std::vector<float>({static_cast<float>(height * width)}));
  }

  // Rows of one batch share their free dimensions; a row that differs fails alone.
  const auto batched = Start(model, kBatchedInference);
  ASSERT_TRUE(batched);
  ASSERT_TRUE(batched->Pause());
  std::vector<Future> futures{batched->QueueFeatures(image(4, 4)), batched->QueueFeatures(image(2, 2)),
                              batched->QueueFeatures(image(4, 4))};
  ASSERT_TRUE(batched->Resume());
  EXPECT_EQ(ResultOf(futures[0]), 0) << MessageOf(futures[0]);
  EXPECT_EQ(ValuesOf<float>(futures[0].Get(), "sum"), std::vector<float>({16.0F}));
  EXPECT_EQ(ResultOf(futures[1]), eBadFeature);
  EXPECT_NE(MessageOf(futures[1]).find("'image'"), std::string::npos) << MessageOf(futures[1]);
  EXPECT_EQ(ResultOf(futures[2]), 0) << MessageOf(futures[2]);
  // The differing row runs in a batch of its own later.
  auto later = batched->QueueFeatures(image(2, 2));
  ASSERT_EQ(ResultOf(later), 0) << MessageOf(later);
  EXPECT_EQ(ValuesOf<float>(later.Get(), "sum"), std::vector<float>({4.0F}));
}

// A tensor over `values` with the strides given rather than derived.
kivcore::classref::InterfaceRef<IMLFeature> StridedTensor(ShapeType shape, StrideType strides,
                                                          const std::vector<float>& values) {
  auto memory = kivcore::allocator::RecycledMemory::Create(values.size() * sizeof(float));
  std::memcpy(memory->Buffer(), values.data(), values.size() * sizeof(float));
  return utility::CreateTensor(std::move(memory), sizeof(float), std::move(shape), std::move(strides));
}

TEST_F(ORTEvaluatorTest, BadRequestsFailAloneWithTheInputNamedInBothModes) {
  const auto good = MakeTensor<float>({1, 3}, {1, 2, 3});
  const struct {
    const char* what;
    utility::FeatureContainerVector inputs;
    int code;
    const char* named;
  } cases[] = {
      {"wrong element type",
       MakeInputs({{"input1", good}, {"input2", MakeTensor<double>({1, 3}, {1, 2, 3})}}), eBadFeature,
       "'input2'"},
      {"wrong shape", MakeInputs({{"input1", MakeTensor<float>({3, 1}, {1, 2, 3})}, {"input2", good}}),
       eBadFeature, "'input1'"},
      {"wrong rank", MakeInputs({{"input1", MakeTensor<float>({3}, {1, 2, 3})}, {"input2", good}}),
       eBadFeature, "'input1'"},
      {"too few elements", MakeInputs({{"input1", MakeTensor<float>({1, 3}, {1, 2})}, {"input2", good}}),
       eBadFeature, "'input1'"},
      {"two rows", MakeInputs({{"input1", MakeTensor<float>({2, 3}, {1, 2, 3, 4, 5, 6})}, {"input2", good}}),
       eBadFeature, "'input1'"},
      {"missing input", MakeInputs({{"input1", good}}), eBadFeature, "'input2'"},
      {"no inputs", MakeInputs({}), eNoInputFeatures, "no input"},
      {"unknown input", MakeInputs({{"input1", good}, {"input2", good}, {"input3", good}}), eBadFeature,
       "'input3'"},
      {"an input given twice", MakeInputs({{"input1", good}, {"input2", good}, {"input1", good}}),
       eBadFeature, "'input1' is given more than once"},
      {"strides that are not packed",
       MakeInputs({{"input1", StridedTensor({1, 3}, {0, 1000000}, {1, 2, 3})}, {"input2", good}}),
       eBadFeature, "'input1' has strides [0, 1000000]"},
  };
  for (const BatchedInference mode : {kUnbatchedInference, kBatchedInference}) {
    const auto evaluator = Start(CreateONNXModelFromFile(TestModelPath("add")), mode);
    ASSERT_TRUE(evaluator);
    ASSERT_TRUE(evaluator->Pause());  // batched: the bad requests meet the good one in one batch
    std::vector<Future> futures;
    for (const auto& bad : cases) {
      auto inputs = bad.inputs;
      futures.push_back(evaluator->QueueFeatures(std::move(inputs)));
    }
    // Row-major strides and the library's own packed ones both read as packed.
    auto rowMajor = evaluator->QueueFeatures(
        MakeInputs({{"input1", StridedTensor({1, 3}, {3, 1}, {1, 2, 3})}, {"input2", good}}));
    ASSERT_TRUE(evaluator->Resume());
    for (size_t i = 0; i < futures.size(); ++i) {
      EXPECT_EQ(ResultOf(futures[i]), cases[i].code) << cases[i].what << ", mode " << mode;
      EXPECT_NE(MessageOf(futures[i]).find(cases[i].named), std::string::npos)
          << cases[i].what << ", mode " << mode << ": " << MessageOf(futures[i]);
    }
    ASSERT_EQ(ResultOf(rowMajor), 0) << "the evaluator still serves: " << MessageOf(rowMajor);
    EXPECT_EQ(ValuesOf<float>(rowMajor.Get(), "output1"), std::vector<float>({2, 4, 6}));
  }
}

TEST_F(ORTEvaluatorTest, ARequestIsOneItemWhereTheModelBatchesWhicheverTheMode) {
  // The batch is free here (no "DATA_BATCH"), so the session alone would take two rows.
  const auto rows = MakeInputs({{"x", MakeTensor<float>({2, 3}, {1, 2, 3, 4, 5, 6})}});
  for (const BatchedInference mode : {kUnbatchedInference, kBatchedInference}) {
    const auto evaluator = Start(CreateONNXModelFromFile(TestModelPath("renamed_batch")), mode);
    ASSERT_TRUE(evaluator);
    auto inputs = rows;
    auto future = evaluator->QueueFeatures(std::move(inputs));
    EXPECT_EQ(ResultOf(future), eBadFeature) << "mode " << mode;
    EXPECT_NE(MessageOf(future).find("'x' has shape [2, 3]"), std::string::npos) << MessageOf(future);
  }
  // A model that does not batch takes any number of rows, one by one.
  const auto unbatched = Start(CreateONNXModelFromFile(TestModelPath("sum_rows")), kUnbatchedInference);
  ASSERT_TRUE(unbatched);
  auto inputs = rows;
  auto sum = unbatched->QueueFeatures(std::move(inputs));
  ASSERT_EQ(ResultOf(sum), 0) << MessageOf(sum);
  EXPECT_EQ(ValuesOf<float>(sum.Get(), "sum"), std::vector<float>({5, 7, 9}));
}

TEST_F(ORTEvaluatorTest, OnnxRuntimeFailuresKeepTheirMessage) {
  const auto evaluator = Start(CreateONNXModelFromFile(TestModelPath("reshape")), kUnbatchedInference);
  ASSERT_TRUE(evaluator);
  auto failing = evaluator->QueueFeatures(MakeInputs({{"x", MakeTensor<float>({4}, {1, 2, 3, 4})}}));
  EXPECT_EQ(ResultOf(failing), eInferenceFailure);
  EXPECT_NE(MessageOf(failing).find("Reshape"), std::string::npos) << MessageOf(failing);
  auto passing = evaluator->QueueFeatures(MakeInputs({{"x", MakeTensor<float>({6}, {1, 2, 3, 4, 5, 6})}}));
  EXPECT_EQ(ResultOf(passing), 0) << MessageOf(passing);
}

TEST_F(ORTEvaluatorTest, UnmappedElementTypesAreRejected) {
  const auto evaluator = Start(CreateONNXModelFromFile(TestModelPath("half")), kUnbatchedInference);
  ASSERT_TRUE(evaluator);
  auto future = evaluator->QueueFeatures(MakeInputs({{"x", MakeTensor<uint16_t>({1, 2}, {0, 0})}}));
  EXPECT_EQ(ResultOf(future), eBadFeatureDescriptions);
  EXPECT_EQ(MessageOf(future), "Exception in Predict() chain.");
}

TEST_F(ORTEvaluatorTest, ModelsThatCannotLoadFailTheFutureSayingWhy) {
  const auto payload = [](const char* bytes) {
    const std::string_view text(bytes);
    auto memory = kivcore::allocator::RecycledMemory::Create(text.size());
    std::copy(text.begin(), text.end(), memory->Buffer());
    return memory;
  };
  const auto mock = [](std::shared_ptr<kivcore::allocator::RecycledMemory> bytes) {
    return kivcore::classref::MakeInterfaceRef<IMLModel>(kivcore::classref::CreateObject<ModelMock>(
        kivcore::utility::ImmutableString::Create("broken"), std::move(bytes), FeatureDescriptionVector(),
        FeatureDescriptionVector()));
  };
  const auto onnx = CreateONNXModelFromFile(TestModelPath("add"))->GetONNXMLModel();
  const auto truncated = kivcore::allocator::RecycledMemory::Create(onnx->Size() / 2);
  std::copy(onnx->Buffer(), onnx->Buffer() + truncated->Size(), truncated->Buffer());
  const struct {
    const char* what;
    kivcore::classref::InterfaceRef<IMLModel> model;
    int code;
    const char* says;
  } cases[] = {
      {"garbage", mock(payload("not an onnx model")), eInferenceFailure, "protobuf parsing failed"},
      {"truncated", mock(truncated), eInferenceFailure, "protobuf parsing failed"},
      {"empty", mock(payload("")), eNoSession, "payload is empty"},
      {"no payload", mock(nullptr), eNoSession, "payload is empty"},
      {"no ONNX accessor", MakeScalarModel(), eNoSession, "no ONNX payload"},
  };
  for (const auto& broken : cases) {
    for (const BatchedInference batched : {kUnbatchedInference, kBatchedInference}) {
      auto future = CreatePreferredEvaluator(broken.model, batched);
      EXPECT_EQ(ResultOf(future), broken.code) << broken.what;
      // what() alone says which model and why; the load's own exception is attached too.
      const std::string message = MessageOf(future);
      EXPECT_NE(message.find("Loading the model '"), std::string::npos) << broken.what << ": " << message;
      EXPECT_NE(message.find(broken.says), std::string::npos) << broken.what << ": " << message;
      EXPECT_GT(FullMessageOf(future).size(), message.size()) << broken.what;
    }
  }

  EXPECT_THROW(CreateONNXModelFromBuffer(kivcore::utility::ImmutableString::Create("x"), payload("garbage")),
               kivcore::kiv_exception);
  EXPECT_THROW(CreateONNXModelFromFile(TestModelPath("no_such_model")), kivcore::kiv_exception);
}

TEST_F(ORTEvaluatorTest, FactoryFailuresKeepTheirCodeAndEmptyMessageWithTheCauseAttached) {
  // No model at all.
  auto none = CreatePreferredEvaluator(nullptr, kBatchedInference);
  EXPECT_EQ(ResultOf(none), kivcore::config::eNullPtrException);
  EXPECT_EQ(MessageOf(none), "");
  EXPECT_NE(FullMessageOf(none).find("the model reference is empty"), std::string::npos)
      << FullMessageOf(none);

  // An evaluator that cannot even be constructed: the failure goes into the future, nothing is thrown.
  constexpr int kConstructionFailure = static_cast<int>(0x80070008u);
  ASSERT_TRUE(kivcore::classref::ClassFactory::UnregisterClass(kORTEvaluatorGuid));
  ASSERT_EQ(kivcore::classref::ClassFactory::RegisterClass(
                kORTEvaluatorGuid, "kORTEvaluatorGuid", "ORTEvaluator",
                [](kivcore::classref::InterfaceRef<kivcore::classref::UnknownBase>&) {
                  throw kivcore::kiv_exception("cannot make session options", kConstructionFailure);
                }),
            0);
  kivcore::async::Future<InterfaceRef<IMLEvaluator>> unmade;
  EXPECT_NO_THROW(
      unmade = CreatePreferredEvaluator(CreateONNXModelFromFile(TestModelPath("add")), kUnbatchedInference));
  ASSERT_TRUE(kivcore::classref::ClassFactory::UnregisterClass(kORTEvaluatorGuid));
  ASSERT_EQ(kivcore::classref::ClassFactory::RegisterClass(kORTEvaluatorGuid, "kORTEvaluatorGuid",
                                                           "ORTEvaluator", &ort::ORTEvaluator::Create),
            0);
  EXPECT_EQ(ResultOf(unmade), kConstructionFailure);
  EXPECT_EQ(FullMessageOf(unmade), "cannot make session options");
}

TEST_F(ORTEvaluatorTest, NoEvaluatorClassGivesTheFactoryCode) {
  ASSERT_TRUE(kivcore::classref::ClassFactory::UnregisterClass(kORTEvaluatorGuid));
  auto future = CreatePreferredEvaluator(CreateONNXModelFromFile(TestModelPath("add")), kBatchedInference);
  EXPECT_EQ(kivcore::classref::ClassFactory::RegisterClass(kORTEvaluatorGuid, "kORTEvaluatorGuid",
                                                           "ORTEvaluator", &ort::ORTEvaluator::Create),
            0);
  EXPECT_EQ(ResultOf(future), eNoEvaluator);
  EXPECT_EQ(MessageOf(future), "");
}

TEST_F(ORTEvaluatorTest, ReadsCustomMetadata) {
  const auto evaluator = Start(CreateONNXModelFromFile(TestModelPath("add_metadata")), kUnbatchedInference);
  ASSERT_TRUE(evaluator);
  const auto metadata = evaluator.Query<IMLEvaluatorMetadata>();
  ASSERT_TRUE(metadata);
  const auto all = metadata->GetMetdata();
  EXPECT_EQ(all.size(), 2U);
  EXPECT_EQ(all.at(kivcore::string::ToU8("labels")), kivcore::string::ToU8("cat,dog"));
  EXPECT_EQ(metadata->LookupMetadata(kivcore::string::ToU8("author")), kivcore::string::ToU8("kivml tests"));
  EXPECT_TRUE(metadata->LookupMetadata(kivcore::string::ToU8("missing")).empty());

  // Before a model is loaded there is nothing to read.
  ort::ORTEvaluator unloaded;
  EXPECT_TRUE(unloaded.LookupMetadata(kivcore::string::ToU8("author")).empty());
  EXPECT_TRUE(unloaded.GetMetdata().empty());

  // Read from a host thread while the worker loads the model: nothing, then everything, never a session
  // half set up (the thread sanitizer checks the reads against the load's writes).
  const auto loading = kivcore::classref::CreateObject<ort::ORTEvaluator>();
  ASSERT_EQ(loading->SetModel(CreateONNXModelFromFile(TestModelPath("add_metadata"))), 0);
  const auto load = loading->Start();
  do {
    const kivcore::u8string author = loading->LookupMetadata(kivcore::string::ToU8("author"));
    EXPECT_TRUE(author.empty() || author == kivcore::string::ToU8("kivml tests"));
    const size_t entries = loading->GetMetdata().size();
    EXPECT_TRUE(entries == 0 || entries == 2) << entries;
  } while (!load.IsReady());
  ASSERT_EQ(load.Get(), 0);
  EXPECT_EQ(loading->LookupMetadata(kivcore::string::ToU8("author")), kivcore::string::ToU8("kivml tests"));
}

class ORTProfilingTest : public OrtTest {
 protected:
  void TearDown() override {
    kivcore::debug::DebugDatabase::Instance().RemoveEntry("KIVSE.ORT.ProfileModels");
  }

  // Profile files ONNX Runtime wrote for models named `name` in the working folder; removes them. The
  // session closes its file on a worker thread once the evaluator is gone, and Windows refuses to remove
  // a file that is still open, so removal is retried for a while.
  static int TakeProfileFiles(const std::string& name) {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::current_path())) {
      if (entry.path().filename().string().starts_with("profile_" + name)) {
        const auto deadline = std::chrono::steady_clock::now() + kFutureTimeout;
        std::error_code error;
        while (!std::filesystem::remove(entry.path(), error) && error &&
               std::chrono::steady_clock::now() < deadline) {
          std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        EXPECT_FALSE(error) << entry.path() << ": " << error.message();
        ++count;
      }
    }
    return count;
  }

  static bool ProfilesWith(const char* setting, const std::string& name, bool onGPU = false) {
    kivcore::debug::DebugDatabase::Instance().SetEntry("KIVSE.ORT.ProfileModels", setting);
    auto payload = CreateONNXModelFromFile(TestModelPath("add"))->GetONNXMLModel();
    auto model =
        CreateONNXModelFromBuffer(kivcore::utility::ImmutableString::Create(name.c_str()), payload, onGPU);
    auto evaluator = Start(model, kUnbatchedInference);
    const bool enabled = evaluator && Backend(evaluator).IsProfilingEnabled();
    if (evaluator) {
      auto future = evaluator->QueueFeatures(AddRequest(1.0F, 1.0F));
      EXPECT_EQ(ResultOf(future), 0);
    }
    evaluator.Reset();  // profiling ends when the evaluator goes
    return enabled;
  }
};

TEST_F(ORTProfilingTest, OnlyExactlyTrueWritesAProfile) {
  TakeProfileFiles("kivml_profiled");  // left by an interrupted run
  EXPECT_TRUE(ProfilesWith("true", "kivml_profiled"));
  EXPECT_EQ(TakeProfileFiles("kivml_profiled"), 1);
  EXPECT_FALSE(ProfilesWith("TRUE", "kivml_upper"));
  EXPECT_FALSE(ProfilesWith("true ", "kivml_blank"));
  EXPECT_EQ(TakeProfileFiles("kivml_upper") + TakeProfileFiles("kivml_blank"), 0);
}

TEST_F(ORTProfilingTest, ACpuSessionAfterAFailedGpuAttemptIsNotProfiled) {
  const gpu::SelectedAdapter hardware = gpu::SelectPlatformAdapter();
  if (hardware.mAdapter) {
    GTEST_SKIP() << "the GPU attempt does not fail on this machine's adapter: "
                 << hardware.mDescription.mName;
  }
  EXPECT_TRUE(ProfilesWith("true", "kivml_fallback", true));
  EXPECT_EQ(TakeProfileFiles("kivml_fallback"), 0);
}

}  // namespace
}  // namespace kivml::testing
