#include <gtest/gtest.h>

#include <algorithm>
#include <exception>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "kivcore/config/ResultCodes.h"
#include "kivcore/debug/Assert.h"
#include "kivcore/debug/DebugDatabase.h"
#include "kivcore/debug/Trace.h"
#include "kivcore/logging/Logging.h"
#include "kivml/ResultCodes.h"
#include "kivml/SetModelException.h"
#include "kivml/Settings.h"
#include "support/FakeEvaluator.h"
#include "support/FakeModel.h"
#include "support/FutureChecks.h"
#include "support/ManualFillClock.h"
#include "support/ScopedSetting.h"
#include "support/TraceCapture.h"

namespace kivml::testing {
namespace {

using namespace std::chrono_literals;
using RequestFuture = kivcore::async::Future<utility::FeatureContainerVector>;
using Rows = std::vector<std::vector<int32_t>>;

constexpr const char* kPredictError = "kivml::LocalEvaluator::ProcessQueueThroughModelBatched PredictError";

struct StartOptions {
  FakeEvaluator::Behaviour behaviour{};
  bool batched = true;
  size_t batchSize = 4;
  std::vector<int32_t> queuedBeforeStart{};
};

class LocalEvaluatorTest : public ::testing::Test {
 protected:
  // Starts an evaluator on the manual clock; requests listed in the setup are queued before Start.
  std::shared_ptr<FakeEvaluator> Start(StartOptions setup) {
    auto evaluator = FakeEvaluator::Create(std::move(setup.behaviour), mClock);
    evaluator->SetModel(MakeScalarModel());
    evaluator->SetShouldUseBatching(setup.batched);
    evaluator->ForceBatchSize(setup.batchSize);
    for (int32_t value : setup.queuedBeforeStart) {
      mFutures.push_back(evaluator->QueueFeatures(MakeRequest(value)));
    }
    const auto started = evaluator->Start();
    EXPECT_TRUE(started.WaitFor(kFutureTimeout));
    EXPECT_EQ(started.Get(), 0);
    return evaluator;
  }

  // Every future so far, waited for, must carry its own request back.
  void ExpectEchoed(const std::vector<int32_t>& values) {
    ASSERT_EQ(mFutures.size(), values.size());
    for (size_t i = 0; i < values.size(); ++i) {
      ASSERT_EQ(ResultOf(mFutures[i]), 0) << "request " << values[i];
      EXPECT_EQ(ValueOf(mFutures[i].Get()), values[i]);
    }
  }

