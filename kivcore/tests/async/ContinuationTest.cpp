// Then and OnComplete: where continuations run, how often, and what they pass on.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "AsyncTestSupport.h"
#include "ManualExecutor.h"
#include "kivcore/async/ExecutorIsTerminatedException.h"
#include "kivcore/async/Future.h"
#include "kivcore/async/FutureIsCancelledException.h"

namespace kivcore::async {
namespace {

using testing::ExpectKivException;
using testing::MakeThreadExecutor;
using testing::ManualExecutor;

TEST(ContinuationTest, ContinuationsRunOnTheExecutorAskedFor) {
  auto promiseExecutor = MakeThreadExecutor();
  auto explicitExecutor = MakeThreadExecutor();
  Promise<int> promise(promiseExecutor);
  Future<bool> onPromiseExecutor =
      promise.GetFuture().Then([&](const Future<int>&) { return promiseExecutor->IsCurrentThreadWorker(); });
  Future<bool> onExplicit = promise.GetFuture().Then(
      explicitExecutor, [&](const Future<int>&) { return explicitExecutor->IsCurrentThreadWorker(); });
  // A resulting future's own continuations default to the executor its continuation ran on.
  Future<bool> inherited =
      onExplicit.Then([&](const Future<bool>&) { return explicitExecutor->IsCurrentThreadWorker(); });
  Promise<int> withDefaultExecutor;
  Future<bool> offTestThread = withDefaultExecutor.GetFuture().Then(
      [test = std::this_thread::get_id()](const Future<int>&) { return std::this_thread::get_id() != test; });
  promise.SetValue(0);
  withDefaultExecutor.SetValue(0);
  for (const Future<bool>* check : {&onPromiseExecutor, &onExplicit, &inherited, &offTestThread}) {
    check->Wait();
    EXPECT_TRUE(check->Get());
  }
}

TEST(ContinuationTest, ContinuationsArePostedOnceInAttachOrderAndNeverRunInline) {
  auto executor = std::make_shared<ManualExecutor>();
  Promise<int> promise(executor);
  Future<int> future = promise.GetFuture();
  std::vector<int> order;
  std::vector<Future<void>> results;
  for (int i = 0; i < 3; ++i) {
    results.push_back(future.Then([&order, i](const Future<int>&) { order.push_back(i); }));
  }
  promise.SetValue(1);
  results.push_back(future.Then([&order](const Future<int>&) { order.push_back(3); }));
  EXPECT_TRUE(order.empty());  // neither completing nor attaching to a completed future runs anything
  EXPECT_EQ(executor->RunAll(), 4);
  EXPECT_EQ(executor->RunAll(), 0);
  EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3}));
}

TEST(ContinuationTest, ExceptionsPropagateThroughAChain) {
  auto executor = std::make_shared<ManualExecutor>();
  Promise<int> promise(executor);
  bool sawError = false;
  Future<std::string> end = promise.GetFuture()
                                .Then([](const Future<int>& f) -> int {
                                  throw std::runtime_error("step " + std::to_string(f.Get()));
                                })
                                .Then([&](const Future<int>& f) {
                                  sawError = f.HasException();
                                  return f.Get() * 2;  // rethrows
                                })
                                .Then([](const Future<int>& f) { return std::to_string(f.Get()); });
  promise.SetValue(1);
  executor->RunAll();
  EXPECT_TRUE(sawError);
  try {
    end.Get();
    ADD_FAILURE() << "no exception";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(), "step 1");
  }
}

