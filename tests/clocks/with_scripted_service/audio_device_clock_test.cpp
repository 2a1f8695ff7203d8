#include <kiv/clock.h>
#include <pevrin/audio_device_clock.h>

#include "tests/clocks/with_scripted_service/scripted_sonvar.hpp"
#include "tests/support/test.hpp"

namespace {

using namespace br::literals;

using Clock = br::Ref<PVClock>;

test::ScriptedSonvar& script() { return test::scriptedSonvar(); }

struct Following {
  std::string uid;  // empty without a device
  PVAudioDeviceID device;
  bool followsDefault;
  bool operator==(const Following&) const = default;
};

class AudioDeviceClockTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { setenv("PEVRIN_SONVAR_PATH", SCRIPTED_SONVAR, 1); }
  AudioDeviceClockTest() {
    script().devices.clear();
    speakers = script().add("speakers");
    headset = script().add("headset");
    script().defaultDevice = speakers;
  }
  ~AudioDeviceClockTest() override {
    EXPECT_TRUE(script().listeners.empty());
    for (const auto& [device, state] : script().devices) EXPECT_EQ(state.starts, 0) << state.uid;
  }

  static Clock make(BRStringRef uid = nullptr) {
    Clock clock;
    EXPECT_EQ(PVAudioDeviceClockCreate(nullptr, uid, clock.out()), 0);
    return clock;
  }
  // Reads the clock in such a way that it asks its device; its time stays that of the host, which the devices
  // keep.
  static Following read(const Clock& clock) {
    KivDerivedClockDiscontinuityOccurred(clock.get());
    PVTime time, hostTime;
    EXPECT_EQ(PVClockGetAnchorTime(clock.get(), &time, &hostTime), 0);
    EXPECT_LT(std::abs(PVTimeGetSeconds(PVTimeSubtract(time, hostTime))), 0.001);
    BRStringRef uid;
    Following following;
    EXPECT_EQ(
        PVAudioDeviceClockGetAudioDevice(clock.get(), &uid, &following.device, &following.followsDefault), 0);
    if (uid) following.uid = BRStringGetUTF8(uid);
    return following;
  }

  SonvarDeviceID speakers, headset;
};

TEST_F(AudioDeviceClockTest, FollowsTheDeviceThatItIsGiven) {
  const Clock byDefault = make(), byUID = make("headset"_br);
  Clock byNumber, plain;
  ASSERT_EQ(PVAudioDeviceClockCreateFromAudioDeviceID(nullptr, headset, byNumber.out()), 0);
  ASSERT_EQ(PVAudioClockCreate(nullptr, plain.out()), 0);
  EXPECT_EQ(read(byDefault), (Following{"speakers", speakers, true}));
  EXPECT_EQ(read(plain), (Following{"speakers", speakers, true}));
  EXPECT_EQ(read(byUID), (Following{"headset", headset, false}));
  EXPECT_EQ(read(byNumber), (Following{"headset", headset, false}));
  EXPECT_EQ(script()[headset].starts, 2);
  EXPECT_FALSE(PVClockMightDrift(byUID.get(), byNumber.get()));
  EXPECT_TRUE(PVClockMightDrift(byUID.get(), byDefault.get()));
  EXPECT_TRUE(PVClockMightDrift(byUID.get(), PVClockGetHostTimeClock()));

  ASSERT_EQ(PVAudioDeviceClockSetAudioDeviceUID(byUID.get(), "speakers"_br), 0);
  EXPECT_EQ(read(byUID), (Following{"speakers", speakers, false}));
  ASSERT_EQ(PVAudioDeviceClockSetAudioDeviceUID(byUID.get(), nullptr), 0);
  EXPECT_EQ(read(byUID), (Following{"speakers", speakers, true}));
  ASSERT_EQ(PVAudioDeviceClockSetAudioDeviceID(byUID.get(), headset), 0);
  EXPECT_EQ(read(byUID), (Following{"headset", headset, false}));
  EXPECT_EQ(script()[headset].starts, 2);
}

TEST_F(AudioDeviceClockTest, AsksItsDeviceNowAndThen) {
  const Clock clock = make();
  for (int i = 0; i < 1000; ++i) PVClockGetTime(clock.get());
  EXPECT_GE(script()[speakers].questions, 1);
  EXPECT_LT(script()[speakers].questions, 100);
  script()[speakers].stampStatus = kSonvarErr_Unusable;  // for a while
  EXPECT_EQ(read(clock).device, speakers);
  script()[speakers].stampStatus = 0;
  script()[speakers].jumpedFrames = 48000 * 60;
  EXPECT_EQ(read(clock).device, speakers);
  EXPECT_EQ(PVSyncGetRelativeRate(clock.get(), PVClockGetHostTimeClock()), 1.0);
}

