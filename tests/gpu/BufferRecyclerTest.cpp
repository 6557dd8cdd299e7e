#include "kivml/gpu/BufferRecycler.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

#include "kivcore/config/InitializerRegistrar.h"
#include "kivcore/config/ResultCodes.h"
#include "kivcore/threads/AsyncThreadedExecutor.h"
#include "support/FutureChecks.h"

namespace kivml::gpu {
namespace {

using namespace std::chrono_literals;
using kivml::testing::ResultOf;
using Buffer = std::shared_ptr<uint64_t>;
using LeaseFuture = kivcore::async::Future<Buffer>;

// Buffers are numbered from 1 in the order they are made; the log tells kept buffers from destroyed ones.
struct BufferLog {
  std::atomic<uint64_t> made{0};
  std::atomic<uint64_t> destroyed{0};
  uint64_t Alive() const { return made - destroyed; }
};

Buffer MakeBuffer(const std::shared_ptr<BufferLog>& log) {
  return Buffer(new uint64_t(++log->made), [log](uint64_t* buffer) {
    ++log->destroyed;
    delete buffer;
  });
}

class TestRecycler final : public BufferRecycler<Buffer> {
 public:
  TestRecycler(std::shared_ptr<kivcore::async::AsyncExecutor> parent, size_t count,
               std::shared_ptr<BufferLog> log)
      : BufferRecycler(std::move(parent), count), mLog(std::move(log)) {}

  std::atomic<bool> mCanCreate{true};
  std::atomic<int> mPreparedForUse{0};
  std::atomic<int> mPreparedForRecycling{0};

 protected:
  Buffer CreateBuffer() override { return mCanCreate ? MakeBuffer(mLog) : nullptr; }
  void PrepareBufferForUse(Buffer& /*buffer*/) override { ++mPreparedForUse; }
  void PrepareBufferForRecycling(Buffer& /*buffer*/) override { ++mPreparedForRecycling; }

 private:
  const std::shared_ptr<BufferLog> mLog;
};

class BufferRecyclerTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_TRUE(kivcore::config::RunInitializers()); }

  std::shared_ptr<TestRecycler> MakePool(size_t count) {
    return std::make_shared<TestRecycler>(mExecutor, count, mLog);
  }

  // Moves the lease out: a future holding it would keep the lease from ending.
  static Buffer Take(LeaseFuture future) {
    EXPECT_TRUE(future.WaitFor(5s));
    return future.HasValue() ? future.Take() : nullptr;
  }
  static std::vector<Buffer> TakeMany(TestRecycler& pool, int count) {
    std::vector<Buffer> leases;
    for (int i = 0; i < count; ++i) {
      leases.push_back(Take(pool.GetBuffer()));
    }
    return leases;
  }

  const std::shared_ptr<BufferLog> mLog = std::make_shared<BufferLog>();
  const std::shared_ptr<kivcore::threads::AsyncThreadedExecutor> mExecutor =
      kivcore::threads::CreateAsyncThreadedExecutor("BufferRecyclerTest", 2,
                                                    kivcore::threads::ThreadPriority::kNormal, {}, {},
                                                    kivcore::threads::ThreadAttributes());
};

TEST_F(BufferRecyclerTest, GrowsToTwiceItsCountThenServesWaitersInOrder) {
  const auto pool = MakePool(2);
  EXPECT_EQ(pool->Initialize(), 2U);
  std::vector<Buffer> leases = TakeMany(*pool, 4);
  EXPECT_EQ(*leases[0], 2U);  // the most recently pushed first
  EXPECT_EQ(*leases[1], 1U);
  LeaseFuture first = pool->GetBuffer();
  LeaseFuture abandoned = pool->GetBuffer();
  const LeaseFuture last = pool->GetBuffer();
  abandoned = LeaseFuture();
  EXPECT_FALSE(first.WaitFor(300ms));

  const uint64_t* returned = leases[2].get();
  leases[2].reset();
  const Buffer served = Take(first);
  EXPECT_EQ(served.get(), returned);
  EXPECT_FALSE(last.IsReady());
  returned = leases[0].get();
  leases[0].reset();
  EXPECT_EQ(Take(last).get(), returned);
  EXPECT_EQ(mLog->made, 4U);
}

TEST_F(BufferRecyclerTest, SettlesBackToItsCount) {
  const auto pool = MakePool(2);
  pool->Initialize();
  TakeMany(*pool, 4);
  // Served after the four returns: only two buffers were kept, and are leased again.
  const std::vector<Buffer> again = TakeMany(*pool, 2);
  EXPECT_EQ(mLog->made, 4U);
  EXPECT_EQ(mLog->Alive(), 2U);
  EXPECT_EQ(pool->mPreparedForRecycling, 2);
  EXPECT_EQ(pool->mPreparedForUse, 4);  // made on demand, two of the four skipped it
}

TEST_F(BufferRecyclerTest, FailsOnlyWhenNoBufferCanEverCome) {
  const auto empty = MakePool(2);
  empty->mCanCreate = false;
  try {
    empty->Initialize();
    ADD_FAILURE() << "Initialize made no buffer yet returned";
  } catch (const kivcore::kiv_exception& exception) {
    EXPECT_EQ(exception.GetResult(), kivcore::config::eBadAllocException);
  }
  EXPECT_EQ(ResultOf(empty->GetBuffer()), kivcore::config::eBadAllocException);
  TestRecycler unowned(mExecutor, 1, mLog);
  EXPECT_THROW(unowned.GetBuffer(), std::bad_weak_ptr);

  // With a buffer leased, a failed creation waits for it instead.
  const auto pool = MakePool(1);
  pool->Initialize();
  Buffer lease = Take(pool->GetBuffer());
  pool->mCanCreate = false;
  const LeaseFuture waiting = pool->GetBuffer();
  EXPECT_FALSE(waiting.WaitFor(300ms));
  lease.reset();
  EXPECT_TRUE(Take(waiting));

  // Dropped by the parent's shutdown, then refused.
  mExecutor->Pause();
  const LeaseFuture dropped = pool->GetBuffer();
  mExecutor->Shutdown();
  EXPECT_EQ(ResultOf(dropped), kivcore::async::eExecutorIsTerminated);
  EXPECT_EQ(ResultOf(pool->GetBuffer()), kivcore::async::eExecutorIsTerminated);
}

TEST_F(BufferRecyclerTest, LeasesAndWaitersOutliveTheirPool) {
  auto pool = MakePool(1);
  pool->Initialize();
  std::vector<Buffer> leases = TakeMany(*pool, 2);
  const LeaseFuture waiting = pool->GetBuffer();
  pool.reset();
  EXPECT_EQ(ResultOf(waiting), kivcore::async::eBrokenPromise);
  EXPECT_EQ(*leases[0], 1U);
  leases.clear();
  EXPECT_EQ(mLog->Alive(), 0U);

  EXPECT_EQ(RecycledBuffer<Buffer>::Create(MakePool(1), nullptr), nullptr);
  Buffer unpooled = RecycledBuffer<Buffer>::Create({}, MakeBuffer(mLog));
  ASSERT_TRUE(unpooled);
  unpooled.reset();
  EXPECT_EQ(mLog->Alive(), 0U);
}

}  // namespace
}  // namespace kivml::gpu
