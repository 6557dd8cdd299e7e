#include <gtest/gtest.h>

#include <string>
#include <unordered_map>

#include "kivcore/string/StringConversions.h"
#include "kivcore/utility/ImmutableString.h"

namespace kivcore::utility {
namespace {

TEST(ImmutableStringTest, CopiesShareOneBufferAndCompareByText) {
  const ImmutableString a = ImmutableString::Create("input1");
  const ImmutableString b = a;  // NOLINT(performance-unnecessary-copy-initialization)
  EXPECT_EQ(a.c_str(), b.c_str());
  EXPECT_EQ(a, ImmutableString::Create(std::string("input1")));
  EXPECT_NE(a, ImmutableString::Create("input2"));
  EXPECT_EQ(std::string(a.begin(), a.end()), "input1");
  EXPECT_EQ(a, ImmutableString::Create(string::ToU8("input1")));
  EXPECT_EQ(a, ImmutableString::Create(reinterpret_cast<const unsigned char*>("input1")));
}

TEST(ImmutableStringTest, StaticStringsPointAtTheLiteral) {
  static const char kName[] = "output1";
  const ImmutableString name = ImmutableString::_PrivateCreateStatic(kName);
  EXPECT_EQ(name.c_str(), kName);
  EXPECT_EQ(name.size(), 7u);
}

TEST(ImmutableStringTest, MovedFromStringIsEmptyAndUsable) {
  ImmutableString a = ImmutableString::Create("x");
  ImmutableString b = std::move(a);
  EXPECT_TRUE(a.empty());  // NOLINT(bugprone-use-after-move): moved-from state is specified
  EXPECT_STREQ(a.c_str(), "");
  EXPECT_EQ(b.View(), "x");
  EXPECT_TRUE(ImmutableString::Create(static_cast<const char*>(nullptr)).empty());
}

TEST(ImmutableStringTest, KeysUnorderedMapsAndConvertsToWide) {
  std::unordered_map<ImmutableString, int> map;
  map[ImmutableString::Create("a")] = 1;
  map[ImmutableString::_PrivateCreateStatic("a")] += 1;
  EXPECT_EQ(map.size(), 1u);
  EXPECT_EQ(map.begin()->second, 2);
  EXPECT_EQ(string::UTF16ToWstring(ImmutableString::Create("h\xC3\xA9").ToString()), L"h\u00E9");
}

}  // namespace
}  // namespace kivcore::utility
