// KivInt64MulDiv against 128-bit arithmetic and at its limits.
#include <kiv/math.h>

#include "tests/foundation/time_support.hpp"

namespace {

using test::kMax;
using test::kMin;
using test::Wide;

TEST(Int64MulDiv, AgreesWithWideDivisionWhereTheQuotientFits) {
  std::mt19937_64 random(1);
  const auto any = [&](int bits) {
    return static_cast<int64_t>(random()) >> (63 - random() % static_cast<unsigned>(bits));
  };
  int fitting = 0;
  for (int i = 0; i < 200000; ++i) {
    const int64_t a = any(63), b = any(63), c = any(31);
    if (c == 0) continue;
    const Wide product = static_cast<Wide>(a) * b;
    const Wide quotient = product / c;
    int32_t remainder = 77;
    const int64_t answer = KivInt64MulDiv(a, b, c, &remainder);
    if (quotient > kMax) {
      EXPECT_EQ(answer, kMax);
    } else if (quotient <= kMin) {
      EXPECT_EQ(answer, kMin);
    } else {
      ++fitting;
      ASSERT_EQ(answer, static_cast<int64_t>(quotient)) << a << " * " << b << " / " << c;
      const auto expected = static_cast<int32_t>(c < 0 ? -(product % c) : product % c);
      ASSERT_EQ(remainder, expected) << a << " * " << b << " / " << c;
    }
  }
  EXPECT_GT(fitting, 50000);
}

TEST(Int64MulDiv, SaturatesBySignAndGivesTheRemainderTheSignOfTheQuotient) {
  struct Case {
    int64_t a, b, c, quotient;
    int32_t remainder;
  };
  const Case cases[] = {
      {7, 1, 3, 2, 1},
      {-7, 1, 3, -2, -1},
      {7, 1, -3, -2, -1},
      {-7, -1, -3, -2, -1},
      {1, 1, -3, 0, -1},  // also where the quotient is 0
      {kMax, 1, 1, kMax, 0},
      {kMin, 1, 1, kMin, 0},
      {kMin, -1, 1, kMax, 0},
      {kMin, 1, -1, kMax, 0},
      {kMin, kMin, kMin, kMin, 0},
      {kMax, kMax, 1, kMax, 0},
      {kMax, -2, 1, kMin, 0},
      {kMax, kMax, kMax, kMax, 0},
      {kMin, kMax, kMin, kMax, 0},
      {kMax, INT32_MAX, INT32_MAX, kMax, 0},
      {kMax, 3, INT32_MIN, -12884901887, -2147483645},
      {5, 1, 0, kMax, 0},  // by 0
      {5, -1, 0, kMin, 0},
      {0, 5, 0, 0, 0},
      {kMax - 1, 1, kMax, 0, INT32_MAX},  // a remainder beyond 32 bits
      {1 - kMax, 1, kMax, 0, INT32_MIN},
  };
  for (const Case& c : cases) {
    int32_t remainder = 77;
    EXPECT_EQ(KivInt64MulDiv(c.a, c.b, c.c, &remainder), c.quotient) << c.a << " * " << c.b << " / " << c.c;
    EXPECT_EQ(remainder, c.remainder) << c.a << " * " << c.b << " / " << c.c;
    EXPECT_EQ(KivInt64MulDiv(c.a, c.b, c.c, nullptr), c.quotient);
  }
}

}  // namespace