  const std::shared_ptr<ManualFillClock> mClock = std::make_shared<ManualFillClock>();
  std::vector<RequestFuture> mFutures;
};

TEST_F(LocalEvaluatorTest, RequestsQueuedBeforeStartRunAsPaddedBatchesInOrder) {
  TraceCapture trace;
  auto evaluator = Start({.queuedBeforeStart = {1, 2, 3, 4, 5, 6}});
  ExpectEchoed({1, 2, 3, 4, 5, 6});
  EXPECT_EQ(evaluator->Batches(), (Rows{{1, 2, 3, 4}, {5, 6, 0, 0}}));
  // Only the short batch waited: two missing rows, no timings yet.
  EXPECT_EQ(mClock->Waits(), std::vector<std::chrono::milliseconds>{500ms});
  EXPECT_TRUE(trace.Saw("Filled batch of size 4 in 500ms with 2 dummy features"));
  EXPECT_EQ(evaluator->LoadCount(), 1);
}

TEST_F(LocalEvaluatorTest, WaitUsesTheFirstMeasuredBatchTimeOnceFourAreKnown) {
  int predictions = 0;
  auto evaluator = Start({.behaviour = {.onPredictBatched =
                                            [&](const LocalEvaluator::BatchRows&) {
                                              mClock->Advance(predictions++ == 0 ? 40ms : 100ms);
                                              return 0;
                                            }},
                          .batchSize = 8});
  for (int32_t value = 1; value <= 6; ++value) {
    mFutures.push_back(evaluator->QueueFeatures(MakeRequest(value)));
    ASSERT_EQ(ResultOf(mFutures.back()), 0);
  }
  // Seven missing rows would be 1750 ms: capped. Then the smoothed time, which with the worker's zero
  // factors stays at the first sample although later batches took longer.
  EXPECT_EQ(mClock->Waits(),
            (std::vector<std::chrono::milliseconds>{1500ms, 1500ms, 1500ms, 1500ms, 40ms, 40ms}));
}

TEST_F(LocalEvaluatorTest, RequestArrivingDuringTheWaitJoinsTheBatch) {
  auto evaluator = Start({});
  RequestFuture latecomer;
  mClock->DuringNextWait([&] { latecomer = evaluator->QueueFeatures(MakeRequest(2)); });
  mFutures.push_back(evaluator->QueueFeatures(MakeRequest(1)));
  ASSERT_EQ(ResultOf(mFutures.back()), 0);
  ASSERT_EQ(ResultOf(latecomer), 0);
  EXPECT_EQ(ValueOf(latecomer.Get()), 2);
  EXPECT_EQ(evaluator->Batches(), (Rows{{1, 2, 0, 0}}));
  EXPECT_EQ(mClock->Waits(), (std::vector<std::chrono::milliseconds>{750ms, 500ms}));
}

TEST_F(LocalEvaluatorTest, BackendWithoutFullBatchesNeitherWaitsNorPads) {
  auto evaluator = Start({.behaviour = {.mustFillBatch = false}, .queuedBeforeStart = {1, 2, 3, 4, 5}});
  ExpectEchoed({1, 2, 3, 4, 5});
  EXPECT_EQ(evaluator->Batches(), (Rows{{1, 2, 3, 4}, {5}}));
  EXPECT_TRUE(mClock->Waits().empty());
}

TEST_F(LocalEvaluatorTest, WithoutRetriesAFailedBatchFailsItsRequestsAndTheNextBatchStillRuns) {
  const ScopedSetting noRetries(settings::kRetryFailedBatchRows.key, "false");
  constexpr int kThrownCode = static_cast<int>(0x80004005u);
  std::vector<std::string> logged;
  const auto previousSink =
      kivcore::logging::SetLogSink([&](const std::string& line) { logged.push_back(line); });
  kivcore::debug::ScAssertRecorder asserts;
  int batch = 0;
  auto evaluator =
      Start({.behaviour = {.onPredictBatched =
                               [&](const LocalEvaluator::BatchRows&) {
                                 switch (batch++) {
                                   case 0:
                                     return eInferenceFailure;
                                   case 1:
                                     throw kivcore::kiv_exception("backend blew up", kThrownCode);
                                   default:
                                     return 0;
                                 }
                               }},
             .batchSize = 2,
             .queuedBeforeStart = {1, 2, 3, 4, 5, 6}});
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(ResultOf(mFutures[i]), i < 2 ? eInferenceFailure : kThrownCode);
    EXPECT_EQ(MessageOf(mFutures[i]), kPredictError);
    // The backend's own exception rides along where there was one.
    EXPECT_EQ(CauseOf(mFutures[i]), i < 2 ? "" : "backend blew up");
  }
  EXPECT_EQ(ResultOf(mFutures[4]), 0);
  EXPECT_EQ(ResultOf(mFutures[5]), 0);
  EXPECT_EQ(evaluator->Batches(), (Rows{{1, 2}, {3, 4}, {5, 6}}));
  evaluator.reset();
  kivcore::logging::SetLogSink(previousSink);

