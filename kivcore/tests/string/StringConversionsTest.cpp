#include <gtest/gtest.h>

#include <string>

#include "kivcore/string/StringConversions.h"

namespace kivcore::string {
namespace {

TEST(StringConversionsTest, Utf8AndWideRoundTripIncludingSupplementaryPlanes) {
  const std::string text = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z";  // a, e-acute, euro, emoji, z
  const wstring wide = UTF8to16(text);
  EXPECT_EQ(wide.size(), sizeof(wchar_t) == 2 ? 6u : 5u);
  EXPECT_EQ(ToStdString(UTF16to8(wide)), text);
  EXPECT_EQ(UTF16ToWstring(wide), std::wstring(wide.begin(), wide.end()));
}

TEST(StringConversionsTest, InvalidSequencesBecomeReplacementCharacters) {
  EXPECT_EQ(ToStdString(UTF16to8(UTF8to16("a\xFF"
                                          "b"))),
            "a\xEF\xBF\xBD"
            "b");
  EXPECT_EQ(ToStdString(UTF16to8(UTF8to16("\xC3"))), "\xEF\xBF\xBD");                  // truncated
  EXPECT_EQ(ToStdString(UTF16to8(UTF8to16("\xC0\xAF"))), "\xEF\xBF\xBD\xEF\xBF\xBD");  // overlong
}

TEST(StringConversionsTest, AsciiAndWcharConversions) {
  EXPECT_EQ(UTF16ToWstring(AsciiToUTF16("abc", 2)), L"ab");
  EXPECT_EQ(UTF16ToWstring(WcharToUTF16(L"x\u00E9")), L"x\u00E9");
  EXPECT_TRUE(WcharToUTF16(nullptr).empty());
}

TEST(StringConversionsTest, ReplaceInStringAppliesPairsInTurnAndSkipsEmptyPatterns) {
  EXPECT_EQ(ReplaceInString("a-b-c", "-", "+", "+", "=", "", "x", "c", "cc", "zz", "y"), "a=b=cc");
  // Replacement text is not rescanned by the same pair.
  EXPECT_EQ(ReplaceInString("aaa", "a", "aa", "", "", "", "", "", "", "", ""), "aaaaaa");
}

}  // namespace
}  // namespace kivcore::string
