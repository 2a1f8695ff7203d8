// Multiplication by an integer, a double and a ratio.
#include "tests/foundation/time_support.hpp"

namespace {

using namespace test;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr int32_t kFine = 1000000000;

TEST(TimeMultiply, IsExactOrHalvesTheTimescale) {
  for (const PVTime& time : numbersNearLimits())
    for (int32_t multiplier : {0, 1, -1, 2, 3, -7, 1001, INT32_MAX, INT32_MIN}) {
      const PVTime r = PVTimeMultiply(time, multiplier);
      const Wide product = static_cast<Wide>(time.value) * multiplier;
      if (product < kMax && product > kMin) {
        ASSERT_EQ(r, exact(static_cast<int64_t>(product), time.timescale)) << time << " * " << multiplier;
      } else if (!PVTimeIsNumeric(r)) {
        ASSERT_EQ(r, product > 0 ? kPlusInfinity : kMinusInfinity);
        ASSERT_GE((product < 0 ? -product : product) / time.timescale, Wide{kMax} / 2)
            << time << " * " << multiplier;
      } else {
        ASSERT_LT(r.timescale, time.timescale);
        ASSERT_EQ(r.value < 0, product < 0);
        ASSERT_GT(std::abs(static_cast<double>(r.value)), 0x1p61)
            << "halved too often: " << time << " * " << multiplier;
        const double wanted = static_cast<double>(product) / time.timescale;
        ASSERT_NEAR(PVTimeGetSeconds(r) / wanted, 1, 1e-9) << time << " * " << multiplier;
      }
    }
}

TEST(TimeMultiply, Table) {
  EXPECT_EQ(PVTimeMultiply(rounded(3, 600, 4), -2), rounded(-6, 600, 4));
  EXPECT_EQ(PVTimeMultiply(exact(kMax, 1), 1), kPlusInfinity);  // counts as overflow
  EXPECT_EQ(PVTimeMultiply(exact(kMax, 2), 1), rounded(int64_t{1} << 62, 1));
  EXPECT_EQ(PVTimeMultiply(exact(int64_t{1} << 62, 600), 2), exact(int64_t{1} << 62, 300));
  EXPECT_EQ(PVTimeMultiply(exact(int64_t{1} << 62, 1), -2), kMinusInfinity);
  EXPECT_EQ(PVTimeMultiply(kPlusInfinity, 0), kPlusInfinity);
  EXPECT_EQ(PVTimeMultiply(kPlusInfinity, -1), kMinusInfinity);
  EXPECT_EQ(PVTimeMultiply(kMinusInfinity, 0), kMinusInfinity);
  EXPECT_EQ(PVTimeMultiply(kMinusInfinity, -1), kPlusInfinity);
  EXPECT_EQ(PVTimeMultiply(kIndefinite, 3), kIndefinite);
  EXPECT_EQ(PVTimeMultiply({5, 6, 2, 7}, 3), kInvalid);
}

TEST(TimeMultiplyByFloat64, Table) {
  struct Case {
    PVTime time;
    double multiplier;
    PVTime expected;
  };
  const Case cases[] = {
      {exact(1, 600), 0.5, rounded(833334, kFine)},  // 1/600 is not whole in the finer timescale
      {exact(3, 600, 4), 0.5, exact(2500000, kFine, 4)},
      {exact(3, 600, 4), -2.0, exact(-6, 600, 4)},
      {rounded(3, 600), 2.0, rounded(6, 600)},
      {exact(3, 600), 0.0, exact(0, 600)},
      {exact(1, 3 * 600), 1.5, rounded(833334, kFine)},
      {exact(1, kFine), 0.5, exact(1, kFine)},  // half away from zero; not flagged at this timescale
      {exact(-1, kFine), 0.5, exact(-1, kFine)},
      {exact(1, kFine), 0.25, exact(0, kFine)},
      {exact(1, INT32_MAX), 1.25, exact(1, INT32_MAX)},
      {exact(int64_t{1} << 51, 1), 1.0, exact(int64_t{1} << 51, 1)},
      {exact((int64_t{1} << 51) + 1, 1), 1.0, rounded((int64_t{1} << 51) + 1, 1)},
      {exact(int64_t{1} << 62, 2), 4.0, rounded(kMax, 1)},  // 2^63 itself is kept within 64 bits
      {exact(int64_t{1} << 62, 1), -2.0, rounded(kMin, 1)},
      {exact(int64_t{1} << 62, 1), 4.0, kPlusInfinity},
      {exact(int64_t{1} << 62, 1), -4.0, kMinusInfinity},
      {exact(1, 2), kInfinity, kPlusInfinity},
      {exact(-600, 600), kInfinity, kMinusInfinity},
      {exact(1, 600), kInfinity, rounded(kMin, 150)},  // halved until the value is 0
      {exact(0, 600), kInfinity, rounded(kMin, 600)},
      {exact(1, 600), kNaN, rounded(kMin, kFine)},
      {exact(kMax, 1), 0.5, rounded(int64_t{1} << 62, 1)},
      {kPlusInfinity, 0.0, kPlusInfinity},
      {kPlusInfinity, -0.5, kMinusInfinity},
      {kPlusInfinity, kNaN, kMinusInfinity},
      {kMinusInfinity, -0.0, kMinusInfinity},
      {kMinusInfinity, kNaN, kPlusInfinity},
      {kIndefinite, 2.0, kIndefinite},
      {kInvalid, 2.0, kInvalid},
  };
  for (const Case& c : cases)
    EXPECT_EQ(PVTimeMultiplyByFloat64(c.time, c.multiplier), c.expected) << c.time << " * " << c.multiplier;
}

TEST(TimeMultiplyByRatio, Table) {
  struct Case {
    PVTime time;
    int32_t multiplier, divisor;
    PVTime expected;
  };
  const Case cases[] = {
      {exact(1, 600, 4), 3, 2, exact(3, 1200, 4)},
      {rounded(1, 600), 2, 4, rounded(1, 1200)},
      {exact(1, 600), -1, 3, exact(-1, 1800)},
      {exact(1, 600), 1, -3, exact(-1, 1800)},
      {exact(-1, 600), -1, 3, exact(1, 1800)},
      {exact(1, 600), INT32_MIN, INT32_MIN, exact(1, 600)},
      {exact(1, 600), 0, 7, exact(0, 600)},
      {exact(0, 600), 3, 7, exact(0, 600)},
      {exact(6, kFine), 1, 3, exact(2, kFine)},       // a common divisor of value and divisor
      {exact(1, kFine), 10, 3, exact(1, 300000000)},  // of multiplier and timescale
      {exact(kMax - 1, 2), 6, 1, kPlusInfinity},
      {exact(1, kFine + 7), 2, 3, rounded(1, kFine)},  // nothing in common: rounded
      {exact(1, kFine), 1, 3, rounded(0, kFine)},
      {exact(11, kFine), 1, 3, rounded(4, kFine)},
      {exact(-11, kFine), 1, 3, rounded(-4, kFine)},
      {exact(7, kFine), -1, 3, rounded(-2, kFine)},
      {exact(5, kFine), 1, INT32_MIN, rounded(0, kFine)},
      // by 0
      {exact(5, 1), 0, 0, kInvalid},
      {exact(0, 1), 3, 0, kInvalid},
      {exact(0, 600), 3, 0, kInvalid},
      {exact(0, 1, 1), 3, 0, kPlusInfinity},  // a later epoch is greater than 0/1
      {exact(2, 1), -3, 0, kMinusInfinity},
      {exact(-2, 1), 3, 0, kMinusInfinity},
      {exact(-2, 1), -3, 0, kPlusInfinity},
      {kPlusInfinity, -3, 0, kMinusInfinity},
      {kMinusInfinity, -3, 0, kPlusInfinity},
      // special times
      {kPlusInfinity, 0, 5, kInvalid},
      {kPlusInfinity, 2, -5, kMinusInfinity},
      {kMinusInfinity, 2, -5, kPlusInfinity},
      {kMinusInfinity, -2, -5, kMinusInfinity},
      {kIndefinite, 0, 0, kIndefinite},
      {kInvalid, 1, 1, kInvalid},
  };
  for (const Case& c : cases)
    EXPECT_EQ(PVTimeMultiplyByRatio(c.time, c.multiplier, c.divisor), c.expected)
        << c.time << " * " << c.multiplier << " / " << c.divisor;
}

TEST(TimeMultiplyByRatio, UnroundedResultsAreExact) {
  int exactResults = 0;
  for (const PVTime& time : numbersNearLimits())
    for (int32_t multiplier : {1, -3, 1001, 90000, INT32_MAX, INT32_MIN})
      for (int32_t divisor : {1, -2, 7, 1000, 48000, INT32_MAX, INT32_MIN}) {
        const PVTime r = PVTimeMultiplyByRatio(time, multiplier, divisor);
        if (!PVTimeIsNumeric(r) || PVTimeHasBeenRounded(r)) continue;
        ++exactResults;
        const Wide left = static_cast<Wide>(time.value) * multiplier * r.timescale;
        const Wide right = static_cast<Wide>(r.value) * time.timescale * divisor;
        ASSERT_EQ(left, right) << time << " * " << multiplier << " / " << divisor << " = " << r;
        ASSERT_GE(r.timescale, 1);
      }
  EXPECT_GT(exactResults, 4000);
}

}  // namespace
