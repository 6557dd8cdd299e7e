#include "kivcore/logging/Logging.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <mutex>
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
  void SetUp() override {
    mPrevious = SetLogSink([this](const std::string& line) {
      std::lock_guard lock(mMutex);
      mLines.push_back(line);
    });
  }
  void TearDown() override { SetLogSink(mPrevious); }

  std::vector<std::string> Lines() {
    std::lock_guard lock(mMutex);
    return mLines;
  }

  // Logs `exception` and checks that the message handed back is the logged line.
  std::string Logged(const std::exception_ptr& exception, utility::StringValue context) {
    u8string message;
    LogException(exception, std::move(context), &message);
    const std::vector<std::string> lines = Lines();
    EXPECT_FALSE(lines.empty());
    EXPECT_EQ(lines.empty() ? std::string() : lines.back(), string::ToStdString(message));
    return string::ToStdString(message);
  }

  std::mutex mMutex;
  std::vector<std::string> mLines;  // guarded by mMutex
  LogSink mPrevious;
};

TEST_F(LoggingTest, ExceptionsAreLoggedWithTypeCodeAndMessage) {
  const int code = MakeErrorCode(0x7865, 0x42);
  EXPECT_EQ(Logged(std::make_exception_ptr(kiv_exception("model is corrupt", code)), "loading model"),
            "Exception in loading model: kivcore::config::kiv_exception 0xF8650042 model is corrupt");
  EXPECT_EQ(Logged(std::make_exception_ptr(std::invalid_argument("bad shape")),
                   utility::StringValue(string::ToU8("feature"), string::ToU8("age"))),
            "Exception in feature: age: std::invalid_argument 0xF8650001 bad shape");
  EXPECT_EQ(Logged(std::make_exception_ptr(std::bad_alloc()), "allocating"),
            "Exception in allocating: std::bad_alloc 0xF8650032 std::bad_alloc");
  EXPECT_EQ(Logged(std::make_exception_ptr(42), "Predict"),
            "Exception in Predict: unknown exception 0xF8650001");
  EXPECT_EQ(Logged(std::exception_ptr(), ""), "Exception: no exception");
  LogException(std::make_exception_ptr(std::runtime_error("no copy wanted")), "x", nullptr);
  EXPECT_EQ(Lines().back(), "Exception in x: std::runtime_error 0xF8650001 no copy wanted");
}

TEST_F(LoggingTest, MachineExceptionsAndTheirFilter) {
  u8string message;
  LogMachineException(0xC0000005u, "Predict", &message);
  EXPECT_EQ(string::ToStdString(message), "Machine exception 0xC0000005 in Predict");
  LogMachineException(0x1Fu, nullptr, nullptr);
  EXPECT_EQ(Lines().back(), "Machine exception 0x0000001F");

  using namespace utility::exceptions;
  EXPECT_EQ(InternalHiddenFilterWindowsSEHException(0xC00000FDu, true, "eval.cpp", 42, "Evaluate"),
            kExceptionExecuteHandler);
  EXPECT_EQ(Lines().back(), "Machine exception 0xC00000FD in Evaluate at eval.cpp:42");
  EXPECT_EQ(InternalHiddenFilterWindowsSEHException(0xC0000094u, false, nullptr, 7, nullptr),
            kExceptionContinueSearch);
  EXPECT_EQ(Lines().back(), "Machine exception 0xC0000094 in unknown context at ?:7");
}

TEST_F(LoggingTest, SinksSwapAndSeeEveryLineFromEveryThread) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < 100; ++i) {
        LogMessage("thread " + std::to_string(t));
      }
    });
  }
  for (auto& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(Lines().size(), 400u);

  int inner = 0;
  LogSink mine = SetLogSink([&inner](const std::string&) { ++inner; });
  LogMessage("to the inner sink");
  EXPECT_EQ(inner, 1);
  EXPECT_TRUE(SetLogSink(std::move(mine)));  // the previous sink comes back
  LogMessage("back again");
  EXPECT_EQ(Lines().back(), "back again");
}

TEST_F(LoggingTest, DefaultSinkWritesWholeLinesToStandardError) {
  const LogSink ours = SetLogSink({});
  ::testing::internal::CaptureStderr();
  LogMessage("to stderr");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "to stderr\n");
  EXPECT_FALSE(SetLogSink(ours));
}

}  // namespace
}  // namespace kivcore::logging
