#include <kiv/clock.h>
#include <kiv/error.h>
#include <kiv/sync.h>

#include "tests/clocks/scripted_clock.hpp"

namespace {

using namespace test;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr auto kToReference = kKivSyncDirection_ToReference, kFromReference = kKivSyncDirection_FromReference;

bool isSame(const PVTime& a, const PVTime& b) {
  return a.value == b.value && a.timescale == b.timescale && a.flags == b.flags && a.epoch == b.epoch;
}

// ---- Transforms

// Times and rates near every border that the arithmetic knows.
class Draws {
 public:
  PVTime time() {
    static constexpr int32_t kTimescales[] = {1, 600, 48000, 44100, 90000, 999999999, 1000000000, INT32_MAX};
    static constexpr int64_t kNear[] = {0,        0, INT64_C(1) << 51, INT64_C(1) << 53, INT64_C(1) << 62,
                                        INT64_MAX};
    int64_t value = pick(kNear) - below(5);
    if (below(3) == 0) value = below(INT64_C(1) << (1 + below(62)));
    if (below(2)) value = -value;
    PVTime time = PVTimeMake(value, below(2) ? 1000000000 : pick(kTimescales));
    if (below(8) == 0) time.flags |= kPVTimeFlags_HasBeenRounded;
    if (below(8) == 0) time.epoch = below(2) + 1;
    return time;
  }
  double rate() {
    static constexpr double kRates[] = {0.0,  -0.0, 1.0,  1.0,  1.0,      1.0,       -1.0, 2.0,
                                        -3.0, 0.5,  1e18, 1e-9, HUGE_VAL, -HUGE_VAL, kNaN, 30000.0 / 1001.0};
    return below(4) ? pick(kRates) : std::ldexp(static_cast<double>(below(1 << 30)), -20);
  }
  PVSyncTransform transform() { return {time(), rate(), time()}; }

