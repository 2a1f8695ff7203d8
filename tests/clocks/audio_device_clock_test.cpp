// Where there is no service, and with the real one. The service is looked for once in a process: each case
// has its own.
#include <pevrin/audio_device_clock.h>
#include <chrono>

#include "tests/support/test.hpp"

namespace {

using namespace br::literals;

const auto success = testing::ExitedWithCode(0);

void expectNoClock(const char* path, PVStatus expected) {
  setenv("PEVRIN_SONVAR_PATH", path, 1);
  for (int i = 0; i < 2; ++i) {
    auto clock = reinterpret_cast<PVClockRef>(&i);
    const PVStatus status = PVAudioClockCreate(nullptr, &clock);
    if (status == expected && !clock) continue;
    std::fprintf(stderr, "status %d", status);
    std::exit(1);
  }
  std::exit(0);
}

TEST(AudioDeviceClockServiceDeathTest, WithoutAServiceThereIsNoClock) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  constexpr PVStatus kUnavailable = kPVAudioDeviceClockError_ServiceUnavailable;
  EXPECT_EXIT(expectNoClock("/nonexistent/libsonvar.so.0", kUnavailable), success,
              "^Failed to get Sonvar bundle!\n$");
  EXPECT_EXIT(expectNoClock("", kUnavailable), success, "^Failed to get Sonvar bundle!\n$");
  EXPECT_EXIT(expectNoClock(INCOMPLETE_TONVIK, kUnavailable), success,
              "^Failed to get Sonvar symbol \\(pSonvarGetDefaultOutputDevice\\)!\n$");
}

#ifdef SONVAR
// ALSA's null device stamps and plays no frame: a clock that follows it runs on nevertheless.
void runOnNullDevice() {
  setenv("PEVRIN_SONVAR_PATH", SONVAR, 1);
  PVClockRef clock;
  if (PVStatus status = PVAudioDeviceClockCreate(nullptr, "null"_br, &clock)) std::exit(-status);
  const PVTime host = PVClockGetTime(PVClockGetHostTimeClock());
  for (int i = 0; i < 10; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(60));
    if (!PVTimeIsNumeric(PVClockGetTime(clock))) std::exit(1);
  }
  const double seconds = PVTimeGetSeconds(PVTimeSubtract(PVClockGetTime(clock), host));
  BRRelease(clock);
  std::fprintf(stderr, "%.3f", seconds);
  std::exit(seconds > 0.55 ? 0 : 1);
}

TEST(AudioDeviceClockServiceDeathTest, RunsOnADeviceOfTheRealService) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(runOnNullDevice(), success, "");
}
#endif

}  // namespace
