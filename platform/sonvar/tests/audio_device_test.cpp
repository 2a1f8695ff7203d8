// What can be seen without a sound card: ALSA's own "null" PCM takes the place of one. It stamps, and plays
// no frame.
#include <alsa/asoundlib.h>
#include <bedra/time.h>
#include <gtest/gtest.h>
#include <sonvar/audio_device.h>

#include <string>

namespace {

void saySomethingToNobody(const char*, int, const char*, int, const char*, ...) {}

TEST(SonvarTest, ANullDeviceStartsStampsOnTheHostsClockAndStops) {
  SonvarDeviceID device = kSonvarDevice_None, again = kSonvarDevice_None;
  ASSERT_EQ(SonvarGetDeviceWithUID("null", &device), 0);
  ASSERT_EQ(SonvarGetDeviceWithUID("null", &again), 0);
  EXPECT_NE(device, SonvarDeviceID{kSonvarDevice_None});
  EXPECT_EQ(device, again);
  char uid[5];
  ASSERT_EQ(SonvarDeviceGetUID(device, uid, sizeof uid), 0);
  EXPECT_STREQ(uid, "null");
  EXPECT_EQ(SonvarDeviceGetUID(device, uid, 4), kSonvarErr_Parameter);

  SonvarTimeStamp stamp{};
  EXPECT_EQ(SonvarDeviceGetTimeStamp(device, &stamp), kSonvarErr_NotStarted);
  uint32_t firstRun = 0;
  for (int round = 0; round < 2; ++round) {
    ASSERT_EQ(SonvarDeviceStart(device), 0);
    ASSERT_EQ(SonvarDeviceStart(device), 0);
    const uint64_t before = BRHostTimeGetUptimeNs();
    ASSERT_EQ(SonvarDeviceGetTimeStamp(device, &stamp), 0);
    EXPECT_LE(stamp.hostTimeNs, BRHostTimeGetUptimeNs());
    EXPECT_GE(stamp.hostTimeNs + 1000000000, before);
    EXPECT_EQ(stamp.framesPerSecond, 48000u);
    if (round == 0) firstRun = stamp.run;
    EXPECT_EQ(SonvarDeviceStop(device), 0);
    EXPECT_EQ(SonvarDeviceGetTimeStamp(device, &stamp), 0);  // the other Start holds it
    EXPECT_EQ(SonvarDeviceStop(device), 0);
    EXPECT_EQ(SonvarDeviceStop(device), kSonvarErr_NotStarted);
  }
  EXPECT_NE(stamp.run, firstRun);
}

TEST(SonvarTest, WhatIsNotThereIsSaidToBeMissing) {
  snd_lib_error_set_handler(saySomethingToNobody);
  SonvarDeviceID device = 77;
  EXPECT_EQ(SonvarGetDeviceWithUID("hw:CARD=NoSuchCardAnywhere", &device), kSonvarErr_NoSuchDevice);
  EXPECT_EQ(SonvarGetDeviceWithUID("no such definition", &device), kSonvarErr_NoSuchDevice);
  EXPECT_EQ(device, 77u);
  int card = -1;
  if (snd_card_next(&card) < 0 || card < 0) {
    EXPECT_EQ(SonvarGetDefaultOutputDevice(&device), kSonvarErr_NoSuchDevice);
  }
  SonvarTimeStamp stamp;
  for (SonvarDeviceID unknown : {0u, 77u, UINT32_MAX}) {
    EXPECT_EQ(SonvarDeviceStart(unknown), kSonvarErr_NoSuchDevice);
    EXPECT_EQ(SonvarDeviceStop(unknown), kSonvarErr_NoSuchDevice);
    EXPECT_EQ(SonvarDeviceGetTimeStamp(unknown, &stamp), kSonvarErr_NoSuchDevice);
  }
  EXPECT_EQ(SonvarAddListener(nullptr, nullptr), kSonvarErr_Parameter);
  EXPECT_EQ(SonvarRemoveListener(nullptr, nullptr), 0);
}

}  // namespace
