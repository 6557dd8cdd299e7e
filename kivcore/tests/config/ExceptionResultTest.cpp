#include <gtest/gtest.h>

#include <exception>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>

#include "kivcore/config/ExceptionResult.h"
#include "kivcore/config/NestedException.h"
#include "kivcore/config/NullPtrException.h"
#include "kivcore/config/ResultCodes.h"
#include "kivcore/config/kiv_exception.h"
#include "kivcore/string/StringConversions.h"

namespace kivcore::config {
namespace {

struct CustomError : std::runtime_error {
  CustomError() : std::runtime_error("custom") {}
};

TEST(ExceptionResultTest, ResultCodesFollowTheSignConvention) {
  EXPECT_TRUE(ResultSucceeded(0));
  EXPECT_TRUE(ResultSucceeded(1));
  EXPECT_FALSE(ResultSucceeded(-1));
  EXPECT_EQ(static_cast<unsigned>(eBadAllocException), 0xF8650032u);
  EXPECT_EQ(static_cast<unsigned>(async::eFutureIsCancelled), 0xF3610004u);
}

TEST(ExceptionResultTest, KivExceptionsKeepMessageAndCode) {
  const kiv_exception withMessage("queue cleared", -5);
  EXPECT_STREQ(withMessage.what(), "queue cleared");
  EXPECT_EQ(withMessage.GetResult(), -5);
  const kiv_exception copy = withMessage;  // NOLINT(performance-unnecessary-copy-initialization)
  EXPECT_STREQ(copy.what(), "queue cleared");
  EXPECT_STREQ(kiv_exception(-7).what(), "");
  EXPECT_NE(std::string(NullPtrException(string::ToU8("IFoo")).what()).find("IFoo"), std::string::npos);
}

TEST(ExceptionResultTest, NestedCausesLeaveTheOuterExceptionAsItWasAndComeBackOnRequest) {
  const std::exception_ptr cause = std::make_exception_ptr(std::runtime_error("division by zero"));
  const std::exception_ptr nested = MakeNestedException(kiv_exception("batch failed", -4), cause);
  EXPECT_EQ(ExtractResultFromException(nested), -4);
  try {
    std::rethrow_exception(nested);
  } catch (const kiv_exception& outer) {
    EXPECT_STREQ(outer.what(), "batch failed");
    EXPECT_EQ(DescribeWithCauses(outer), "batch failed: division by zero");
    EXPECT_THROW(std::rethrow_if_nested(outer), std::runtime_error);
  }
  // Causes chain; an empty outer message adds nothing; no cause nests nothing.
  const std::exception_ptr twice = MakeNestedException(kiv_exception("", -5), nested);
  try {
    std::rethrow_exception(twice);
  } catch (const kiv_exception& outer) {
    EXPECT_STREQ(outer.what(), "");
    EXPECT_EQ(DescribeWithCauses(outer), "batch failed: division by zero");
  }
  try {
    std::rethrow_exception(MakeNestedException(kiv_exception("alone", -6), nullptr));
  } catch (const kiv_exception& outer) {
    EXPECT_EQ(dynamic_cast<const std::nested_exception*>(&outer), nullptr);
    EXPECT_EQ(DescribeWithCauses(outer), "alone");
  }
}

TEST(ExceptionResultTest, ExtractsCodesFromEveryKindOfException) {
  EXPECT_EQ(ExtractResultFromException(nullptr), 0);
  EXPECT_EQ(ExtractResultFromException(std::make_exception_ptr(kiv_exception("x", -42))), -42);
  EXPECT_EQ(ExtractResultFromException(std::make_exception_ptr(std::bad_alloc())), eBadAllocException);
  EXPECT_EQ(ExtractResultFromException(std::make_exception_ptr(std::logic_error("x"))), eUnexpectedException);
  EXPECT_EQ(ExtractResultFromException(std::make_exception_ptr(17)), eUnexpectedException);
}

TEST(ExceptionResultTest, RegisteredTranslatorsClaimTheirOwnExceptions) {
  const int id = RegisterExceptionTranslator([](const std::exception_ptr& e) -> std::optional<int> {
    try {
      std::rethrow_exception(e);
    } catch (const CustomError&) {
      return -99;
    } catch (...) {
      return std::nullopt;
    }
  });
  EXPECT_EQ(ExtractResultFromException(std::make_exception_ptr(CustomError())), -99);
  EXPECT_EQ(ExtractResultFromException(std::make_exception_ptr(std::logic_error("x"))), eUnexpectedException);
  UnregisterExceptionTranslator(id);
  EXPECT_EQ(ExtractResultFromException(std::make_exception_ptr(CustomError())), eUnexpectedException);
}

}  // namespace
}  // namespace kivcore::config
