// The kernel's timer, on the monotonic clock: what the threads that serve timers sleep on. It is more exact
// than a time limit on a lock or a poll, which the kernel may stretch by the thread's slack; and setting it
// to a time that has passed wakes the sleeper, so that nothing else is needed to do so.
#ifndef BEDRA_SRC_TIMER_DESCRIPTOR_HPP
#define BEDRA_SRC_TIMER_DESCRIPTOR_HPP

#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>

namespace br {

inline constexpr int64_t kNeverNs = INT64_MAX;

class TimerDescriptor {
 public:
  TimerDescriptor() { open(); }
  ~TimerDescriptor() { close(); }
  TimerDescriptor(const TimerDescriptor&) = delete;
  TimerDescriptor& operator=(const TimerDescriptor&) = delete;

  // -1 when the system had none left, and after close.
  int get() const { return descriptor_; }
  bool open() {
    if (descriptor_ < 0) descriptor_ = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
    return descriptor_ >= 0;
  }
  void close() {
    if (descriptor_ >= 0) ::close(descriptor_);
    descriptor_ = -1;
  }

  // Makes it readable from that time on, and not before. A sleeper wakes at the new time.
  void set(int64_t timeNs) {
    itimerspec when{};
    if (timeNs != kNeverNs) {
      timeNs = std::max<int64_t>(timeNs, 1);  // zero would mean never
      when.it_value = {timeNs / 1'000'000'000, timeNs % 1'000'000'000};
    }
    timerfd_settime(descriptor_, TFD_TIMER_ABSTIME, &when, nullptr);
  }

  // Sleeps until it is readable, which it is no longer then.
  void wait() {
    uint64_t expirations;
    while (read(descriptor_, &expirations, sizeof expirations) < 0 && errno == EINTR) {
    }
  }

 private:
  int descriptor_ = -1;
};

}  // namespace br

#endif
