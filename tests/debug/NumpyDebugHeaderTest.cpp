// GCC 12 with -fsanitize=address warns falsely that std::regex's compiler uses a std::function
// uninitialised (-Wmaybe-uninitialized, inside <bits/std_function.h>); it must be off before any header.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#include <gtest/gtest.h>

#include <random>
#include <regex>
#include <string>
#include <vector>

#include "debug/NumpyDebugHeader.h"

namespace kivml::debug {
namespace {

// The expression the debug reader is defined by; the matcher must agree with it on every text.
const std::regex kDefinition(R"(\{.*descr.*:.*'(.*).*'.*,.*fortran_order.*:(.*),.*shape.*:.*\((.*)\).*\}.*)"
                             "\n?");

void ExpectSameAsTheExpression(const std::string& text) {
  std::smatch match;
  const bool matched = std::regex_match(text, match, kDefinition);
  const std::optional<NumpyDebugHeader> header = MatchNumpyDebugHeader(text);
  ASSERT_EQ(header.has_value(), matched) << '"' << text << '"';
  if (matched) {
    EXPECT_EQ(header->mDescriptor, match.str(1)) << '"' << text << '"';
    EXPECT_EQ(header->mFortranOrder, match.str(2)) << '"' << text << '"';
    EXPECT_EQ(header->mShape, match.str(3)) << '"' << text << '"';
  }
}

TEST(NumpyDebugHeaderTest, CapturesTheFieldsOfANumpyHeader) {
  const auto header = MatchNumpyDebugHeader("{'descr': '|b1', 'fortran_order': True, 'shape': (3,), }  \n");
  ASSERT_TRUE(header);
  EXPECT_EQ(header->mDescriptor, "|b1");
  EXPECT_EQ(header->mShape, "3,");
}

TEST(NumpyDebugHeaderTest, AgreesWithTheRegularExpressionOnGeneratedTexts) {
  // Texts made of the expression's literals and a few other characters, so that most come close to
  // matching and the greedy choices between repeated literals matter.
  const std::vector<std::string> pieces{"{", "}", "descr", ":", "'",  ",", "fortran_order", "shape", "(",
                                        ")", " ", "\n",    "x", "\r", "2", "'<f4'"};
  const std::vector<std::string> skeleton{"{", "descr", ":",     "'", "'", ",", "fortran_order",
                                          ":", ",",     "shape", ":", "(", ")", "}"};
  std::mt19937 random(20240601);
  for (int round = 0; round < 20000; ++round) {
    std::string text;
    if (round % 2 == 0) {
      // A skeleton of the expression with pieces sprinkled in and, now and then, one literal left out.
      const size_t dropped = random() % (skeleton.size() * 4);
      for (size_t i = 0; i < skeleton.size(); ++i) {
        if (i != dropped) {
          text += skeleton[i];
        }
        while (random() % 3 == 0) {
          text += pieces[random() % pieces.size()];
        }
      }
    } else {
      const size_t count = random() % 24;
      for (size_t i = 0; i < count; ++i) {
        text += pieces[random() % pieces.size()];
      }
    }
    ExpectSameAsTheExpression(text);
    if (HasFatalFailure()) {
      return;
    }
  }
}

TEST(NumpyDebugHeaderTest, DimensionsAreTheDigitRunsAndOverflowIsRefused) {
  EXPECT_EQ(ParseNumpyDebugDimensions("2, 4"), (std::vector<uint64_t>{2, 4}));
  EXPECT_EQ(ParseNumpyDebugDimensions("x07y-3,,18446744073709551615"),
            (std::vector<uint64_t>{7, 3, 18446744073709551615u}));
  EXPECT_EQ(ParseNumpyDebugDimensions(""), std::vector<uint64_t>{});
  EXPECT_FALSE(ParseNumpyDebugDimensions("1, 18446744073709551616"));
}

}  // namespace
}  // namespace kivml::debug
