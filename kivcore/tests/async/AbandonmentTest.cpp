// The producer can tell when every consumer has let its future go, through copies and continuation chains.
#include <gtest/gtest.h>

#include <memory>
#include <optional>

#include "ManualExecutor.h"
#include "kivcore/async/Future.h"

namespace kivcore::async {
namespace {

using testing::ManualExecutor;

TEST(AbandonmentTest, APromiseIsAbandonedOnceTheLastCopyOfItsFutureIsGone) {
  Promise<int> promise(nullptr);
  EXPECT_FALSE(promise.IsAbandoned());  // nobody has had a chance to take the future yet
  std::optional<Future<int>> future = promise.GetFuture();
  std::optional<UntypedFuture> untyped = UntypedFuture(*future);
  future.reset();
  EXPECT_FALSE(promise.IsAbandoned());
  untyped.reset();
  EXPECT_TRUE(promise.IsAbandoned());
  EXPECT_FALSE(promise.SetValue(1));
  EXPECT_FALSE(promise.GetFuture().IsValid());
}

TEST(AbandonmentTest, OnlyTheContinuationsWhoseResultIsHeldKeepTheProducerAndRun) {
  auto executor = std::make_shared<ManualExecutor>();
  Promise<int> producer(executor);
  int runs = 0;
  std::optional<Future<int>> chainEnd = producer.GetFuture()
                                            .Then([&](const Future<int>& f) { return ++runs + f.Get(); })
                                            .Then([&](const Future<int>& f) { return ++runs + f.Get(); });
  std::optional<Future<int>> branch = producer.GetFuture().Then([&](const Future<int>&) { return ++runs; });
  branch.reset();
  EXPECT_FALSE(producer.IsAbandoned());  // the live end keeps the whole chain
  chainEnd.reset();
  EXPECT_TRUE(producer.IsAbandoned());
  EXPECT_FALSE(producer.SetValue(1));
  EXPECT_EQ(executor->RunAll(), 0);

  Promise<int> shared(executor);
  Future<int> kept = shared.GetFuture();
  Future<int> live = kept.Then([&](const Future<int>& f) { return ++runs + f.Get(); });
  (void)kept.Then([&](const Future<int>& f) { return ++runs + f.Get(); });  // result dropped at once
  shared.SetValue(1);
  EXPECT_EQ(executor->RunAll(), 1);  // the dropped one is skipped although its upstream lives
  EXPECT_EQ(live.Get(), 2);
}

TEST(AbandonmentTest, AbandonmentReachesTheFutureAFlattenedContinuationFollows) {
  auto executor = std::make_shared<ManualExecutor>();
  Promise<int> outer(executor);
  Promise<int> inner(executor);
  std::optional<Future<int>> result =
      outer.GetFuture().Then([&](const Future<int>&) { return inner.GetFuture(); });
  outer.SetValue(0);
  executor->RunAll();
  EXPECT_FALSE(inner.IsAbandoned());
  result.reset();
  EXPECT_TRUE(inner.IsAbandoned());
}

}  // namespace
}  // namespace kivcore::async
