// Conversion, addition and subtraction: tables of what is written down, laws near the limits, hostile fields.
#include <optional>

#include "tests/foundation/time_support.hpp"

namespace {

using namespace test;

Wide floorDivided(Wide numerator, Wide denominator) {
  return numerator / denominator - (numerator % denominator < 0);
}

// The rounding methods by floor and ceiling instead of remainders.
Wide modelQuotient(const PVTime& time, int32_t timescale, PVTimeRoundingMethod method) {
  const Wide numerator = static_cast<Wide>(time.value) * timescale, denominator = time.timescale;
  const Wide floor = floorDivided(numerator, denominator), ceiling = -floorDivided(-numerator, denominator);
  const bool negative = time.value < 0;
  const Wide nearZero = negative ? ceiling : floor, farFromZero = negative ? floor : ceiling;
  switch (method) {
    case 1:
      return negative ? -floorDivided(-2 * numerator + denominator, 2 * denominator)
                      : floorDivided(2 * numerator + denominator, 2 * denominator);
    case 3:
      return farFromZero;
    case 4:
      return timescale > time.timescale ? farFromZero : negative && nearZero == 0 ? -1 : nearZero;
    case 5:
      return ceiling;
    case 6:
      return floor;
    default:
      return nearZero;
  }
}

TEST(TimeConvertScale, EveryMethodAgreesWithWideArithmetic) {
  auto times = numbersNearLimits();
  for (int64_t value = -12; value <= 12; ++value)
    for (int32_t timescale : {4, 5, 8}) times.push_back(rounded(value, timescale, 6));
  for (const PVTime& time : times)
    for (int32_t timescale : {1, 2, 3, 4, 7, 600, 44100, 90000, 1000000000, INT32_MAX})
      for (PVTimeRoundingMethod method : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, UINT32_MAX}) {
        if (timescale == time.timescale) continue;
        const Wide scaled = static_cast<Wide>(time.value) * timescale, truncated = scaled / time.timescale;
        PVTime expected = {0, timescale, time.flags, time.epoch};
        if (truncated >= kMax || truncated <= kMin) {
          expected = truncated > 0 ? kPlusInfinity : kMinusInfinity;
        } else {
          expected.value = static_cast<int64_t>(modelQuotient(time, timescale, method));
          if (scaled % time.timescale != 0) expected.flags = 3;
        }
        ASSERT_EQ(PVTimeConvertScale(time, timescale, method), expected)
            << time << " to " << timescale << " by " << method;
      }
}

TEST(TimeConvertScale, LeavesAloneWhatItNeedNotConvert) {
  for (const PVTime& t : {kInvalid, kIndefinite, kPlusInfinity, kMinusInfinity, PVTime{3, 4, 5, 6}}) {
    EXPECT_EQ(PVTimeConvertScale(t, 600, 1), t);
    EXPECT_EQ(PVTimeConvertScale(t, -1, 1), t);
  }
  EXPECT_EQ(PVTimeConvertScale({7, 600, 0x21, 9}, 600, 1),
            (PVTime{7, 600, 0x21, 9}));  // unknown flags and all
  EXPECT_EQ(PVTimeConvertScale({7, 600, 0x21, 9}, 1200, 1), exact(14, 1200, 9));
  EXPECT_EQ(PVTimeConvertScale(exact(7, 600), 0, 1), kInvalid);
  EXPECT_EQ(PVTimeConvertScale(exact(7, 600), INT32_MIN, 1), kInvalid);
}

struct Sum {
  PVTime a, b, sum;
};

