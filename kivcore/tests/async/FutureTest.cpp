// Completing and reading: values, exceptions, broken promises, futures without a state.
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "AsyncTestSupport.h"
#include "kivcore/async/BrokenPromiseException.h"
#include "kivcore/async/Future.h"
#include "kivcore/async/FutureIsCancelledException.h"
#include "kivcore/async/FutureNotReadyException.h"

namespace kivcore::async {
namespace {

using testing::ExpectKivException;
using testing::ExpectThrowsKiv;

TEST(FutureTest, ReadsNeverBlockAndEveryCopySeesTheFirstResult) {
  Promise<std::unique_ptr<int>> promise(nullptr);
  const Future<std::unique_ptr<int>> first = promise.GetFuture();
  Future<std::unique_ptr<int>> second = promise.GetFuture();
  ExpectThrowsKiv<FutureNotReadyException>([&] { first.Get(); }, "Future: Not Ready", 0xF3610002u);
  EXPECT_TRUE(promise.SetValue(std::make_unique<int>(7)));
  EXPECT_FALSE(promise.SetValue(nullptr));
  EXPECT_FALSE(promise.SetException(std::make_exception_ptr(std::runtime_error("late"))));
  EXPECT_EQ(&first.Get(), &second.Get());  // copies share one state
  EXPECT_EQ(*second.Take(), 7);
  EXPECT_EQ(first.Get(), nullptr);  // Take moved the value out for every reader

  Promise<void> failing(nullptr);
  Future<void> failed = failing.GetFuture();
  EXPECT_FALSE(failing.SetException(std::exception_ptr()));  // a null exception could not be rethrown
  EXPECT_TRUE(failing.SetException(std::invalid_argument("bad input")));
  EXPECT_FALSE(failing.SetValue());
  EXPECT_THROW(failed.Get(), std::invalid_argument);
  EXPECT_THROW(std::rethrow_exception(UntypedFuture(failed).GetException()), std::invalid_argument);
}

TEST(FutureTest, APromiseDestroyedUnfulfilledBreaksItsFuture) {
  Future<int> broken;
  Future<void> fulfilled;
  {
    Promise<int> promise(nullptr);
    broken = promise.GetFuture();
    Promise<void> other(nullptr);
    fulfilled = other.GetFuture();
    other.SetValue();
  }
  ExpectKivException<BrokenPromiseException>(broken.GetException(), "Future: Broken Promise", 0xF3610001u);
  EXPECT_NO_THROW(fulfilled.Get());

  Promise<int> assigned(nullptr);
  Future<int> replaced = assigned.GetFuture();
  Promise<int> moved = std::move(assigned);
  EXPECT_FALSE(assigned.SetValue(1));  // NOLINT(bugprone-use-after-move): a moved-from promise is empty
  EXPECT_TRUE(assigned.IsAbandoned());
  moved = Promise<int>(nullptr);  // assigning over a live promise breaks its state
  EXPECT_THROW(replaced.Get(), BrokenPromiseException);
}

TEST(FutureTest, AFutureWithoutStateReadsAsCancelled) {
  const Future<int> empty;
  EXPECT_FALSE(empty.IsValid() || empty.IsReady());
  ExpectThrowsKiv<FutureIsCancelledException>([&] { empty.Get(); }, "Future Is Cancelled", 0xF3610004u);
  EXPECT_THROW(empty.Wait(), FutureIsCancelledException);
  EXPECT_THROW(UntypedFuture(empty).OnComplete(nullptr, [] {}), FutureIsCancelledException);
  EXPECT_THROW(empty.Then([](const Future<int>& f) { return f.Get(); }).Get(), FutureIsCancelledException);
}

}  // namespace
}  // namespace kivcore::async