 private:
  int64_t below(int64_t limit) { return static_cast<int64_t>(random_() % static_cast<uint64_t>(limit)); }
  template <class T, size_t N>
  T pick(const T (&from)[N]) {
    return from[below(N)];
  }
  std::mt19937_64 random_{20261123};
};

TEST(SyncTransformTest, AppliesAsTheThreeTimeFunctionsDoToTheLastBit) {
  Draws draws;
  for (int i = 0; i < 400000; ++i) {
    PVSyncTransform transform = draws.transform();
    const PVTime time = draws.time();
    if (i % 3 == 0) transform.fromAnchor.timescale = transform.toAnchor.timescale = time.timescale;
    const PVTime elapsed = PVTimeSubtract(time, transform.fromAnchor);
    const PVTime expected = PVTimeAdd(PVTimeMultiplyByFloat64(elapsed, transform.rate), transform.toAnchor);
    const PVTime actual = KivSyncApplyTransform(&transform, time);
    ASSERT_TRUE(isSame(actual, expected))
        << time.value << "/" << time.timescale << " e" << time.epoch << " by " << transform.fromAnchor.value
        << "/" << transform.fromAnchor.timescale << " * " << transform.rate << " + "
        << transform.toAnchor.value << "/" << transform.toAnchor.timescale << ": " << actual.value << "/"
        << actual.timescale << " f" << actual.flags;
  }
}

TEST(SyncTransformTest, OfWhatIsNoNumberThereIsNoTransform) {
  const PVSyncTransform good = {kPVTimeZero, 2.0, seconds(5)}, still = {kPVTimeZero, 0.0, kPVTimeZero};
  for (PVTime none : {kPVTimeInvalid, kPVTimeIndefinite, kPVTimePositiveInfinity, kPVTimeNegativeInfinity}) {
    const PVSyncTransform from = {none, 2.0, seconds(1)}, to = {seconds(1), 2.0, none};
    const uint64_t before = KivGetErrorCount();
    for (const PVSyncTransform* bad : {&from, &to}) {
      PVSyncTransform out = good;
      EXPECT_TRUE(isSame(KivSyncApplyTransform(bad, kPVTimeZero), kPVTimeInvalid));
      EXPECT_EQ(KivSyncCombineTransforms(bad, &good, &out), kPVSyncError_InvalidParameter);
      EXPECT_EQ(KivSyncCombineTransforms(&good, bad, &out), kPVSyncError_InvalidParameter);
      EXPECT_EQ(KivSyncInvertTransform(bad, &out), kPVSyncError_RequiredParameterMissing);
      EXPECT_EQ(out.rate, 2.0);
    }
    EXPECT_TRUE(isSame(KivSyncApplyTransform(&good, none), kPVTimeInvalid));
    EXPECT_EQ(KivGetErrorCount(), before + 9);
  }
  PVSyncTransform out;
  EXPECT_TRUE(isSame(KivSyncApplyTransform(nullptr, kPVTimeZero), kPVTimeInvalid));
  EXPECT_EQ(KivSyncCombineTransforms(nullptr, &good, &out), kPVSyncError_RequiredParameterMissing);
  EXPECT_EQ(KivSyncCombineTransforms(&good, nullptr, &out), kPVSyncError_RequiredParameterMissing);
  EXPECT_EQ(KivSyncCombineTransforms(&good, &good, nullptr), kPVSyncError_RequiredParameterMissing);
  EXPECT_EQ(KivSyncInvertTransform(nullptr, &out), kPVSyncError_RequiredParameterMissing);
  EXPECT_EQ(KivSyncInvertTransform(&good, nullptr), kPVSyncError_RequiredParameterMissing);
  EXPECT_EQ(KivSyncInvertTransform(&still, &out), kPVSyncError_RateMustBeNonZero);
  const PVSyncTransform unknown = {kPVTimeZero, kNaN, kPVTimeZero};
  EXPECT_EQ(KivSyncInvertTransform(&unknown, &out), 0);
  EXPECT_TRUE(std::isnan(out.rate));
}

// Rates that are powers of two, where nothing is rounded.
TEST(SyncTransformTest, CombiningAppliesOneAfterTheOtherAndInvertingLeadsBack) {
  std::mt19937 random(4);
  auto draw = [&] {
    auto time = [&] { return nanoseconds(static_cast<int64_t>(random() % 1000000) * 1024); };
    return PVSyncTransform{time(), std::ldexp(1.0, static_cast<int>(random() % 7) - 3), time()};
  };
  for (int i = 0; i < 1000; ++i) {
    const PVSyncTransform a = draw(), b = draw(), c = draw();
    const PVTime time = draw().fromAnchor;
    PVSyncTransform ab, abThenC, bc, aThenBC, back;
    ASSERT_EQ(KivSyncCombineTransforms(&a, &b, &ab), 0);
    expectTime(KivSyncApplyTransform(&ab, time), KivSyncApplyTransform(&b, KivSyncApplyTransform(&a, time)));
    EXPECT_TRUE(isSame(ab.fromAnchor, a.fromAnchor));
    EXPECT_EQ(ab.rate, a.rate * b.rate);
    KivSyncCombineTransforms(&ab, &c, &abThenC);
    KivSyncCombineTransforms(&b, &c, &bc);
    KivSyncCombineTransforms(&a, &bc, &aThenBC);
    expectTime(KivSyncApplyTransform(&abThenC, time), KivSyncApplyTransform(&aThenBC, time));
    ASSERT_EQ(KivSyncInvertTransform(&a, &back), 0);
    expectTime(KivSyncApplyTransform(&back, KivSyncApplyTransform(&a, time)), time);
    ab = a;
    KivSyncCombineTransforms(&ab, &b, &ab);  // into its own operand
    expectTime(KivSyncApplyTransform(&ab, time), KivSyncApplyTransform(&b, KivSyncApplyTransform(&a, time)));
    KivSyncInvertTransform(&back, &back);
    expectTime(KivSyncApplyTransform(&back, time), KivSyncApplyTransform(&a, time));
  }
}

// ---- Clocks and their reference clocks

TEST(ClockTransformTest, LeadsBothWaysAtTheRateThatTheSourceSays) {
  ScriptedClock reference, clock(reference.get());
  clock.script.time = seconds(5);
  clock.script.referenceTime = seconds(100);
  struct {
    double rate;
    PVStatus toReference;
  } cases[] = {{2.0, 0}, {-0.25, 0}, {kNaN, 0}, {0.0, kPVSyncError_RateMustBeNonZero}};
  for (const auto& row : cases) {
    clock.script.rate = row.rate;
    PVSyncTransform transform = {};
    ASSERT_EQ(KivClockGetTransformRelativeToReferenceClock(clock.get(), kFromReference, &transform), 0);
    EXPECT_EQ(std::memcmp(&transform.rate, &row.rate, sizeof row.rate), 0);
    expectTime(transform.fromAnchor, seconds(100));
    expectTime(transform.toAnchor, seconds(5));
    EXPECT_EQ(KivClockGetTransformRelativeToReferenceClock(clock.get(), kToReference, &transform),
              row.toReference);
    if (row.toReference != 0 || std::isnan(row.rate)) continue;
    EXPECT_EQ(transform.rate, 1 / row.rate);
    expectTime(transform.fromAnchor, seconds(5));
    expectTime(transform.toAnchor, seconds(100));
  }
  KivDerivedClockCallbacks silent = kScriptedClock;
  silent.getRate = nullptr;
  ScriptedClock rateless(PVClockGetHostTimeClock(), kPVTimeInvalid, silent);
  PVSyncTransform transform;
  for (auto get : {KivClockGetTransformRelativeToReferenceClock, KivClockGetTransformRelativeToHostTimeClock})
    EXPECT_EQ(get(rateless.get(), kFromReference, &transform), kPVClockError_Unimplemented);
}

// clock = 2 * (host - 10) + 100, upper = (clock - 4) / 4 + 1000.
struct Chain {
  Chain() {
    clock.script.time = seconds(100);
    clock.script.referenceTime = seconds(10);
    clock.script.rate = 2.0;
    upper.script.time = seconds(1000);
    upper.script.referenceTime = seconds(4);
    upper.script.rate = 0.25;
  }
  ScriptedClock clock{PVClockGetHostTimeClock()}, upper{clock.get()};
};

TEST(ClockTransformTest, WalksTheChainToTheHostTimeClock) {
  Chain chain;
  PVSyncTransform up, down;
  ASSERT_EQ(KivClockGetTransformRelativeToHostTimeClock(chain.upper.get(), kFromReference, &up), 0);
  ASSERT_EQ(KivClockGetTransformRelativeToHostTimeClock(chain.upper.get(), kToReference, &down), 0);
  EXPECT_EQ(up.rate, 0.5);
  EXPECT_EQ(down.rate, 2.0);
  for (int64_t host : {0, 10, 12, 1000}) {
    const PVTime time = PVTimeMake(2 * host - 20 + 96 + 4000, 4);
    expectTime(KivSyncApplyTransform(&up, seconds(host)), time);
    expectTime(KivSyncApplyTransform(&down, time), seconds(host));
  }
  ScriptedClock stray, onStray(stray.get());
  for (auto* clock : {&stray, &onStray})
    EXPECT_EQ(KivClockGetTransformRelativeToHostTimeClock(clock->get(), kToReference, &down),
              kPVSyncError_InvalidParameter);
  PVClockInvalidate(chain.clock.get());
  EXPECT_EQ(KivClockGetTransformRelativeToHostTimeClock(chain.upper.get(), kToReference, &down),
            kPVClockError_InvalidClock);
  EXPECT_EQ(down.rate, 2.0);
}

// ---- The pivot

TEST(SyncTest, ConvertsBetweenAnyTwoClocksThroughTheHostTimeClock) {
  Chain one;
  ScriptedClock other(PVClockGetHostTimeClock());  // other = -(host - 50)
  other.script.referenceTime = seconds(50);
  other.script.rate = -1.0;
  PVClockRef host = PVClockGetHostTimeClock();
  struct {
    PVClockRef from, to;
    int64_t time, expected;
    double rate;
  } cases[] = {{host, one.clock.get(), 12, 104, 2.0},
               {one.clock.get(), host, 104, 12, 0.5},
               {one.clock.get(), one.upper.get(), 104, 1025, 0.25},
               {one.upper.get(), one.clock.get(), 1025, 104, 4.0},
               {host, other.get(), 12, 38, -1.0},
               {one.clock.get(), other.get(), 104, 38, -0.5},
               {other.get(), one.upper.get(), 38, 1025, -0.5}};
  for (const auto& row : cases) {
    expectTime(PVSyncConvertTime(seconds(row.time), row.from, row.to), seconds(row.expected));
    EXPECT_EQ(PVSyncGetRelativeRate(row.to, row.from), row.rate);
    PVSyncTransform transform;
    ASSERT_EQ(PVSyncGetRelativeRateAndAnchorTime(row.to, row.from, &transform.rate, &transform.toAnchor,
                                                 &transform.fromAnchor),
              0);
    EXPECT_EQ(transform.rate, row.rate);
    expectTime(KivSyncApplyTransform(&transform, seconds(row.time)), seconds(row.expected));
    EXPECT_EQ(PVSyncGetRelativeRateAndAnchorTime(row.to, row.from, nullptr, nullptr, nullptr), 0);
  }
  const PVTime odd = {INT64_MAX - 1, 7, 3, 5};
  EXPECT_TRUE(isSame(PVSyncConvertTime(odd, other.get(), other.get()), odd));
  EXPECT_EQ(PVSyncGetRelativeRate(other.get(), other.get()), 1.0);
  expectTime(PVSyncGetTime(one.upper.get()), seconds(1000));
  EXPECT_FALSE(PVSyncMightDrift(other.get(), other.get()));
  EXPECT_TRUE(PVSyncMightDrift(other.get(), host));
}

TEST(SyncTest, FailsWithTheReasonOfTheSideThatLeadsNowhere) {
  PVClockRef host = PVClockGetHostTimeClock();
  ScriptedClock clock(host), still(host), ended(host), stray;
  still.script.rate = 0.0;
  PVClockInvalidate(ended.get());
  BRTypeRef stranger = kBRBooleanTrue;
  struct {
    BRTypeRef of, relativeTo;
    PVStatus expected;
  } cases[] = {{nullptr, host, kPVSyncError_RequiredParameterMissing},
               {host, nullptr, kPVSyncError_RequiredParameterMissing},
               {stranger, host, kPVSyncError_InvalidParameter},
               {host, stranger, kPVSyncError_InvalidParameter},
               {stray.get(), clock.get(), kPVSyncError_InvalidParameter},
               {clock.get(), still.get(), kPVSyncError_RateMustBeNonZero},
               {ended.get(), clock.get(), kPVClockError_InvalidClock},
               {ended.get(), still.get(), kPVSyncError_RateMustBeNonZero}};
  for (const auto& row : cases) {
    const uint64_t before = KivGetErrorCount();
    double rate = 7.0;
    EXPECT_EQ(PVSyncGetRelativeRateAndAnchorTime(row.of, row.relativeTo, &rate, nullptr, nullptr),
              row.expected);
    EXPECT_EQ(rate, 7.0);
    EXPECT_TRUE(std::isnan(PVSyncGetRelativeRate(row.of, row.relativeTo)));
    EXPECT_TRUE(isSame(PVSyncConvertTime(seconds(1), row.relativeTo, row.of), kPVTimeInvalid));
    EXPECT_EQ(KivGetErrorCount(), before + 3);
  }
  EXPECT_EQ(PVSyncGetRelativeRate(still.get(), host), 0.0);
  EXPECT_FALSE(PVTimeIsValid(PVSyncConvertTime(kPVTimeIndefinite, host, host)));
  for (BRTypeRef bad : {static_cast<BRTypeRef>(nullptr), stranger}) {
    EXPECT_FALSE(PVTimeIsValid(PVSyncGetTime(bad)));
    EXPECT_TRUE(PVSyncMightDrift(bad, host));
    EXPECT_TRUE(PVSyncMightDrift(host, bad));
  }
  EXPECT_EQ(KivSyncGetNotificationCenter(), PVNotificationCenterGetDefaultLocalCenter());
}

// ---- Threads

TEST(ClockThreadsTest, ReadersBesideDiscontinuitiesAndTheEnd) {
  for (int round = 0; round < 20; ++round) {
    ScriptedClock lower(PVClockGetHostTimeClock(), nanoseconds(1000)), upper(lower.get(), seconds(1));
    lower.script.time = upper.script.time = seconds(3);
    std::vector<std::thread> threads;
    std::atomic<int> good{0};
    for (int reader = 0; reader < 3; ++reader) {
      threads.emplace_back([&] {
        for (int i = 0; i < 300; ++i) {
          const PVTime time = PVClockGetTime(upper.get());
          const double rate = PVSyncGetRelativeRate(upper.get(), PVClockGetHostTimeClock());
          if (PVTimeIsNumeric(time) && rate == 1.0) ++good;
          PVClockMightDrift(upper.get(), lower.get());
        }
      });
    }
    threads.emplace_back([&] {
      for (int i = 0; i < 300; ++i) KivDerivedClockDiscontinuityOccurred(i % 2 ? upper.get() : lower.get());
    });
    if (round % 2) {
      threads.emplace_back([&] { PVClockInvalidate(upper.get()); });
      threads.emplace_back([&] { PVClockInvalidate(upper.get()); });
    }
    for (std::thread& thread : threads) thread.join();
    if (round % 2) {
      EXPECT_EQ(upper.script.finalized, 1);
      EXPECT_EQ(BRGetRetainCount(lower.get()), 1u);
    } else {
      EXPECT_EQ(good, 900);
    }
  }
}

}  // namespace
