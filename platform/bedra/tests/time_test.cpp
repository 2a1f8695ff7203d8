// Time: the epoch, and a host clock that runs with the system's.
#include <time.h>
#include <fstream>

#include "tests/support/test.hpp"

namespace {

double unixSeconds() {
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

TEST(Time, AbsoluteTimeCountsFrom2001) {
  tm start{};
  start.tm_year = 101;
  start.tm_mday = 1;
  const double epoch = static_cast<double>(timegm(&start));
  const double before = unixSeconds() - epoch, now = BRAbsoluteTimeGetCurrent(),
               after = unixSeconds() - epoch;
  EXPECT_GE(now, before - 1e-5);
  EXPECT_LE(now, after + 1e-5);
}

TEST(Time, TicksNeverRunBackwardAndAreNanosecondsByTheRatio) {
  uint32_t numerator = 0, denominator = 0;
  BRHostTimeGetTicksToNsRatio(&numerator, &denominator);
  BRHostTimeGetTicksToNsRatio(nullptr, nullptr);
  ASSERT_GT(denominator, 0u);
  const uint64_t start = BRHostTimeGetTicks();
  timespec before, after;
  clock_gettime(CLOCK_MONOTONIC, &before);
  uint64_t last = start;
  for (int i = 0; i < 100000; ++i) {
    const uint64_t ticks = BRHostTimeGetTicks();
    ASSERT_GE(ticks, last);
    last = ticks;
  }
  clock_gettime(CLOCK_MONOTONIC, &after);
  const double elapsed = static_cast<double>(after.tv_sec - before.tv_sec) +
                         static_cast<double>(after.tv_nsec - before.tv_nsec) / 1e9;
  const double counted = static_cast<double>(last - start) * numerator / denominator / 1e9;
  EXPECT_NEAR(counted, elapsed, 0.01);
}

TEST(Time, UptimeIsThatOfTheMachine) {
  double uptime = 0;
  std::ifstream("/proc/uptime") >> uptime;
  const double ours = static_cast<double>(BRHostTimeGetUptimeNs()) / 1e9;
  EXPECT_GT(ours, 0);
  EXPECT_LT(ours, uptime + 1);  // the system's figure includes time asleep
}

}  // namespace