  EXPECT_EQ(asserts.Count(), 2u);
  EXPECT_EQ(asserts.Reports().front().condition, "kivcore::ResultSucceeded(result)");
  EXPECT_EQ(std::count(logged.begin(), logged.end(), "PredictBatched has a non-zero result code"), 2);
}

// Fails every batch that holds a row of `bad`, throwing so that the failure has a cause.
std::function<int(const LocalEvaluator::BatchRows&)> FailRowsOf(int32_t bad) {
  return [bad](const LocalEvaluator::BatchRows& rows) {
    if (std::any_of(rows.begin(), rows.end(), [bad](const auto& row) { return ValueOf(row) == bad; })) {
      throw kivcore::kiv_exception("bad row", eInferenceFailure);
    }
    return 0;
  };
}

TEST_F(LocalEvaluatorTest, AFailedBatchRunsAgainRowByRowAndFailsOnlyTheRowThatFailsAlone) {
  const auto previousSink = kivcore::logging::SetLogSink([](const std::string&) {});
  kivcore::debug::ScAssertRecorder asserts;
  auto evaluator =
      Start({.behaviour = {.onPredictBatched = FailRowsOf(3)}, .queuedBeforeStart = {1, 2, 3, 4, 5}});
  for (size_t i = 0; i < mFutures.size(); ++i) {
    if (i == 2) {
      EXPECT_EQ(ResultOf(mFutures[i]), eInferenceFailure);
      EXPECT_EQ(MessageOf(mFutures[i]), kPredictError);
      EXPECT_EQ(CauseOf(mFutures[i]), "bad row");
    } else {
      ASSERT_EQ(ResultOf(mFutures[i]), 0) << "request " << i + 1;
      EXPECT_EQ(ValueOf(mFutures[i].Get()), static_cast<int32_t>(i + 1));
    }
  }
  // The backend takes full batches only, so a row alone is padded with copies of itself; the batch after
  // the failed one runs as usual.
  EXPECT_EQ(evaluator->Batches(),
            (Rows{{1, 2, 3, 4}, {1, 1, 1, 1}, {2, 2, 2, 2}, {3, 3, 3, 3}, {4, 4, 4, 4}, {5, 0, 0, 0}}));
  evaluator.reset();
  kivcore::logging::SetLogSink(previousSink);
}

TEST_F(LocalEvaluatorTest, ARequestFailedOnlyByItsPaddingIsAnsweredWhenRunAgain) {
  const auto previousSink = kivcore::logging::SetLogSink([](const std::string&) {});
  kivcore::debug::ScAssertRecorder asserts;
  // Dummy rows read as 0: this backend fails whenever a batch is padded with them.
  auto evaluator = Start(
      {.behaviour = {.canRunShortBatch = true, .onPredictBatched = FailRowsOf(0)}, .queuedBeforeStart = {7}});
  ASSERT_EQ(ResultOf(mFutures[0]), 0) << MessageOf(mFutures[0]);
  EXPECT_EQ(ValueOf(mFutures[0].Get()), 7);
  // A backend that runs short batches gets the row alone, unpadded.
  EXPECT_EQ(evaluator->Batches(), (Rows{{7, 0, 0, 0}, {7}}));

  // With the retry turned off, the padding fails the request.
  const ScopedSetting noRetries(settings::kRetryFailedBatchRows.key, "0");
  mFutures.clear();
  auto strict = Start({.behaviour = {.onPredictBatched = FailRowsOf(0)}, .queuedBeforeStart = {7}});
  EXPECT_EQ(ResultOf(mFutures[0]), eInferenceFailure);
  EXPECT_EQ(strict->Batches(), (Rows{{7, 0, 0, 0}}));
  evaluator.reset();
  strict.reset();
  kivcore::logging::SetLogSink(previousSink);
}

// A description that is not a tensor's: no dummy row can be made from it.
class OpaqueDescription final : public kivcore::classref::Implements<IFeatureDescription> {
 public:
  kivcore::utility::ImmutableString GetName() const override {
    return kivcore::utility::ImmutableString::Create("opaque");
  }
  FeatureKind GetKind() const override { return FeatureKind::kOther; }
};

TEST_F(LocalEvaluatorTest, BatchThatCannotBePaddedFailsItsRequestsWithTheReason) {
  auto evaluator = FakeEvaluator::Create({}, mClock);
  evaluator->SetModel(
      kivcore::classref::MakeInterfaceRef<IMLModel>(kivcore::classref::CreateObject<FakeModel>(
          "opaque", FeatureDescriptionVector{kivcore::classref::MakeInterfaceRef<IFeatureDescription>(
                        kivcore::classref::CreateObject<OpaqueDescription>())})));
  evaluator->SetShouldUseBatching(true);
  const auto started = evaluator->Start();
  ASSERT_TRUE(started.WaitFor(kFutureTimeout));
  const auto previousSink = kivcore::logging::SetLogSink([](const std::string&) {});
  const auto future = evaluator->QueueFeatures(MakeRequest(1));
  EXPECT_EQ(ResultOf(future), kivcore::config::eNullPtrException);
  // The evaluator keeps serving: the next request gets the same answer, not silence.
  EXPECT_EQ(ResultOf(evaluator->QueueFeatures(MakeRequest(2))), kivcore::config::eNullPtrException);
  evaluator.reset();
  kivcore::logging::SetLogSink(previousSink);
}

TEST_F(LocalEvaluatorTest, SingleLoopFailsOnlyTheRequestThatThrowsAndSkipsAbandonedOnes) {
  auto evaluator = FakeEvaluator::Create({.onPredict =
                                              [](const utility::FeatureContainerVector& inputs) {
                                                if (ValueOf(inputs) == 2) {
                                                  throw kivcore::kiv_exception("bad row", eBadFeature);
                                                }
                                              }},
                                         mClock);
  evaluator->SetModel(MakeScalarModel());
  for (int32_t value = 1; value <= 3; ++value) {
    mFutures.push_back(evaluator->QueueFeatures(MakeRequest(value)));
  }
  (void)evaluator->QueueFeatures(MakeRequest(4));  // nobody waits for this one
  mFutures.push_back(evaluator->QueueFeatures(MakeRequest(5)));
  const auto started = evaluator->Start();
  ASSERT_TRUE(started.WaitFor(kFutureTimeout));
  ASSERT_EQ(started.Get(), 0);

  EXPECT_EQ(ResultOf(mFutures[0]), 0);
  EXPECT_EQ(ResultOf(mFutures[1]), eBadFeature);
  EXPECT_EQ(ResultOf(mFutures[2]), 0);
  EXPECT_EQ(ResultOf(mFutures[3]), 0);
  EXPECT_EQ(evaluator->Singles(), (std::vector<int32_t>{1, 2, 3, 5}));
  EXPECT_TRUE(evaluator->Batches().empty());
}

TEST_F(LocalEvaluatorTest, AnIdleLaneSpinsForTheSetTimeAndTakesWhatArrivesMeanwhileAtOnce) {
  {
    const ScopedSetting spin(settings::kIdleSpinMicroseconds.key, "250");
    auto evaluator = Start({.batched = false});
    std::promise<RequestFuture> queuedDuringSpin;
    std::promise<void> spunAgain;
    mClock->DuringNextSpin([&] {
      queuedDuringSpin.set_value(evaluator->QueueFeatures(MakeRequest(2)));
      mClock->DuringNextSpin([&] { spunAgain.set_value(); });
    });
    mFutures.push_back(evaluator->QueueFeatures(MakeRequest(1)));
    auto second = queuedDuringSpin.get_future();
    ASSERT_EQ(second.wait_for(kFutureTimeout), std::future_status::ready);
    mFutures.push_back(second.get());
    ExpectEchoed({1, 2});
    ASSERT_EQ(spunAgain.get_future().wait_for(kFutureTimeout), std::future_status::ready);
    // The first spin ended as 2 came, which so waited no time at all.
    EXPECT_EQ(mClock->Spins(), (std::vector<std::chrono::microseconds>{250us, 250us}));
    EXPECT_EQ(evaluator->GetStatistics().queueWait.max, 0ns);
  }
  {
    const ScopedSetting noSpin(settings::kIdleSpinMicroseconds.key, "0");
    auto clock = std::make_shared<ManualFillClock>();
    auto evaluator = FakeEvaluator::Create({}, clock);
    evaluator->SetModel(MakeScalarModel());
    const auto started = evaluator->Start();
    ASSERT_TRUE(started.WaitFor(kFutureTimeout));
    for (int32_t value : {3, 4}) {
      ASSERT_EQ(ResultOf(evaluator->QueueFeatures(MakeRequest(value))), 0);
    }
    EXPECT_TRUE(clock->Spins().empty());
  }
}

TEST_F(LocalEvaluatorTest, LifecyclePauseResumeAndDestructionWhilePaused) {
  auto evaluator = FakeEvaluator::Create({.loadResult = eBadFeatureDescriptions}, mClock);
  evaluator->SetModel(MakeScalarModel());
  EXPECT_FALSE(evaluator->Pause());
  EXPECT_FALSE(evaluator->Resume());

  const auto started = evaluator->Start();
  ASSERT_TRUE(started.WaitFor(kFutureTimeout));
  EXPECT_EQ(started.Get(), eBadFeatureDescriptions);  // the load's code, as is
  const auto again = evaluator->Start();
  ASSERT_TRUE(again.WaitFor(kFutureTimeout));
  EXPECT_EQ(again.Get(), kivcore::config::eInvalidArgument);
  EXPECT_EQ(evaluator->LoadCount(), 1);

  EXPECT_TRUE(evaluator->Pause());
  mFutures.push_back(evaluator->QueueFeatures(MakeRequest(1)));
  EXPECT_TRUE(evaluator->Resume());
  ASSERT_EQ(ResultOf(mFutures.back()), 0);

  ASSERT_TRUE(evaluator->Pause());
  for (int32_t value = 2; value <= 4; ++value) {
    mFutures.push_back(evaluator->QueueFeatures(MakeRequest(value)));
  }
  evaluator.reset();
  for (size_t i = 1; i < mFutures.size(); ++i) {
    EXPECT_EQ(ResultOf(mFutures[i]), eModelExecutionTerminated);
  }
}

TEST_F(LocalEvaluatorTest, BatchingFlagIsFixedAtStart) {
  auto evaluator = Start({.batched = false});
  evaluator->SetShouldUseBatching(true);
  mFutures.push_back(evaluator->QueueFeatures(MakeRequest(9)));
  ExpectEchoed({9});
  EXPECT_EQ(evaluator->Singles(), std::vector<int32_t>{9});
  EXPECT_TRUE(evaluator->Batches().empty());
}

TEST_F(LocalEvaluatorTest, SetModelSizesTheBatchFromFreeVideoMemory) {
  TraceCapture trace;
  const auto batchSizeWith = [](uint64_t freeVideoMemory, kivcore::classref::InterfaceRef<IMLModel> model) {
    auto evaluator = FakeEvaluator::Create({.freeVideoMemory = freeVideoMemory});
    evaluator->SetModel(std::move(model));
    return evaluator->GetBatchSize();
  };
  const auto noInputs = kivcore::classref::MakeInterfaceRef<IMLModel>(
      kivcore::classref::CreateObject<FakeModel>("empty", FeatureDescriptionVector()));
  EXPECT_EQ(batchSizeWith(1 << 30, noInputs), 1u);
  EXPECT_EQ(batchSizeWith(0, MakeScalarModel()), 8u);
  // A tenth of 800 bytes holds 20 four-byte rows: rounded up to 24.
  EXPECT_EQ(batchSizeWith(800, MakeScalarModel("sized")), 24u);
  EXPECT_TRUE(trace.Saw("Selected batch size for model: sized --> 24"));

  auto evaluator = FakeEvaluator::Create();
  try {
    evaluator->SetModel(nullptr);
    ADD_FAILURE() << "a missing model was accepted";
  } catch (const SetModelException& exception) {
    EXPECT_EQ(exception.GetResult(), kivcore::config::eNullPtrException);
    EXPECT_STREQ(exception.what(), "Exception in kivml::IMLEvaluatorPrivate::SetModel");
  }
}

}  // namespace
}  // namespace kivml::testing
