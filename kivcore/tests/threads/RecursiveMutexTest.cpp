#include <gtest/gtest.h>

#include <future>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "ThreadTestSupport.h"
#include "kivcore/config/ResultCodes.h"
#include "kivcore/threads/Gate.h"
#include "kivcore/threads/Latch.h"
#include "kivcore/threads/LockTimeoutException.h"
#include "kivcore/threads/ScopedLock.h"

namespace kivcore::threads {
namespace {

using namespace testing;

bool TryLockElsewhere(const RecursiveMutex& mutex) {
  return std::async(std::launch::async,
                    [&mutex] {
                      const bool locked = mutex.TryLock("elsewhere");
                      if (locked) {
                        mutex.Unlock();
                      }
                      return locked;
                    })
      .get();
}

TEST(RecursiveMutexTest, HolderReentersAndReleasesAfterTheLastUnlock) {
  const RecursiveMutex mutex(nullptr);
  ScopedLock outer(mutex, "outer");
  {
    ScopedLock inner(mutex, "inner", 1ms);  // re-entry never waits
    EXPECT_TRUE(mutex.TryLock("innermost"));
    mutex.Unlock();
  }
  EXPECT_TRUE(mutex.IsLockedByCurrentThread());
  EXPECT_FALSE(TryLockElsewhere(mutex));
  outer.Unlock();
  EXPECT_TRUE(TryLockElsewhere(mutex));
}

TEST(RecursiveMutexTest, TimeOutNamesTheMutexBothSitesAndTheHoldingThread) {
  LogCapture log;
  const RecursiveMutex mutex("model-cache");
  kivcore::threads::Latch held(1);
  Gate release(false);
  std::ostringstream holderId;
  std::thread holder([&] {
    holderId << std::this_thread::get_id();
    ScopedLock outer(mutex, "Loader::Load");
    ScopedLock inner(mutex, "Loader::Parse");
    held.CountDown();
    release.PassThroughFor(kPatience);
  });
  held.Wait();
  std::string message;
  try {
    ScopedLock waiting(mutex, "Session::Run", 30ms);
    ADD_FAILURE() << "the lock was taken while another thread held it";
  } catch (const LockTimeoutException& e) {
    EXPECT_EQ(e.GetResult(), config::eLockTimeoutException);
    message = e.what();
  }
  release.Open();
  holder.join();
  for (const std::string& part :
       {std::string("model-cache"), std::string("Session::Run"), std::string("Loader::Load"),
        std::string("30 ms"), "thread " + holderId.str()}) {
    EXPECT_NE(message.find(part), std::string::npos) << part << " missing from: " << message;
  }
  EXPECT_NE(log.Text().find(message), std::string::npos);
  EXPECT_TRUE(TryLockElsewhere(mutex)) << "a timed-out waiter left the mutex held";
}

TEST(RecursiveMutexTest, ExcludesOtherThreadsAndHandsOverToWaiters) {
  const RecursiveMutex mutex("counter");
  long counter = 0;  // guarded by mutex; TSan reports any hole in the exclusion
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 5000; ++i) {
        ScopedLock outer(mutex, "outer", kPatience);
        ScopedLock inner(mutex, "inner", kPatience);
        ++counter;
      }
    });
  }
  for (auto& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(counter, 20000);
}

}  // namespace
}  // namespace kivcore::threads
