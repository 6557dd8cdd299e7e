// Joining futures: completes after all of them, with the failure of the earliest added.
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <vector>

#include "ManualExecutor.h"
#include "kivcore/async/CompoundFuture.h"
#include "kivcore/async/FutureIsCancelledException.h"

namespace kivcore::async {
namespace {

TEST(CompoundFutureTest, CompletesOnlyAfterEveryAddedFutureEvenWhenNobodyHoldsThem) {
  auto executor = std::make_shared<testing::ManualExecutor>();
  std::vector<Promise<int>> promises(3);
  Future<void> joined;
  {
    auto compound = CompoundFuture::Create(executor);
    for (Promise<int>& promise : promises) {
      EXPECT_TRUE(compound->Add(promise.GetFuture()));  // the caller keeps neither future nor compound
    }
    EXPECT_TRUE(compound->Add(MakeReadyFuture()));
    joined = compound->Seal();
    EXPECT_FALSE(compound->Add(MakeReadyFuture()));
  }
  bool ran = false;
  Future<void> after = joined.Then([&](const Future<void>&) { ran = true; });
  promises[2].SetValue(2);
  promises[0].SetValue(0);
  EXPECT_FALSE(joined.IsReady());
  promises[1].SetValue(1);
  EXPECT_TRUE(joined.HasValue());
  EXPECT_EQ(executor->RunAll(), 1);  // continuations go to the compound's executor
  EXPECT_TRUE(ran);
}

TEST(CompoundFutureTest, FailsWithTheExceptionOfTheEarliestAddedFailure) {
  auto compound = CompoundFuture::Create(nullptr);
  Promise<int> first(nullptr);
  Promise<void> second(nullptr);
  compound->Add(MakeReadyFuture(1));
  compound->Add(first.GetFuture());
  compound->Add(second.GetFuture());
  compound->Add(Future<int>());  // no state: counts as cancelled
  Future<void> joined = compound->Seal();
  second.SetException(std::logic_error("second"));
  EXPECT_FALSE(joined.IsReady());
  first.SetException(std::out_of_range("first"));
  EXPECT_THROW(joined.Get(), std::out_of_range);

  auto onlyCancelled = CompoundFuture::Create(nullptr);
  onlyCancelled->Add(Future<int>());
  EXPECT_THROW(onlyCancelled->Seal().Get(), FutureIsCancelledException);
  EXPECT_TRUE(CompoundFuture::Create(nullptr)->Seal().HasValue());  // nothing added: complete at once
}

}  // namespace
}  // namespace kivcore::async
