#pragma once
// Checks shared by the async suites.

#include <gtest/gtest.h>

#include <condition_variable>
#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <string>

#include "kivcore/threads/AsyncThreadedExecutor.h"

namespace kivcore::async::testing {

// A thread-backed executor whose workers a test can recognise (IsCurrentThreadWorker).
inline std::shared_ptr<threads::AsyncThreadedExecutor> MakeThreadExecutor(int threadCount = 1) {
  return threads::CreateAsyncThreadedExecutor("async-test", threadCount, threads::ThreadPriority::kNormal, {},
                                              {}, threads::ThreadAttributes{});
}

// A reusable barrier for `count` threads, over a mutex and a condition variable (see Latch for why not
// std::barrier).
class CyclicBarrier {
 public:
  explicit CyclicBarrier(int count) : mCount(count), mWaiting(0) {}

  void ArriveAndWait() {
    std::unique_lock lock(mMutex);
    const uint64_t phase = mPhase;
    if (++mWaiting == mCount) {
      mWaiting = 0;
      ++mPhase;
      mNextPhase.notify_all();
      return;
    }
    mNextPhase.wait(lock, [&] { return mPhase != phase; });
  }

 private:
  std::mutex mMutex;
  std::condition_variable mNextPhase;
  const int mCount;
  int mWaiting;  // guarded by mMutex, as is mPhase
  uint64_t mPhase = 0;
};

// Expects `exception` to hold an E with the given message and result code.
template <class E>
void ExpectKivException(const std::exception_ptr& exception, const std::string& message, unsigned code) {
  try {
    std::rethrow_exception(exception);
  } catch (const E& e) {
    EXPECT_EQ(e.what(), message);
    EXPECT_EQ(static_cast<unsigned>(e.GetResult()), code);
  } catch (...) {
    ADD_FAILURE() << "another exception than expected";
  }
}

// Expects `fn` to throw an E with the given message and result code.
template <class E, class Fn>
void ExpectThrowsKiv(Fn&& fn, const std::string& message, unsigned code) {
  try {
    fn();
  } catch (...) {
    ExpectKivException<E>(std::current_exception(), message, code);
    return;
  }
  ADD_FAILURE() << "nothing thrown";
}

}  // namespace kivcore::async::testing