TEST(TimeAdd, Table) {
  const Sum cases[] = {
      {exact(1, 2), exact(1, 3), exact(5, 6)},
      {exact(1, 600), exact(2, 600), exact(3, 600)},
      {rounded(1, 600), exact(2, 600), rounded(3, 600)},
      {exact(1, 600), rounded(1, 1000), rounded(8, 3000)},
      {{1, 600, 0x21, 0}, {1, 600, 0x41, 0}, exact(2, 600)},
      {exact(1, 1000000007), exact(1, 1000000009), rounded(2, 1000000000)},
      // no conversion with a zero
      {exact(0, 600), exact(1, 1000), exact(1, 1000)},
      {exact(1, 1000), rounded(0, 600), rounded(1, 1000)},
      {exact(0, 600), exact(0, 1000), exact(0, 1000)},
      {exact(0, 600), exact(kMin, 1000), exact(kMin, 1000)},
      // halving and its end
      {exact(kMax, 1), exact(1, 1), kPlusInfinity},
      {exact(kMin, 1), exact(-1, 1), kMinusInfinity},
      {exact(kMin, 1), exact(kMin, 1), kMinusInfinity},
      {exact(kMax - 1, 2), exact(kMax - 1, 2), exact(kMax - 1, 1)},
      {exact(int64_t{1} << 62, 600), exact(int64_t{1} << 62, 600), exact(int64_t{1} << 62, 300)},
      {exact(kMax, 1), exact(1, 3), rounded(kMax, 1)},
      {exact(kMax, 1), exact(2, 3), kPlusInfinity},
      {exact(kMin, 1), exact(1, 3), rounded(kMin, 1)},
      // epochs
      {exact(1, 1, 7), exact(1, 1, 7), exact(2, 1)},
      {exact(1, 1, 7), exact(1, 1), exact(2, 1, 7)},
      {exact(1, 1), exact(1, 2, -7), exact(3, 2, -7)},
      {exact(1, 1, 7), exact(1, 1, 8), kInvalid},
      {exact(0, 1, 7), exact(1, 1, 8), kInvalid},
      {exact(0, 1, 7), exact(1, 3), exact(1, 3, 7)},
      // special operands
      {kInvalid, kPlusInfinity, kInvalid},
      {exact(1, 1), kInvalid, kInvalid},
      {kPlusInfinity, kMinusInfinity, kInvalid},
      {kMinusInfinity, kPlusInfinity, kInvalid},
      {kPlusInfinity, kPlusInfinity, kPlusInfinity},
      {kMinusInfinity, kMinusInfinity, kMinusInfinity},
      {kIndefinite, kPlusInfinity, kPlusInfinity},
      {kMinusInfinity, kIndefinite, kMinusInfinity},
      {exact(5, 1), kIndefinite, kIndefinite},
      {kPlusInfinity, exact(5, 1, 3), kPlusInfinity},
      {exact(5, 1, 3), kMinusInfinity, kMinusInfinity},
  };
  for (const Sum& c : cases) EXPECT_EQ(PVTimeAdd(c.a, c.b), c.sum) << c.a << " + " << c.b;
}

TEST(TimeSubtract, Table) {
  const Sum cases[] = {
      {exact(1, 2), exact(1, 3), exact(1, 6)},
      {exact(5, 600), rounded(7, 600), rounded(-2, 600)},
      {exact(0, 600), exact(0, 1000), exact(0, 600)},
      {exact(1, 600), exact(0, 1000), exact(1, 600)},
      {exact(0, 600), rounded(1, 1000), rounded(-1, 1000)},
      {exact(0, 600), exact(kMin, 600), exact(int64_t{1} << 62, 300)},
      {exact(0, 600), exact(kMin, 2), exact(int64_t{1} << 62, 1)},
      {exact(0, 1), exact(kMin, 1), kPlusInfinity},
      {exact(kMin, 1), exact(0, 1), exact(kMin, 1)},
      {exact(kMin, 1), exact(1, 1), kMinusInfinity},
      {exact(kMax, 1), exact(-1, 1), kPlusInfinity},
      {exact(kMin, 1), exact(kMin, 1), exact(0, 1)},
      {exact(1, 1, 7), exact(1, 1, 7), exact(0, 1)},
      {exact(1, 1), exact(1, 1, 7), exact(0, 1, 7)},
      {exact(1, 1, 7), exact(1, 1, 8), kInvalid},
      {kInvalid, exact(1, 1), kInvalid},
      {kPlusInfinity, kPlusInfinity, kInvalid},
      {kMinusInfinity, kMinusInfinity, kInvalid},
      {kPlusInfinity, kMinusInfinity, kPlusInfinity},
      {kMinusInfinity, kPlusInfinity, kMinusInfinity},
      {kIndefinite, kPlusInfinity, kMinusInfinity},
      {exact(1, 1), kMinusInfinity, kPlusInfinity},
      {kIndefinite, exact(1, 1), kIndefinite},
      {exact(1, 1), kIndefinite, kIndefinite},
  };
  for (const Sum& c : cases) EXPECT_EQ(PVTimeSubtract(c.a, c.b), c.sum) << c.a << " - " << c.b;
}

// value / timescale of a, with the sign, plus that of b: over both timescales, if 128 bits hold it.
std::optional<Wide> wideSum(const PVTime& a, const PVTime& b, int sign) {
  Wide sum;
  if (__builtin_add_overflow(static_cast<Wide>(a.value) * b.timescale,
                             sign * static_cast<Wide>(b.value) * a.timescale, &sum))
    return std::nullopt;
  return sum;
}

