// A host that exits while it still holds an evaluator with a long queue: the worker may still be running
// a prediction while exit tears down static state. Each case runs in a child process (a death test) that
// queues its requests and exits with status 0; a crash in the teardown fails the case. Repeated because
// the crash depends on where the worker is when exit begins.

#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

#include "kivml/ResultCodes.h"
#include "onnxruntime/OrtTestSupport.h"
#include "support/Wine.h"

namespace kivml::testing {
namespace {

using kivcore::classref::InterfaceRef;
using Future = kivcore::async::Future<utility::FeatureContainerVector>;

kivcore::classref::InterfaceRef<IMLEvaluator> gHeldInAStatic;
// The answers are held through the exit, reachable, so that leak checkers do not count them.
std::vector<Future>* gAnswers = nullptr;

// Under Wine every child process takes seconds to start.
int Repeats() {
  return RunningUnderWine() ? 2 : 12;
}

class ProcessExitTest : public OrtTest, public ::testing::WithParamInterface<BatchedInference> {
 protected:
  static void SetUpTestSuite() {
    OrtTest::SetUpTestSuite();
    // The child re-runs this program rather than forking it: the parent has worker threads.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
  }

  // A started evaluator of the "add" model with `count` requests queued. Their futures are kept (and
  // never released, as exit skips them), so the worker predicts rather than skipping abandoned requests.
  static InterfaceRef<IMLEvaluator> StartWithQueue(size_t count) {
    auto evaluator = Start(CreateONNXModelFromFile(TestModelPath("add")), GetParam());
    if (!evaluator) {
      std::_Exit(3);
    }
    gAnswers = new std::vector<Future>();
    gAnswers->reserve(count);
    for (size_t i = 0; i < count; ++i) {
      const float value = static_cast<float>(i);
      gAnswers->push_back(
          evaluator->QueueFeatures(MakeInputs({{"input1", MakeTensor<float>({1, 3}, {value, value, value})},
                                               {"input2", MakeTensor<float>({1, 3}, {1, 1, 1})}})));
    }
    return evaluator;
  }
};

TEST_P(ProcessExitTest, ExitWithAHeldEvaluatorAndALongQueue) {
  for (int run = 0; run < Repeats(); ++run) {
    EXPECT_EXIT(
        {
          const auto evaluator = StartWithQueue(20000);
          std::exit(0);  // `evaluator` is never released
        },
        ::testing::ExitedWithCode(0), "");
  }
}

TEST_P(ProcessExitTest, ExitWithTheEvaluatorInAStatic) {
  for (int run = 0; run < Repeats(); ++run) {
    EXPECT_EXIT(
        {
          gHeldInAStatic = StartWithQueue(5000);
          std::exit(0);
        },
        ::testing::ExitedWithCode(0), "");
  }
}

TEST_P(ProcessExitTest, ExitRightAfterLettingGoOfABusyEvaluator) {
  // As a host that returns from main: its evaluator goes first, so the busy worker destroys it.
  for (int run = 0; run < Repeats(); ++run) {
    EXPECT_EXIT(
        {
          StartWithQueue(5000);
          std::exit(0);
        },
        ::testing::ExitedWithCode(0), "");
  }
}

INSTANTIATE_TEST_SUITE_P(BothModes, ProcessExitTest,
                         ::testing::Values(kBatchedInference, kUnbatchedInference), [](const auto& param) {
                           return param.param == kBatchedInference ? "Batched" : "Unbatched";
                         });

}  // namespace
}  // namespace kivml::testing
