// What a request of a batched evaluator gets back: its own row of every output and nothing of another
// request's, whatever the model computes across rows; and which models the model helper says can batch.

#include <gtest/gtest.h>

#include <exception>
#include <string>
#include <vector>

#include "kivml/ITensorFeatureDescription.h"
#include "kivml/ResultCodes.h"
#include "onnxruntime/OrtTestSupport.h"

namespace kivml::testing {
namespace {

using Future = kivcore::async::Future<utility::FeatureContainerVector>;

utility::FeatureContainerVector Row(std::vector<float> values) {
  return MakeInputs({{"x", MakeTensor<float>({1, 3}, values)}});
}

class BatchedAnswersTest : public OrtTest {
 protected:
  // Queues `rows`, repeated up to a full batch, while the evaluator is paused: they share one batch,
  // which runs at once rather than waiting for latecomers.
  static std::vector<Future> QueueTogether(const kivcore::classref::InterfaceRef<IMLEvaluator>& evaluator,
                                           const std::vector<std::vector<float>>& rows) {
    EXPECT_TRUE(evaluator->Pause());
    std::vector<Future> futures;
    for (size_t i = 0; i < GetEvaluatorBatchSize(evaluator); ++i) {
      futures.push_back(evaluator->QueueFeatures(Row(rows[i % rows.size()])));
    }
    EXPECT_TRUE(evaluator->Resume());
    return futures;
  }
};

TEST_F(BatchedAnswersTest, TheHelperSaysBatchingOnlyWhereEveryOutputFollowsTheBatch) {
  EXPECT_TRUE(CreateONNXModelFromFile(TestModelPath("add"))->DoesSupportBatchedInference());
  // Exporters often give the outputs' batch another name: what counts is that it follows the inputs'.
  const auto renamed = CreateONNXModelFromFile(TestModelPath("renamed_batch"));
  EXPECT_TRUE(renamed->DoesSupportBatchedInference());
  EXPECT_EQ(
      renamed->GetOutputFeatureDescriptions().front().Query<ITensorFeatureDescription>()->GetTensorShape(),
      DescriptionShapeType({1, 3}));
  for (const char* name : {"sum_rows", "nonzero", "twice_rows"}) {
    const auto model = CreateONNXModelFromFile(TestModelPath(name));
    EXPECT_FALSE(model->DoesSupportBatchedInference()) << name;
    // Without batching a request may bring any number of rows: the leading dimension stays free.
    EXPECT_EQ(
        model->GetInputFeatureDescriptions().front().Query<ITensorFeatureDescription>()->GetTensorShape(),
        DescriptionShapeType({-1, 3}))
        << name;
  }
}

TEST_F(BatchedAnswersTest, OutputsOverAllRowsFailTheirRequestsInsteadOfMixingAnswers) {
  for (const char* name : {"sum_rows", "nonzero", "twice_rows"}) {
    const auto model = CreateONNXModelFromFile(TestModelPath(name));
    const auto unbatched = Start(model, kUnbatchedInference);
    const auto batched = Start(model, kBatchedInference);
    ASSERT_TRUE(unbatched && batched) << name;

    auto alone = unbatched->QueueFeatures(Row({1, 0, 2}));
    EXPECT_EQ(ResultOf(alone), 0) << name << ": " << MessageOf(alone);

    std::vector<Future> futures = QueueTogether(batched, {{1, 0, 2}, {100, 0, 200}});
    for (auto& future : futures) {
      EXPECT_EQ(ResultOf(future), eInferenceFailure) << name;
      EXPECT_EQ(MessageOf(future), "kivml::LocalEvaluator::ProcessQueueThroughModelBatched PredictError");
    }
  }
}

TEST_F(BatchedAnswersTest, EachRowOfARenamedBatchGoesToItsOwnRequest) {
  const auto batched = Start(CreateONNXModelFromFile(TestModelPath("renamed_batch")), kBatchedInference);
  ASSERT_TRUE(batched);
  std::vector<Future> futures = QueueTogether(batched, {{1, -1, 2}, {-3, 4, 5}});
  ASSERT_EQ(ResultOf(futures[0]), 0) << MessageOf(futures[0]);
  ASSERT_EQ(ResultOf(futures[1]), 0) << MessageOf(futures[1]);
  EXPECT_EQ(ValuesOf<float>(futures[0].Get(), "y"), std::vector<float>({1, 0, 2}));
  EXPECT_EQ(ValuesOf<float>(futures[1].Get(), "y"), std::vector<float>({0, 4, 5}));
}

utility::FeatureContainerVector Division(int32_t dividend, int32_t divisor) {
  return MakeInputs({{"pair", MakeTensor<int32_t>({1, 2}, {dividend, divisor})}});
}

TEST_F(BatchedAnswersTest, OneBadRequestFailsOnlyItselfWithOnnxRuntimesReasonAttached) {
  const auto evaluator = Start(CreateONNXModelFromFile(TestModelPath("int_div")), kBatchedInference);
  ASSERT_TRUE(evaluator);
  const auto quotient = [](const Future& future) { return ValuesOf<int32_t>(future.Get(), "quotient"); };

  // Alone in its batch, a valid request is padded with zero-filled rows, which divide by zero.
  auto alone = evaluator->QueueFeatures(Division(5, 4));
  ASSERT_EQ(ResultOf(alone), 0) << MessageOf(alone) << ": " << CauseOf(alone);
  EXPECT_EQ(quotient(alone), std::vector<int32_t>({1}));

  constexpr int kBad = 5;
  const size_t count = 2 * GetEvaluatorBatchSize(evaluator);
  ASSERT_TRUE(evaluator->Pause());
  std::vector<Future> futures;
  for (size_t i = 0; i < count; ++i) {
    futures.push_back(evaluator->QueueFeatures(Division(static_cast<int32_t>(10 * i), i == kBad ? 0 : 2)));
  }
  ASSERT_TRUE(evaluator->Resume());
  for (size_t i = 0; i < count; ++i) {
    if (i == kBad) {
      EXPECT_EQ(ResultOf(futures[i]), eInferenceFailure);
      EXPECT_EQ(MessageOf(futures[i]), "kivml::LocalEvaluator::ProcessQueueThroughModelBatched PredictError");
      EXPECT_NE(CauseOf(futures[i]).find("Integer division by zero"), std::string::npos)
          << CauseOf(futures[i]);
    } else {
      ASSERT_EQ(ResultOf(futures[i]), 0) << i << ": " << MessageOf(futures[i]) << ": " << CauseOf(futures[i]);
      EXPECT_EQ(quotient(futures[i]), std::vector<int32_t>({static_cast<int32_t>(5 * i)}));
    }
  }
}

}  // namespace
}  // namespace kivml::testing