TEST(TimeAddLaws, UnroundedResultsAreExactAndInfinitiesBeyondTheRange) {
  const auto times = numbersNearLimits();
  for (const PVTime& a : times)
    for (const PVTime& b : times)
      for (int sign : {1, -1}) {
        const PVTime r = sign > 0 ? PVTimeAdd(a, b) : PVTimeSubtract(a, b);
        const Wide exactSum = *wideSum(a, b, sign), unit = static_cast<Wide>(a.timescale) * b.timescale;
        if (!PVTimeIsNumeric(r)) {
          ASSERT_EQ(r, exactSum > 0 ? kPlusInfinity : kMinusInfinity) << a << sign << b;
          ASSERT_GE((exactSum < 0 ? -exactSum : exactSum) / unit, Wide{kMax} - 1) << a << sign << b;
          continue;
        }
        // r.value / r.timescale against exactSum / unit: equal when unrounded, else no more than a unit apart
        Wide left, right;
        if (__builtin_mul_overflow(exactSum, Wide{r.timescale}, &left) ||
            __builtin_mul_overflow(unit, Wide{r.value}, &right))
          continue;
        const Wide apart = left > right ? left - right : right - left;
        ASSERT_LE(apart, PVTimeHasBeenRounded(r) ? unit : 0) << a << sign << b << " = " << r;
      }
}

TEST(TimeAddLaws, CommutesAndUndoesItself) {
  const auto times = numbersNearLimits();
  for (const PVTime& a : times)
    for (const PVTime& b : times) {
      const PVTime sum = PVTimeAdd(a, b);
      ASSERT_EQ(PVTimeCompare(sum, PVTimeAdd(b, a)), 0) << a << " " << b;
      if (!PVTimeIsNumeric(sum) || PVTimeHasBeenRounded(sum)) continue;
      const PVTime back = PVTimeSubtract(sum, b);
      if (!PVTimeIsNumeric(back) || PVTimeHasBeenRounded(back)) continue;
      ASSERT_EQ(PVTimeCompare(back, a), 0) << a << " " << b;
    }
}

// Nothing here may trap, hang or answer with a number that is none.
TEST(TimeHostileFields, EveryOperationSurvives) {
  const auto times = hostileTimes();
  const auto isWellFormed = [](const PVTime& t) {
    return PVTimeIsNumeric(t) || t == kInvalid || t == kIndefinite || t == kPlusInfinity ||
           t == kMinusInfinity;
  };
  for (size_t i = 0; i < times.size(); ++i) {
    for (size_t j = i % 5; j < times.size(); j += 5) {
      EXPECT_TRUE(isWellFormed(PVTimeAdd(times[i], times[j]))) << times[i] << times[j];
      EXPECT_TRUE(isWellFormed(PVTimeSubtract(times[i], times[j]))) << times[i] << times[j];
    }
    for (int32_t number : {0, 1, -1, 7, 1001, INT32_MAX, INT32_MIN}) {
      EXPECT_TRUE(isWellFormed(PVTimeMultiply(times[i], number)));
      EXPECT_TRUE(isWellFormed(PVTimeMultiplyByFloat64(times[i], number * 0.37)));
      for (int32_t divisor : {0, 1, -1, 6, INT32_MAX, INT32_MIN})
        EXPECT_TRUE(isWellFormed(PVTimeMultiplyByRatio(times[i], number, divisor))) << times[i];
      for (PVTimeRoundingMethod method = 0; method < 8; ++method)
        PVTimeConvertScale(times[i], number, method);
    }
    PVTimeAbsoluteValue(times[i]);
    PVTimeGetSeconds(times[i]);
  }
}

TEST(TimeHostileFields, SettledResults) {
  EXPECT_EQ(PVTimeAdd(exact(1, -600), exact(2, -600)), exact(3, -600));
  EXPECT_EQ(PVTimeAdd(exact(1, -600), exact(2, 600)), kInvalid);
  EXPECT_EQ(PVTimeAdd(exact(1, 0), exact(2, 600)), kInvalid);
  EXPECT_EQ(PVTimeAdd(exact(kMax, 0), exact(1, 0)), kPlusInfinity);
  EXPECT_EQ(PVTimeConvertScale(exact(-3, -2), 600, 1), exact(900, 600));
  EXPECT_EQ(PVTimeConvertScale(exact(3, 0), 600, 1), kPlusInfinity);
  EXPECT_EQ(PVTimeConvertScale(exact(-3, 0), 600, 1), kMinusInfinity);
  EXPECT_EQ(PVTimeConvertScale(exact(0, 0), 600, 1), exact(0, 600));
  EXPECT_EQ(PVTimeConvertScale(exact(1, -4), 2, 1), rounded(-1, 2));  // a half, away from zero
  EXPECT_EQ(PVTimeConvertScale(exact(1, -5), 2, 1), rounded(0, 2));
  EXPECT_EQ(PVTimeCompare(exact(-1, -5), exact(1, 3)), -1);
  EXPECT_EQ(PVTimeCompare(exact(1, 0), exact(kMax, 1)), 1);
  EXPECT_EQ(PVTimeCompare(exact(0, 0), exact(-1, 1)), 1);
}

}  // namespace
