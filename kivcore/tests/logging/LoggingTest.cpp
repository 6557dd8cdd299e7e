#include "kivcore/logging/Logging.h"

#include <gtest/gtest.h>

#include <atomic>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "kivcore/config/ResultCodes.h"
#include "kivcore/config/kiv_exception.h"
#include "kivcore/logging/ExceptionFilter.h"
#include "kivcore/string/StringConversions.h"

namespace kivcore::logging {
namespace {

class LoggingTest : public ::testing::Test {
 protected:
  ~LoggingTest() override { SetLogSink(mPrevious); }

  // Logs `exception`, checking that the message handed back is the logged line.
  std::string Logged(const std::exception_ptr& exception, utility::StringValue context) {
    u8string message;
    LogException(exception, std::move(context), &message);
    EXPECT_EQ(mLast, string::ToStdString(message));
    return mLast;
  }

  std::string mLast;  // the line logged last
  LogSink mPrevious = SetLogSink([this](const std::string& line) { mLast = line; });
};

TEST_F(LoggingTest, ExceptionsAreLoggedWithTypeCodeAndSite) {
  EXPECT_EQ(Logged(std::make_exception_ptr(kiv_exception("model is corrupt", MakeErrorCode(0x7865, 0x42))),
                   "loading model"),
            "Exception in loading model: kivcore::config::kiv_exception 0xF8650042 model is corrupt");
  EXPECT_EQ(Logged(std::make_exception_ptr(std::bad_alloc()), "allocating"),
            "Exception in allocating: std::bad_alloc 0xF8650032 std::bad_alloc");
  EXPECT_EQ(Logged(std::make_exception_ptr(42), "Predict"),
            "Exception in Predict: unknown exception 0xF8650001");
  EXPECT_EQ(Logged(std::exception_ptr(), ""), "Exception: no exception");
  LogException(std::make_exception_ptr(std::invalid_argument("bad shape")),
               utility::StringValue(string::ToU8("feature"), string::ToU8("age")), nullptr);
  EXPECT_EQ(mLast, "Exception in feature: age: std::invalid_argument 0xF8650001 bad shape");

  u8string message;  // machine exceptions, logged directly or by their filter
  LogMachineException(0x1Fu, nullptr, &message);
  EXPECT_EQ(string::ToStdString(message), "Machine exception 0x0000001F");
  EXPECT_EQ(mLast, "Machine exception 0x0000001F");
  using namespace utility::exceptions;
  EXPECT_EQ(InternalHiddenFilterWindowsSEHException(0xC00000FDu, true, "eval.cpp", 42, "Evaluate"),
            kExceptionExecuteHandler);
  EXPECT_EQ(mLast, "Machine exception 0xC00000FD in Evaluate at eval.cpp:42");
  EXPECT_EQ(InternalHiddenFilterWindowsSEHException(0xC0000094u, false, nullptr, 7, nullptr),
            kExceptionContinueSearch);
  EXPECT_EQ(mLast, "Machine exception 0xC0000094 in unknown context at ?:7");
}

TEST_F(LoggingTest, SinksSwapAndSeeEveryLineFromEveryThread) {
  std::atomic<int> lines{0};
  LogSink ours = SetLogSink([&lines](const std::string&) { ++lines; });
  {
    std::vector<std::jthread> threads;
    for (int t = 0; t < 4; ++t) {
      threads.emplace_back([] {
        for (int i = 0; i < 100; ++i) {
          LogMessage("from a worker");
        }
      });
    }
  }
  EXPECT_EQ(lines.load(), 400);
  EXPECT_TRUE(SetLogSink(std::move(ours)));  // the previous sink comes back
  LogMessage("back again");
  EXPECT_EQ(mLast, "back again");

  ours = SetLogSink({});  // the default writes whole lines to standard error
  ::testing::internal::CaptureStderr();
  LogMessage("to stderr");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "to stderr\n");
  EXPECT_FALSE(SetLogSink(ours));
}

}  // namespace
}  // namespace kivcore::logging
