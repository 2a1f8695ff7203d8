// The arithmetic of audio device clocks: a line over the host's time that is steered after a device's time
// stamps.
//
// All in nanoseconds. The line never jumps and never runs backward, whatever the stamps say: each stamp only
// changes the rate at which it goes on. That is the device's rate, as measured, and a correction that takes
// back the distance between line and device in kCorrectionNs. What the device's time is follows from the
// frames counted since its first stamp alone, so that nothing accumulates.
//
// The rate is the slope over a baseline of 1 to 10 seconds: the older end of two that are moved up every 5
// seconds.
#ifndef PEVRIN_CLOCKS_DEVICE_TIMELINE_HPP
#define PEVRIN_CLOCKS_DEVICE_TIMELINE_HPP

#include <sonvar/audio_device.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "runtime/mul_div.hpp"

namespace pv {

class DeviceTimeline {
 public:
  static constexpr int64_t kSecondNs = 1'000'000'000;
  // A device that is farther off than this has not drifted there: its counter has jumped or stood still.
  static constexpr int64_t kLargestDistanceNs = kSecondNs / 10;
  static constexpr double kCorrectionNs = 4e9;
  static constexpr int64_t kShortestBaselineNs = kSecondNs;
  static constexpr int64_t kBaselineStepNs = 5 * kSecondNs;
  static constexpr double kLargestDrift = 0.01;  // no device that plays is off by more

  explicit DeviceTimeline(int64_t hostNs) : lineHostNs_(hostNs), lineNs_(hostNs) {}

  int64_t timeAt(int64_t hostNs) const {
    return lineNs_ + std::llround(static_cast<double>(hostNs - lineHostNs_) * rate_);
  }
  double rate() const { return rate_; }

  // From now on at the host's rate, until another device is followed.
  void runFree(int64_t nowNs) {
    goOn(nowNs, 1.0);
    isFollowing_ = false;
  }

  // Goes on after what the device says now.
  void follow(const SonvarTimeStamp& stamp, int64_t nowNs) {
    const auto hostNs = static_cast<int64_t>(stamp.hostTimeNs);
    if (stamp.framesPerSecond == 0 || hostNs < 0 || std::abs(nowNs - hostNs) > kSecondNs) return;  // no news
    const bool continues =
        isFollowing_ && stamp.run == first_.run && stamp.framesPerSecond == first_.framesPerSecond;
    int64_t distance = 0;
    Point point = {hostNs, 0};
    if (!continues || !deviceTime(stamp, &point.deviceNs) ||
        std::abs(distance = point.deviceNs - timeAt(hostNs)) > kLargestDistanceNs) {
      startAt(stamp, timeAt(hostNs));
      goOn(nowNs, deviceRate_);
      return;
    }
    measure(point);
    goOn(nowNs, deviceRate_ + static_cast<double>(distance) / kCorrectionNs);
  }

 private:
  struct Point {
    int64_t hostNs;
    int64_t deviceNs;
  };

  void goOn(int64_t nowNs, double rate) {
    lineNs_ = timeAt(nowNs);
    lineHostNs_ = nowNs;
    rate_ = rate;
  }

  // The device's time is now the line's.
  void startAt(const SonvarTimeStamp& stamp, int64_t timeNs) {
    isFollowing_ = true;
    deviceRate_ = 1.0;
    first_ = stamp;
    firstNs_ = timeNs;
    older_ = newer_ = {static_cast<int64_t>(stamp.hostTimeNs), timeNs};
  }

  // False when it is beyond all bounds.
  bool deviceTime(const SonvarTimeStamp& stamp, int64_t* timeNs) const {
    int64_t frames;
    if (__builtin_sub_overflow(stamp.frames, first_.frames, &frames)) return false;
    const int64_t elapsedNs = mulDiv(frames, kSecondNs, stamp.framesPerSecond).value;
    constexpr int64_t kLargest = INT64_MAX / 4;  // as no host has been up: differences of two cannot overflow
    if (elapsedNs > kLargest || elapsedNs < -kLargest) return false;
    *timeNs = firstNs_ + elapsedNs;
    return true;
  }

  void measure(const Point& point) {
    const int64_t baselineNs = point.hostNs - older_.hostNs;
    if (baselineNs >= kShortestBaselineNs) {
      const double slope =
          static_cast<double>(point.deviceNs - older_.deviceNs) / static_cast<double>(baselineNs);
      deviceRate_ = std::clamp(slope, 1.0 - kLargestDrift, 1.0 + kLargestDrift);
    }
    if (point.hostNs - newer_.hostNs < kBaselineStepNs) return;
    older_ = newer_;
    newer_ = point;
  }

  // The line: the time at one instant, and how it goes on.
  int64_t lineHostNs_;
  int64_t lineNs_;
  double rate_ = 1.0;

  bool isFollowing_ = false;
  double deviceRate_ = 1.0;  // as measured
  SonvarTimeStamp first_{};
  int64_t firstNs_ = 0;
  Point older_{}, newer_{};
};

}  // namespace pv

#endif
