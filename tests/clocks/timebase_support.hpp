// A clock whose time the test sets, and what timebases post.
#ifndef TESTS_CLOCKS_TIMEBASE_SUPPORT_HPP
#define TESTS_CLOCKS_TIMEBASE_SUPPORT_HPP

#include <kiv/timebase.h>
#include <pevrin/notification_center.h>

#include "tests/clocks/scripted_clock.hpp"

namespace test {

using Timebase = br::Ref<PVTimebase>;

inline PVTime ns(int64_t value) { return nanoseconds(value); }
inline bool areEqual(PVTime a, PVTime b) { return PVTimeCompare(a, b) == 0; }

// Runs on the host time clock's time as far as anybody can tell, but stands still until it is set.
class FakeClock : public ScriptedClock {
 public:
  FakeClock() : ScriptedClock(PVClockGetHostTimeClock()) {}
  operator PVClockRef() const { return get(); }
  void set(int64_t timeNs) { script.time = ns(timeNs); }
  void advance(int64_t byNs) { set(nowNs() + byNs); }
  int64_t nowNs() const { return PVTimeConvertScale(script.time, 1'000'000'000, 1).value; }
  void setRate(double rate) { script.rate = rate; }
};

inline Timebase onClock(PVClockRef clock) {
  Timebase made;
  EXPECT_EQ(PVTimebaseCreateWithMasterClock(nullptr, clock, made.out()), 0);
  return made;
}
inline Timebase onTimebase(PVTimebaseRef master) {
  Timebase made;
  EXPECT_EQ(PVTimebaseCreateWithMasterTimebase(nullptr, master, made.out()), 0);
  return made;
}
inline Timebase viewOf(PVTimebaseRef target, PVTimebaseWriteAttemptCallback callback = nullptr,
                       void* refCon = nullptr) {
  Timebase made;
  EXPECT_EQ(PVTimebaseCreateReadOnlyTimebase(nullptr, target, callback, refCon, made.out()), 0);
  return made;
}

// A notification: 'R'ate changed, time 'J'umped, master 'W'ill or 'D'id change; and the time in its payload.
struct Event {
  const void* object;
  char what;
  PVTime time;
  bool operator==(const Event& other) const {
    return object == other.object && what == other.what && areEqual(time, other.time);
  }
};

inline void PrintTo(const Event& event, std::ostream* out) {
  *out << event.what << " of " << event.object << " at " << event.time.value << "/" << event.time.timescale;
}

// Writes down what is posted for the objects that it is given.
class Recorder {
 public:
  Recorder() = default;
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;
  ~Recorder() {
    for (const void* object : objects_)
      PVNotificationCenterRemoveListener(center(), this, hear, nullptr, object);
  }
  void listenTo(const void* object) {
    ASSERT_EQ(PVNotificationCenterAddListener(center(), this, hear, nullptr, object), 0);
    objects_.push_back(object);
  }
  std::vector<Event> take() { return std::exchange(events_, {}); }
  // The events without objects and times: "RJ".
  std::string takeText() {
    std::string text;
    for (const Event& event : take()) text += event.what;
    return text;
  }

  void (*onEvent)(void* context, const Event& event) = nullptr;
  void* context = nullptr;

 private:
  static PVNotificationCenterRef center() { return PVNotificationCenterGetDefaultLocalCenter(); }
  static void hear(PVNotificationCenterRef, void* listener, BRStringRef name, const void* object,
                   BRDictionaryRef payload) {
    auto* self = static_cast<Recorder*>(listener);
    const char what = BREqual(name, kPVTimebaseNotification_EffectiveRateChanged) ? 'R'
                      : BREqual(name, kPVTimebaseNotification_TimeJumped)         ? 'J'
                      : BREqual(name, kPVTimebaseNotification_MasterWillChange)   ? 'W'
                      : BREqual(name, kPVTimebaseNotification_MasterDidChange)    ? 'D'
                                                                                  : '?';
    const void* time =
        payload ? BRDictionaryGetValue(payload, kPVTimebaseNotificationKey_EventTime) : nullptr;
    self->events_.push_back({object, what, PVTimeMakeFromDictionary(static_cast<BRDictionaryRef>(time))});
    if (self->onEvent) self->onEvent(self->context, self->events_.back());
  }

  std::vector<const void*> objects_;
  std::vector<Event> events_;
};

}  // namespace test

#endif
