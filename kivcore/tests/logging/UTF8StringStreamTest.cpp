#include "kivcore/string/UTF8StringStream.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <iomanip>
#include <limits>
#include <string>

#include "kivcore/string/StringConversions.h"
#include "kivcore/utility/ImmutableString.h"

namespace kivcore {
namespace {

std::string Text(const UTF8StringStream& stream) {
  return string::ToStdString(stream.str());
}

TEST(UTF8StringStreamTest, NumbersFormatLikeADefaultOstream) {
  UTF8StringStream stream;
  stream << 1.0f << ' ' << 2.5 << ' ' << 0.1 << ' ' << 1e20 << ' ' << 1.0 / 3.0;
  EXPECT_EQ(Text(stream), "1 2.5 0.1 1e+20 0.333333");

  UTF8StringStream integers;
  integers << std::numeric_limits<uint64_t>::max() << ',' << std::numeric_limits<int64_t>::min() << ',' << -7
           << ',' << static_cast<short>(-3) << ',' << 4000000000u << ',' << true << ',' << false;
  EXPECT_EQ(Text(integers), "18446744073709551615,-9223372036854775808,-7,-3,4000000000,1,0");

  UTF8StringStream narrow;
  narrow << static_cast<int8_t>(65) << static_cast<uint8_t>(66) << 'C';  // char types print as characters
  EXPECT_EQ(Text(narrow), "ABC");
}

TEST(UTF8StringStreamTest, StringsOfEveryKindChainTogether) {
  const u8string utf8 = string::ToU8("gr\xC3\xBC\xC3\x9F");
  UTF8StringStream stream;
  stream << "feature " << std::string("age") << ' ' << utility::ImmutableString::Create("x") << utf8
         << static_cast<const char*>(nullptr) << std::endl;
  EXPECT_EQ(stream.str(), string::ToU8("feature age xgr\xC3\xBC\xC3\x9F\n"));
}

TEST(UTF8StringStreamTest, ManipulatorsPassThrough) {
  UTF8StringStream stream;
  stream << std::hex << 255 << std::dec << ' ' << std::setw(4) << std::setfill('0') << 7 << ' ' << std::fixed
         << std::setprecision(2) << 3.14159 << ' ' << std::boolalpha << true;
  EXPECT_EQ(Text(stream), "ff 0007 3.14 true");

  // It is a std::ostream too, for code written against streams.
  std::ostream& plain = stream;
  plain << "!";
  EXPECT_EQ(Text(stream), "ff 0007 3.14 true!");
  stream.str(string::ToU8("reset "));
  stream << 1;
  EXPECT_EQ(Text(stream), "reset 1");
}

}  // namespace
}  // namespace kivcore
