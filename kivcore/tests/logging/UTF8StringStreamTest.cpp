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

TEST(UTF8StringStreamTest, NumbersFormatLikeADefaultOstream) {
  UTF8StringStream stream;
  stream << 1.0f << ' ' << 2.5 << ' ' << 1e20 << ' ' << 1.0 / 3.0 << ' '
         << std::numeric_limits<uint64_t>::max() << ',' << std::numeric_limits<int64_t>::min() << ','
         << static_cast<short>(-3) << ',' << 4000000000u << ',' << true << ',' << false << ','
         << static_cast<int8_t>(65) << static_cast<uint8_t>(66) << 'C';
  EXPECT_EQ(string::ToStdString(stream.str()),
            "1 2.5 1e+20 0.333333 18446744073709551615,-9223372036854775808,-3,4000000000,1,0,ABC");
}

TEST(UTF8StringStreamTest, StringsAndManipulatorsChainTogether) {
  UTF8StringStream stream;
  stream << "feature " << std::string("age") << ' ' << utility::ImmutableString::Create("x")
         << string::ToU8("gr\xC3\xBC\xC3\x9F") << static_cast<const char*>(nullptr) << std::endl
         << std::hex << 255 << std::dec << ' ' << std::setw(4) << std::setfill('0') << 7 << ' ' << std::fixed
         << std::setprecision(2) << 3.14159 << ' ' << std::boolalpha << true;
  static_cast<std::ostream&>(stream) << "!";
  EXPECT_EQ(stream.str(), string::ToU8("feature age xgr\xC3\xBC\xC3\x9F\nff 0007 3.14 true!"));
  stream.str(string::ToU8("reset "));
  stream << 1;
  EXPECT_EQ(string::ToStdString(stream.str()), "reset 1");
}

}  // namespace
}  // namespace kivcore
