#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>

#include "ThreadTestSupport.h"
#include "kivcore/threads/Gate.h"

namespace kivcore::threads {
namespace {

using namespace testing;
using Clock = std::chrono::steady_clock;

TEST(GateTest, WaitsHonourTheirDeadlineAndAnOpenGateNeverWaits) {
  Gate gate(false);
  const auto deadline = Clock::now() + 40ms;
  EXPECT_FALSE(gate.PassThroughUntil(deadline));
  EXPECT_GE(Clock::now(), deadline);
  EXPECT_FALSE(gate.PassThroughUntil(Clock::now() - 1s));
  gate.Open();
  EXPECT_TRUE(gate.IsOpen());
  EXPECT_TRUE(gate.PassThroughUntil(Clock::now() - 1s));
  gate.Close();
  EXPECT_FALSE(gate.PassThroughFor(1ms));
}

TEST(GateTest, OpeningFromAnotherThreadReleasesEveryWaiterBeforeTheirDeadline) {
  Gate gate(false);
  const auto deadline = Clock::now() + kPatience;
  auto first = std::async(std::launch::async, [&] { return gate.PassThroughUntil(deadline); });
  auto second = std::async(std::launch::async, [&] { return gate.PassThroughFor(kPatience); });
  std::this_thread::sleep_for(20ms);
  gate.Open();
  EXPECT_TRUE(first.get());
  EXPECT_TRUE(second.get());
  EXPECT_LT(Clock::now(), deadline) << "waiters were released by the deadline, not by Open";
}

}  // namespace
}  // namespace kivcore::threads
