// Making times, and reading them as seconds.
#include <pevrin/time.h>

#include <bedra/log.h>

#include <atomic>
#include <cmath>
#include <limits>

#include "foundation/time_math.hpp"

extern "C" {
constinit const PVTime kPVTimeInvalid = pv::kInvalid;
constinit const PVTime kPVTimeIndefinite = pv::kIndefinite;
constinit const PVTime kPVTimePositiveInfinity = pv::kPositiveInfinity;
constinit const PVTime kPVTimeNegativeInfinity = pv::kNegativeInfinity;
constinit const PVTime kPVTimeZero = {0, 1, 1, 0};
}

static_assert(sizeof(PVTime) == 24 && offsetof(PVTime, flags) == 12 && offsetof(PVTime, epoch) == 16);

namespace {

constexpr int kWarnings = 10;
constexpr int32_t kCoarseTimescale = 100;

// How many warnings are left. Two threads may spend the same one; that is of no consequence.
constinit std::atomic<int> warningBudget{kWarnings};

void warnOfLowTimescale(double seconds, int32_t timescale, double error) {
  const int budget = warningBudget.load(std::memory_order_relaxed);
  if (budget <= 0) return;
  warningBudget.store(budget - 1, std::memory_order_relaxed);
  BRLog(kBRLogLevelError,
        "PVTimeMakeWithSeconds(%.3f seconds, timescale %d): warning: error of %.3f introduced due to very "
        "low timescale",
        seconds, timescale, error);
}

}  // namespace

PVTime PVTimeMake(int64_t value, int32_t timescale) { return PVTimeMakeWithEpoch(value, timescale, 0); }

PVTime PVTimeMakeWithEpoch(int64_t value, int32_t timescale, int64_t epoch) {
  if (timescale <= 0) return pv::kInvalid;
  return {value, timescale, kPVTimeFlags_Valid, epoch};
}

PVTime PVTimeMakeWithSeconds(double seconds, int32_t preferredTimescale) {
  int32_t timescale = preferredTimescale;
  if (timescale < 1) return pv::kInvalid;
  if (seconds == 0.0) return {0, timescale, kPVTimeFlags_Valid, 0};
  double product = timescale * seconds;
  if (seconds < 0) product = -product;
  while (product > pv::kTwoTo63) {
    timescale >>= 1;
    if (timescale == 0) return pv::infinity(seconds < 0);
    product = timescale * seconds;  // with its sign: a negative product ends the loop, as the header says
  }
  int64_t value = pv::truncated(product);
  if (seconds < 0) value = pv::wrappingNegated(value);
  const double error = static_cast<double>(value) / timescale - seconds;
  if (error == 0) return {value, timescale, kPVTimeFlags_Valid, 0};
  const double size = std::fabs(error);
  if (timescale <= kCoarseTimescale && size > 0.01 && size < 1.0)
    warnOfLowTimescale(seconds, timescale, error);
  return {value, timescale, kPVTimeFlags_Valid | kPVTimeFlags_HasBeenRounded, 0};
}

double PVTimeGetSeconds(PVTime time) {
  if (pv::isInvalid(time) || pv::isIndefinite(time)) return std::numeric_limits<double>::quiet_NaN();
  if (pv::isPositiveInfinity(time)) return std::numeric_limits<double>::infinity();
  if (pv::isNegativeInfinity(time)) return -std::numeric_limits<double>::infinity();
  return static_cast<double>(time.value) / time.timescale;
}
