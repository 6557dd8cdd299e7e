// ONNX Runtime sessions: which ones need full batches, lanes sharing one CPU session, and the pools'
// spinning setting.

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "LocalEvaluator.h"
#include "kivml/Settings.h"
#include "onnxruntime/ORTEnvironment.h"
#include "onnxruntime/OrtTestSupport.h"
#include "support/ScopedSetting.h"
#include "support/TraceCapture.h"

namespace kivml::testing {
namespace {

using Future = kivcore::async::Future<utility::FeatureContainerVector>;

bool MustFillBatch(const kivcore::classref::InterfaceRef<IMLEvaluator>& evaluator) {
  const auto* local = dynamic_cast<const LocalEvaluator*>(evaluator.get());
  EXPECT_NE(local, nullptr);
  return local != nullptr && local->MustFillBatch();
}

// Adds `value` to itself through the "add" model; false (with a failure) when the answer is wrong.
Future QueueAdd(IMLEvaluator& evaluator, float value) {
  return evaluator.QueueFeatures(MakeInputs({{"input1", MakeTensor<float>({1, 3}, {value, value, value})},
                                             {"input2", MakeTensor<float>({1, 3}, {value, 1, 2})}}));
}

bool AddedCorrectly(const Future& future, float value) {
  if (ResultOf(future) != 0) {
    ADD_FAILURE() << MessageOf(future);
    return false;
  }
  const std::vector<float> sums = ValuesOf<float>(future.Get(), "output1");
  const std::vector<float> expected{value + value, value + 1, value + 2};
  EXPECT_EQ(sums, expected);
  return sums == expected;
}

class ShortBatchesAndLanesTest : public OrtTest {};

TEST_F(ShortBatchesAndLanesTest, OnlyASessionWithADataBatchDimensionWaitsForAndPadsAFullBatch) {
  TraceCapture traces;
  // "renamed_batch" keeps its first dimension free: what is queued runs at once, as it is.
  const auto free = Start(CreateONNXModelFromFile(TestModelPath("renamed_batch"), false), kBatchedInference);
  ASSERT_TRUE(free);
  EXPECT_FALSE(MustFillBatch(free));
  std::vector<Future> relu;
  for (const float value : {-1.0F, 2.0F, -3.0F}) {
    relu.push_back(free->QueueFeatures(MakeInputs({{"x", MakeTensor<float>({1, 3}, {value, value, 1})}})));
  }
  for (size_t i = 0; i < relu.size(); ++i) {
    ASSERT_EQ(ResultOf(relu[i]), 0) << MessageOf(relu[i]);
  }
  EXPECT_EQ(ValuesOf<float>(relu[1].Get(), "y"), std::vector<float>({2, 2, 1}));
  EXPECT_EQ(ValuesOf<float>(relu[2].Get(), "y"), std::vector<float>({0, 0, 1}));
  EXPECT_FALSE(traces.Ending(" with 0 dummy features").empty());
  EXPECT_TRUE(traces.Ending("dummy features").size() == traces.Ending(" with 0 dummy features").size());

  // "add" denotes its batch DATA_BATCH, which the session fixes to the batch size: three requests wait
  // for latecomers and then run together, padded.
  const auto fixed = Start(CreateONNXModelFromFile(TestModelPath("add"), false), kBatchedInference);
  ASSERT_TRUE(fixed);
  EXPECT_TRUE(MustFillBatch(fixed));
  std::vector<Future> sums;
  for (const float value : {1.0F, 2.0F, 3.0F}) {
    sums.push_back(QueueAdd(*fixed, value));
  }
  EXPECT_TRUE(AddedCorrectly(sums[0], 1) && AddedCorrectly(sums[1], 2) && AddedCorrectly(sums[2], 3));
  // The batch size follows the free video memory, which differs between machines.
  const size_t dummyRows = GetEvaluatorBatchSize(fixed) - sums.size();
  EXPECT_EQ(traces.Ending(" with " + std::to_string(dummyRows) + " dummy features").size(), 1U);
}

TEST_F(ShortBatchesAndLanesTest, LanesShareOneCpuSessionAndAnswerEveryRequestWithItsOwnRows) {
  for (const BatchedInference batched : {kBatchedInference, kUnbatchedInference}) {
    for (const char* model : {"add", "renamed_batch"}) {
      SCOPED_TRACE(std::string(model) + (batched == kBatchedInference ? " batched" : " unbatched"));
      const auto evaluator =
          Start(CreateONNXModelFromFile(TestModelPath(model), false), EvaluatorOptions{batched, 3});
      ASSERT_TRUE(evaluator);
      EXPECT_EQ(GetEvaluatorPredictionLanes(evaluator), 3U);
      constexpr int kClients = 8;  // enough to fill the batches of 8 that "add" waits for
      constexpr int kEach = 15;
      std::vector<std::thread> clients;
      for (int client = 0; client < kClients; ++client) {
        clients.emplace_back([&, client] {
          for (int i = 0; i < kEach; ++i) {
            const auto value = static_cast<float>(client * kEach + i);
            if (std::string_view(model) == "add") {
              if (!AddedCorrectly(QueueAdd(*evaluator, value), value)) {
                return;
              }
              continue;
            }
            const Future future =
                evaluator->QueueFeatures(MakeInputs({{"x", MakeTensor<float>({1, 3}, {value, -value, 0})}}));
            ASSERT_EQ(ResultOf(future), 0) << MessageOf(future);
            ASSERT_EQ(ValuesOf<float>(future.Get(), "y"), std::vector<float>({value, 0, 0}));
          }
        });
      }
      for (auto& client : clients) {
        client.join();
      }
    }
  }
}

TEST_F(ShortBatchesAndLanesTest, ThePoolsSpinOnlyWhenTheSettingSaysExactlyTrue) {
  EXPECT_FALSE(ort::ORTEnvironment::SpinningAllowed());
  {
    const ScopedSetting spin(settings::kAllowSpinning.key, "true");
    EXPECT_TRUE(ort::ORTEnvironment::SpinningAllowed());
  }
  for (const char* value : {"TRUE", "1", "false"}) {
    const ScopedSetting spin(settings::kAllowSpinning.key, value);
    EXPECT_FALSE(ort::ORTEnvironment::SpinningAllowed()) << "'" << value << "'";
  }
}

}  // namespace
}  // namespace kivml::testing
