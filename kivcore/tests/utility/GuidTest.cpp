#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <stdexcept>
#include <unordered_set>

#include "kivcore/utility/Guid.h"

namespace kivcore::utility {
namespace {

constexpr Guid kCompileTime{"E3834F7C-735B-473D-A10E-70C3987A25D1", 36};
static_assert(kCompileTime.High() == 0xE3834F7C735B473Dull && kCompileTime.Low() == 0xA10E70C3987A25D1ull);
static_assert(Guid().IsNil());

TEST(GuidTest, TextRoundTripsInUpperCaseAndAcceptsBracesAndLowerCase) {
  const Guid lower("e3834f7c-735b-473d-a10e-70c3987a25d1", 36);
  const Guid braced("{E3834F7C-735B-473D-A10E-70C3987A25D1}", 38);
  EXPECT_EQ(lower, kCompileTime);
  EXPECT_EQ(braced, kCompileTime);
  EXPECT_EQ(lower.ToString(), "E3834F7C-735B-473D-A10E-70C3987A25D1");
  std::ostringstream out;
  out << kCompileTime;
  EXPECT_EQ(out.str(), "E3834F7C-735B-473D-A10E-70C3987A25D1");
  EXPECT_EQ(kCompileTime.Bytes()[0], 0xE3);
  EXPECT_EQ(kCompileTime.Bytes()[15], 0xD1);
}

TEST(GuidTest, MalformedTextIsRejected) {
  EXPECT_THROW(Guid("E3834F7C-735B-473D-A10E-70C3987A25D", 35), std::invalid_argument);
  EXPECT_THROW(Guid("E3834F7C_735B-473D-A10E-70C3987A25D1", 36), std::invalid_argument);
  EXPECT_THROW(Guid("G3834F7C-735B-473D-A10E-70C3987A25D1", 36), std::invalid_argument);
  EXPECT_THROW(Guid(nullptr, 36), std::invalid_argument);
}

TEST(GuidTest, EqualityNeedsAllSixteenBytes) {
  using U = uint64_t;
  EXPECT_NE(Guid(U{1}, U{2}), Guid(U{1}, U{3}));
  EXPECT_NE(Guid(U{1}, U{2}), Guid(U{0}, U{2}));
  EXPECT_LT(Guid(U{1}, U{9}), Guid(U{2}, U{0}));
}

TEST(GuidTest, UniqueIdsAreDistinctVersionFourAndHashable) {
  std::unordered_set<Guid> seen;
  std::set<Guid> ordered;
  for (int i = 0; i < 1000; ++i) {
    const Guid id = Guid::CreateUnique();
    EXPECT_FALSE(id.IsNil());
    EXPECT_EQ(id.ToString()[14], '4');
    seen.insert(id);
    ordered.insert(id);
  }
  EXPECT_EQ(seen.size(), 1000u);
  EXPECT_EQ(ordered.size(), 1000u);
}

}  // namespace
}  // namespace kivcore::utility