TEST_F(AudioDeviceClockTest, ChangesDevicesWithTheDefaultAndRunsOnWithoutOne) {
  const Clock follower = make(), faithful = make("speakers"_br);
  script().setDefault(headset);
  EXPECT_EQ(read(follower), (Following{"headset", headset, true}));
  EXPECT_EQ(read(faithful), (Following{"speakers", speakers, false}));

  script()[headset].stampStatus = kSonvarErr_DeviceDied;  // seen before it is heard
  EXPECT_EQ(read(follower), (Following{"", 0, true}));
  EXPECT_TRUE(PVClockMightDrift(follower.get(), faithful.get()));
  EXPECT_EQ(PVSyncGetRelativeRate(follower.get(), PVClockGetHostTimeClock()), 1.0);
  EXPECT_EQ(script()[headset].starts, 0);
  script().setDefault(speakers);
  EXPECT_EQ(read(follower), (Following{"speakers", speakers, true}));

  script()[headset].stampStatus = 0;
  script().defaultDevice = headset;
  script().announce(kSonvarEvent_DeviceDied, headset);  // nobody's
  EXPECT_EQ(read(follower).device, speakers);
  script().announce(kSonvarEvent_DeviceDied, speakers);
  EXPECT_EQ(read(follower), (Following{"headset", headset, true}));
  EXPECT_EQ(read(faithful), (Following{"", 0, false}));
  for (bool isRead : {true, false}) {  // it is back: whether anybody has noticed or not that it was gone
    ASSERT_EQ(PVAudioDeviceClockSetAudioDeviceUID(faithful.get(), "speakers"_br), 0);
    EXPECT_EQ(script()[speakers].starts, 1);
    if (isRead) {
      EXPECT_EQ(read(faithful), (Following{"speakers", speakers, false}));
      script().announce(kSonvarEvent_DeviceDied, speakers);
    }
  }
  EXPECT_EQ(read(faithful), (Following{"speakers", speakers, false}));

  script()[speakers].startStatus = kSonvarErr_DeviceBusy;
  script().setDefault(speakers);
  EXPECT_EQ(read(follower), (Following{"headset", headset, true}));  // better than none
}

TEST_F(AudioDeviceClockTest, WhatFailsChangesNothing) {
  auto clock = reinterpret_cast<PVClockRef>(this);
  EXPECT_EQ(PVAudioDeviceClockCreate(nullptr, nullptr, nullptr), kPVClockError_RequiredParameterMissing);
  EXPECT_EQ(PVAudioDeviceClockCreate(nullptr, "gone"_br, &clock), kPVAudioDeviceClockError_DeviceUnavailable);
  EXPECT_EQ(clock, nullptr);
  EXPECT_EQ(PVAudioDeviceClockCreateFromAudioDeviceID(nullptr, 77, &clock),
            kPVAudioDeviceClockError_DeviceUnavailable);
  const Clock made = make();
  script()[headset].startStatus = kSonvarErr_DeviceBusy;
  for (SonvarDeviceID device : {headset, SonvarDeviceID{77}})
    EXPECT_EQ(PVAudioDeviceClockSetAudioDeviceID(made.get(), device),
              kPVAudioDeviceClockError_DeviceUnavailable);
  EXPECT_EQ(PVAudioDeviceClockSetAudioDeviceUID(made.get(), "gone"_br),
            kPVAudioDeviceClockError_DeviceUnavailable);
  EXPECT_EQ(read(made), (Following{"speakers", speakers, true}));
  script().defaultDevice = kSonvarDevice_None;
  EXPECT_EQ(PVAudioClockCreate(nullptr, &clock), kPVAudioDeviceClockError_DeviceUnavailable);

  PVClockInvalidate(made.get());
  EXPECT_EQ(script()[speakers].starts, 0);
  for (PVClockRef other : {made.get(), PVClockGetHostTimeClock()}) {
    EXPECT_EQ(PVAudioDeviceClockSetAudioDeviceID(other, speakers), kPVClockError_InvalidClock);
    EXPECT_EQ(PVAudioDeviceClockGetAudioDevice(other, nullptr, nullptr, nullptr), kPVClockError_InvalidClock);
  }
  EXPECT_EQ(PVAudioDeviceClockSetAudioDeviceID(nullptr, speakers), kPVClockError_RequiredParameterMissing);
  EXPECT_TRUE(PVClockMightDrift(made.get(), PVClockGetHostTimeClock()));
  script().defaultDevice = speakers;
  test::walkAllocationFailures([](BRAllocatorRef allocator) {
    Clock another;
    const PVStatus status = PVAudioClockCreate(allocator, another.out());
    return status == kPVClockError_AllocationFailed ? test::Outcome::kOutOfMemory : test::Outcome::kSucceeded;
  });
}

class AudioDeviceClockThreadsTest : public AudioDeviceClockTest {};

TEST_F(AudioDeviceClockThreadsTest, ReadersBesideSwitchesDeathsAndTheEnd) {
  for (int round = 0; round < 10; ++round) {
    Clock clock = make(), other = make();
    std::vector<std::thread> threads;
    for (int reader = 0; reader < 2; ++reader) {
      threads.emplace_back([&] {
        for (int i = 0; i < 300; ++i) {
          PVClockGetTime(clock.get());
          PVClockMightDrift(clock.get(), other.get());
        }
      });
    }
    threads.emplace_back([&] {
      for (int i = 0; i < 300; ++i) script().setDefault(i % 2 ? speakers : headset);
    });
    threads.emplace_back([&] {
      for (int i = 0; i < 100; ++i) script().announce(kSonvarEvent_DeviceDied, i % 2 ? speakers : headset);
    });
    threads.emplace_back([&] {
      for (int i = 0; i < 100; ++i)
        PVAudioDeviceClockSetAudioDeviceUID(clock.get(), i % 3 ? nullptr : "headset"_br);
    });
    if (round % 2) threads.emplace_back([&] { PVClockInvalidate(clock.get()); });
    for (std::thread& thread : threads) thread.join();
    if (round % 2) continue;
    ASSERT_EQ(PVAudioDeviceClockSetAudioDeviceUID(clock.get(), "headset"_br), 0);
    EXPECT_EQ(read(clock), (Following{"headset", headset, false}));
  }
}

}  // namespace