TEST(ContinuationTest, AReturnedFutureIsFlattened) {
  auto executor = std::make_shared<ManualExecutor>();
  Promise<int> outer(executor);
  Promise<std::string> inner(executor);
  Future<std::string> innerFuture = inner.GetFuture();
  Future<std::string> flattened = outer.GetFuture().Then([&](const Future<int>&) { return innerFuture; });
  Future<int> failed = outer.GetFuture().Then([](const Future<int>&) {
    return MakeExceptionalFuture<int>(std::make_exception_ptr(std::out_of_range("inner")));
  });
  Future<int> stateless = outer.GetFuture().Then([](const Future<int>&) { return Future<int>(); });
  outer.SetValue(1);
  executor->RunAll();
  EXPECT_FALSE(flattened.IsReady());  // it follows the inner future, not the outer one
  inner.SetValue("inner value");
  EXPECT_EQ(flattened.Get(), "inner value");
  EXPECT_EQ(innerFuture.Get(), "inner value");  // copied, not taken from the inner future's other readers
  EXPECT_THROW(failed.Get(), std::out_of_range);
  EXPECT_THROW(stateless.Get(), FutureIsCancelledException);
}

TEST(ContinuationTest, ARefusedOrDroppedContinuationFailsWithExecutorIsTerminated) {
  auto refusing = std::make_shared<ManualExecutor>();
  refusing->Shutdown();
  auto dropping = std::make_shared<ManualExecutor>();
  bool ran = false;
  Future<bool> refused = MakeReadyFuture(1).Then(refusing, [&](const Future<int>&) { return ran = true; });
  Future<bool> dropped = MakeReadyFuture(1).Then(dropping, [&](const Future<int>&) { return ran = true; });
  dropping->Shutdown();  // destroys the queued continuation unrun
  EXPECT_FALSE(ran);
  ExpectKivException<ExecutorIsTerminatedException>(refused.GetException(), "Executor Is Terminated",
                                                    0xF3610003u);
  ExpectKivException<ExecutorIsTerminatedException>(dropped.GetException(), "Executor Is Terminated",
                                                    0xF3610003u);
}

TEST(ContinuationTest, OnCompleteRunsOnItsExecutorEvenWhenNobodyHoldsTheFuture) {
  auto executor = std::make_shared<ManualExecutor>();
  Promise<void> promise(nullptr);
  int runs = 0;
  UntypedFuture(promise.GetFuture()).OnComplete(executor, [&] { ++runs; });
  EXPECT_FALSE(promise.IsAbandoned());  // the pending callback keeps the state
  promise.SetValue();
  UntypedFuture(MakeReadyFuture()).OnComplete(executor, [&] { ++runs; });
  EXPECT_EQ(runs, 0);
  EXPECT_EQ(executor->RunAll(), 2);
  EXPECT_EQ(runs, 2);
}

}  // namespace
}  // namespace kivcore::async

namespace kivcore::async {
namespace {

// Runs each task as it is posted: a continuation attached with it runs inside the completion it follows.
class InlineExecutor final : public AsyncExecutor {
 public:
  bool Post(std::function<void()> task, int /*priority*/) override {
    task();
    return true;
  }
  void Pause() override {}
  void Resume() override {}
  bool IsPaused() const override { return false; }
  void Shutdown() override {}
  bool IsTerminated() const override { return false; }
};

// A host that sees the result may let go of everything and exit at once, so what the continuation captured
// must be gone by then, whether it returned or threw.
TEST(ContinuationTest, ACapturedObjectIsReleasedBeforeTheResultCompletes) {
  auto executor = std::make_shared<ManualExecutor>();
  const auto inlineExecutor = std::make_shared<InlineExecutor>();
  for (const bool throws : {false, true}) {
    SCOPED_TRACE(throws ? "throws" : "returns");
    Promise<int> promise(executor);
    auto captured = std::make_shared<int>(7);
    const std::weak_ptr<int> watch = captured;
    Future<int> result =
        promise.GetFuture().Then([captured = std::move(captured), throws](const Future<int>&) {
          if (throws) {
            throw std::runtime_error("no");
          }
          return *captured;
        });
    Future<bool> releasedBeforehand =
        result.Then(inlineExecutor, [watch](const Future<int>&) { return watch.expired(); });
    promise.SetValue(0);
    executor->RunAll();
    ASSERT_TRUE(releasedBeforehand.IsReady());
    EXPECT_TRUE(releasedBeforehand.Get());
    EXPECT_EQ(result.HasException(), throws);
  }
}

}  // namespace
}  // namespace kivcore::async
