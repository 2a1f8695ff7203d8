// Making times, seconds and the order.
#include "tests/foundation/time_support.hpp"

namespace {

using namespace test;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

TEST(Time, ConstantsAndLayout) {
  static_assert(sizeof(PVTime) == 24 && offsetof(PVTime, timescale) == 8 && offsetof(PVTime, flags) == 12);
  EXPECT_EQ(kPVTimeInvalid, kInvalid);
  EXPECT_EQ(kPVTimeIndefinite, kIndefinite);
  EXPECT_EQ(kPVTimePositiveInfinity, kPlusInfinity);
  EXPECT_EQ(kPVTimeNegativeInfinity, kMinusInfinity);
  EXPECT_EQ(kPVTimeZero, exact(0, 1));
}

TEST(Time, MakeRefusesTimescalesBelowOne) {
  EXPECT_EQ(PVTimeMake(5, 600), exact(5, 600));
  EXPECT_EQ(PVTimeMakeWithEpoch(kMin, INT32_MAX, -3), exact(kMin, INT32_MAX, -3));
  for (int32_t timescale : {0, -1, INT32_MIN}) {
    EXPECT_EQ(PVTimeMake(5, timescale), kInvalid);
    EXPECT_EQ(PVTimeMakeWithEpoch(5, timescale, 9), kInvalid);
    EXPECT_EQ(PVTimeMakeWithSeconds(5, timescale), kInvalid);
  }
}

TEST(Time, MakeWithSecondsTruncatesHalvesAndFlags) {
  struct Case {
    double seconds;
    int32_t timescale;
    PVTime expected;
  };
  const Case cases[] = {
      {0.0, 600, exact(0, 600)},
      {-0.0, 600, exact(0, 600)},
      {1.5, 2, exact(3, 2)},
      {-1.5, 2, exact(-3, 2)},
      {0.3, 10, exact(3, 10)},
      {0.333, 100, rounded(33, 100)},
      {-0.333, 1000000, exact(-333000, 1000000)},
      {1e-12, 1000000000, rounded(0, 1000000000)},
      {-1e-12, 1000000000, rounded(0, 1000000000)},
      {1e10, 1000000000, exact(5000000000000000000, 500000000)},
      {-1e10, 1000000000, rounded(5000000000000000000, 500000000)},  // the sign is lost on purpose
      {-1e10, 900000000, exact(-9000000000000000000, 900000000)},
      {0x1p63, 1, rounded(kMin, 1)},
      {-0x1p63, 1, exact(kMin, 1)},
      {0x1p63, 2, rounded(kMin, 1)},
      {0x1p64, 1000, kPlusInfinity},
      {-0x1p64, 1, kMinusInfinity},
      {kInfinity, 600, kPlusInfinity},
      {-kInfinity, 1, kMinusInfinity},
      {-kInfinity, 600, rounded(kMin, 300)},
      {kNaN, 600, rounded(kMin, 600)},
  };
  for (const Case& c : cases)
    EXPECT_EQ(PVTimeMakeWithSeconds(c.seconds, c.timescale), c.expected)
        << c.seconds << " at " << c.timescale;
}

struct Log {
  std::vector<std::string> lines;
  static void sink(BRLogLevel level, const char* message, void* log) {
    if (level == kBRLogLevelError) static_cast<Log*>(log)->lines.push_back(message);
  }
};

// In a process of its own: the budget is spent once. Answers what is wrong, or null.
const char* faultOfWarnings() {
  static Log log;
  BRLogSetSink(Log::sink, &log);
  PVTimeMakeWithSeconds(0.333, 100);  // an error below a hundredth
  PVTimeMakeWithSeconds(0.25, 101);   // a timescale that is fine enough
  PVTimeMakeWithSeconds(0x1p63, 1);   // an error beyond a second
  if (!log.lines.empty()) return "a warning that was not due";
  if (PVTimeMakeWithSeconds(0.25, 10) != rounded(2, 10)) return "the time";
  if (log.lines.size() != 1) return "no warning";
  if (log.lines[0] !=
      "PVTimeMakeWithSeconds(0.250 seconds, timescale 10): warning: error of -0.050 introduced due to "
      "very low timescale")
    return "the text";
  for (int i = 0; i < 30; ++i) PVTimeMakeWithSeconds(-0.25, 10);
  return log.lines.size() == 10 ? nullptr : "the budget of ten";
}

TEST(Time, WarnsOfLowTimescalesTenTimesPerProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto report = [] {
    const char* fault = faultOfWarnings();
    std::fprintf(stderr, "wrong: %s", fault ? fault : "nothing");
    std::exit(0);
  };
  EXPECT_EXIT(report(), testing::ExitedWithCode(0), "wrong: nothing");
}

TEST(Time, SecondsOfEveryKind) {
  EXPECT_EQ(PVTimeGetSeconds(exact(1, 3)), 1.0 / 3);
  EXPECT_EQ(PVTimeGetSeconds(exact(-90000, 90000, 5)), -1.0);
  EXPECT_EQ(PVTimeGetSeconds(exact(kMax, 1)), 0x1p63);
  EXPECT_EQ(PVTimeGetSeconds(kPlusInfinity), kInfinity);
  EXPECT_EQ(PVTimeGetSeconds(kMinusInfinity), -kInfinity);
  EXPECT_TRUE(std::isnan(PVTimeGetSeconds(kInvalid)));
  EXPECT_TRUE(std::isnan(PVTimeGetSeconds(kIndefinite)));
  EXPECT_TRUE(std::isnan(PVTimeGetSeconds({5, 1, 2, 0})));
}

// Sorted; those in one row are equal.
const std::vector<std::vector<PVTime>> kOrder = {
    {kMinusInfinity, {5, 3, 9, 7}},
    {exact(100, 1, -1)},
    {exact(kMin, 1)},
    {exact(kMin, 2)},
    {exact(-1, 2), rounded(-2, 4)},
    {exact(-1, 3)},
    {exact(0, 1), exact(0, 90000)},
    {exact(4294967298, 1)},
    {exact(kMax, INT32_MAX)},  // 4294967298 + 1/INT32_MAX
    {exact(kMax - 1, 1)},
    {exact(kMax, 1)},
    {exact(kMin, 1, 1)},
    {exact(1, 1, 1)},
    {kIndefinite},
    {kPlusInfinity, {5, 3, 7, 7}},
    {kInvalid, {5, 3, 2, 7}},
};

TEST(Time, CompareOrdersEveryKind) {
  for (size_t i = 0; i < kOrder.size(); ++i)
    for (size_t j = 0; j < kOrder.size(); ++j)
      for (const PVTime& a : kOrder[i])
        for (const PVTime& b : kOrder[j]) EXPECT_EQ(PVTimeCompare(a, b), (i > j) - (i < j)) << a << " " << b;
}

TEST(Time, CompareIsExactNearTheLimits) {
  const auto times = numbersNearLimits();
  for (const PVTime& a : times)
    for (const PVTime& b : times) {
      const Wide difference =
          static_cast<Wide>(a.value) * b.timescale - static_cast<Wide>(b.value) * a.timescale;
      ASSERT_EQ(PVTimeCompare(a, b), (difference > 0) - (difference < 0)) << a << " " << b;
    }
}

// A sort would run wild otherwise.
TEST(Time, CompareIsATotalOrderOverAnyFields) {
  auto times = hostileTimes();
  const auto same = [](const PVTime& a, const PVTime& b) { return PVTimeCompare(a, b) == 0; };
  std::stable_sort(times.begin(), times.end(),
                   [](const PVTime& a, const PVTime& b) { return PVTimeCompare(a, b) < 0; });
  for (size_t i = 0; i < times.size(); ++i)
    for (size_t j = i; j < times.size(); ++j) {
      const int32_t forth = PVTimeCompare(times[i], times[j]);
      ASSERT_LE(forth, 0) << times[i] << " " << times[j];
      ASSERT_EQ(forth, -PVTimeCompare(times[j], times[i])) << times[i] << " " << times[j];
      if (forth == 0 && j > i) {
        ASSERT_TRUE(same(times[i], times[i + 1])) << times[i] << " " << times[j];
      }
    }
}

TEST(Time, MinimumAndMaximumOfEqualTimesAreOppositeOperands) {
  const PVTime half = exact(1, 2), same = rounded(2, 4);
  EXPECT_EQ(PVTimeMinimum(half, same), same);
  EXPECT_EQ(PVTimeMaximum(half, same), half);
  EXPECT_EQ(PVTimeMinimum(exact(1, 1, 4), exact(9, 1, 3)), exact(9, 1, 3));
  EXPECT_EQ(PVTimeMaximum(kInvalid, kPlusInfinity), kInvalid);
  EXPECT_EQ(PVTimeMinimum(kIndefinite, kMinusInfinity), kMinusInfinity);
}

TEST(Time, AbsoluteValueKeepsWhatIsNoNumber) {
  EXPECT_EQ(PVTimeAbsoluteValue(rounded(-5, 3, 7)), rounded(5, 3, 7));
  EXPECT_EQ(PVTimeAbsoluteValue(exact(5, 3)), exact(5, 3));
  EXPECT_EQ(PVTimeAbsoluteValue(kMinusInfinity), kPlusInfinity);
  for (const PVTime& t : {kInvalid, kIndefinite, kPlusInfinity, PVTime{-5, 1, 0, 0}})
    EXPECT_EQ(PVTimeAbsoluteValue(t), t);
  EXPECT_EQ(PVTimeAbsoluteValue(exact(kMin, 600, 2)), exact(int64_t{1} << 62, 300, 2));
  EXPECT_EQ(PVTimeAbsoluteValue(exact(kMin, 3)).timescale, 1);
  EXPECT_EQ(PVTimeAbsoluteValue(exact(kMin, 1)), kPlusInfinity);
}

}  // namespace
