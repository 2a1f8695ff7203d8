#include "clocks/device_timeline.hpp"
#include "tests/support/test.hpp"

namespace {

using pv::DeviceTimeline;

constexpr int64_t kSecondNs = DeviceTimeline::kSecondNs, kMillisecondNs = kSecondNs / 1000;

// A device that is asked 20 times a second, and a clock that follows it. Each question checks that the
// clock's time has neither jumped nor run backward.
struct Simulation {
  // For so many seconds the device plays at `speed` times its nominal rate, its stamps off by up to
  // `jitterNs`.
  void play(int seconds, double speed, int64_t jitterNs = 0) {
    if (nowNs == startNs) ask(speed, 0);
    for (int i = 0; i < seconds * 20; ++i) {
      const int64_t before = timeline.timeAt(nowNs);
      const double rate = timeline.rate();
      nowNs += kSecondNs / 20;
      playedSeconds += speed / 20;
      const int64_t expected = timeline.timeAt(nowNs);
      EXPECT_GE(expected, before);
      ask(speed, jitterNs);
      EXPECT_NEAR(static_cast<double>(timeline.timeAt(nowNs) - expected), 0, 1);
      EXPECT_NEAR(rate, 1.0, 0.036);
    }
  }
  void ask(double speed, int64_t jitterNs) {
    const int64_t off =
        jitterNs ? static_cast<int64_t>(random() % static_cast<uint64_t>(2 * jitterNs)) - jitterNs : 0;
    // the stamp is some milliseconds old, and its frames are counted in periods
    const int64_t ageNs = 7 * kMillisecondNs;
    const double played = playedSeconds - 0.007 * speed;
    timeline.follow({.frames = std::llround(played * framesPerSecond) + jumpedFrames,
                     .hostTimeNs = static_cast<uint64_t>(nowNs - ageNs + off),
                     .framesPerSecond = framesPerSecond,
                     .run = run},
                    nowNs);
  }
  // How far the clock is ahead of the device, which it met at the start.
  double ahead() const {
    return static_cast<double>(timeline.timeAt(nowNs) - startNs) * 1e-9 - playedSeconds;
  }

  int64_t startNs = 1000 * kSecondNs, nowNs = startNs;
  DeviceTimeline timeline{startNs};
  double playedSeconds = 0;
  int64_t jumpedFrames = 0;
  uint32_t framesPerSecond = 48000, run = 1;
  std::mt19937_64 random{1};
};

TEST(DeviceTimelineTest, TakesUpTheRateOfADeviceAndStaysWithIt) {
  for (double drift : {0.0, 50e-6, -300e-6, 0.005, -0.005}) {
    for (uint32_t framesPerSecond : {44100u, 48000u, 8000u, 192000u}) {
      Simulation simulation;
      simulation.framesPerSecond = framesPerSecond;
      simulation.play(60, 1.0 + drift);
      const double frame = 1.0 / framesPerSecond;
      EXPECT_NEAR(simulation.timeline.rate(), 1.0 + drift, frame);
      EXPECT_NEAR(simulation.ahead(), 0, 2 * frame + 0.008 * std::fabs(drift))
          << drift << " at " << framesPerSecond;
    }
  }
}

TEST(DeviceTimelineTest, ADayOfPlayingAccumulatesNoError) {
  Simulation simulation;
  simulation.framesPerSecond = 44100;
  simulation.play(24 * 3600, 1.0 + 1.0 / 65536);
  EXPECT_NEAR(simulation.ahead(), 0, 1e-4);
}

TEST(DeviceTimelineTest, SmoothsStampsThatJitter) {
  Simulation simulation;
  simulation.play(120, 1.0 + 50e-6, 2 * kMillisecondNs);
  EXPECT_NEAR(simulation.timeline.rate(), 1.0, 0.002);
  EXPECT_NEAR(simulation.ahead(), 0, 0.001);
}

TEST(DeviceTimelineTest, AJumpOfTheCounterAndANewRunLeaveTheTimeAlone) {
  struct {
    const char* what;
    void (*change)(Simulation&);
  } cases[] = {{"forward", [](Simulation& s) { s.jumpedFrames = 48000 * 1000; }},
               {"backward", [](Simulation& s) { s.jumpedFrames = -48000 * 1000; }},
               {"beyond all bounds", [](Simulation& s) { s.jumpedFrames = INT64_MIN / 2; }},
               {"another run", [](Simulation& s) { s.jumpedFrames = 4800, s.run = 2; }},
               {"another rate", [](Simulation& s) { s.framesPerSecond = 96000; }}};
  for (const auto& row : cases) {
    SCOPED_TRACE(row.what);
    Simulation simulation;
    simulation.play(20, 1.0001);
    row.change(simulation);
    simulation.play(20, 1.0001);
    EXPECT_NEAR(simulation.ahead(), 0, 1e-4);
    EXPECT_NEAR(simulation.timeline.rate(), 1.0001, 1e-5);
  }
}

TEST(DeviceTimelineTest, AShortStandstillIsTakenOverAndALongOneIsNot) {
  Simulation simulation;
  simulation.play(20, 1.0);
  simulation.nowNs += 80 * kMillisecondNs;  // an underrun
  simulation.play(60, 1.0);
  EXPECT_NEAR(simulation.ahead(), 0, 1e-4);

  simulation.play(60, 0.0);
  EXPECT_GT(simulation.ahead(), 58.5);  // time went on
  simulation.play(1, 1.0);
  const double ahead = simulation.ahead();
  simulation.play(20, 1.0);
  EXPECT_NEAR(simulation.ahead(), ahead, 0.1);
}

TEST(DeviceTimelineTest, WithoutADeviceItRunsWithTheHost) {
  Simulation simulation;
  simulation.play(20, 1.0005);
  const int64_t then = simulation.timeline.timeAt(simulation.nowNs);
  simulation.timeline.runFree(simulation.nowNs);
  EXPECT_EQ(simulation.timeline.rate(), 1.0);
  EXPECT_EQ(simulation.timeline.timeAt(simulation.nowNs + 12345678901), then + 12345678901);
}

TEST(DeviceTimelineTest, StampsThatAreNoNewsChangeNothing) {
  Simulation simulation;
  simulation.play(5, 1.001);
  const double rate = simulation.timeline.rate();
  const auto now = static_cast<uint64_t>(simulation.nowNs);
  for (const SonvarTimeStamp& stamp :
       {SonvarTimeStamp{0, now, 0, 1}, SonvarTimeStamp{0, now - 2000000000, 48000, 1},
        SonvarTimeStamp{0, now + 2000000000, 48000, 1}, SonvarTimeStamp{0, 0, 48000, 1},
        SonvarTimeStamp{0, UINT64_MAX, 48000, 1}}) {
    simulation.timeline.follow(stamp, simulation.nowNs);
    EXPECT_EQ(simulation.timeline.rate(), rate);
  }
}

}  // namespace
