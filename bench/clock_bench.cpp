// Clocks beside bare clock_gettime and GStreamer's system clock; transforms beside GStreamer's calibration of
// clocks, which maps nanoseconds to nanoseconds.
#include <benchmark/benchmark.h>
#include <kiv/clock.h>
#include <time.h>

#include <array>
#include <bedra/ref.hpp>
#include <cstdint>
#include <random>
#include <string>

#if HAVE_GSTREAMER
#include <gst/gst.h>
#endif

#include "bench/second_thread.hpp"

namespace {

// ---- Reading

template <class Read>
void readOver(benchmark::State& state, Read read) {
  for (auto _ : state) {
    auto time = read();
    benchmark::DoNotOptimize(time);
  }
}

void registerReading() {
  benchmark::RegisterBenchmark("HostClockRead/Ours", [](auto& state) {
    PVClockRef clock = PVClockGetHostTimeClock();
    readOver(state, [clock] { return PVClockGetTime(clock); });
  });
  benchmark::RegisterBenchmark("HostClockRead/Plain:clock_gettime", [](auto& state) {
    readOver(state, [] {
      timespec now;
      clock_gettime(CLOCK_MONOTONIC, &now);
      return now;
    });
  });
#if HAVE_GSTREAMER
  benchmark::RegisterBenchmark("HostClockRead/Peer:gst_clock_get_time", [](auto& state) {
    gst_init(nullptr, nullptr);
    GstClock* clock = gst_system_clock_obtain();
    readOver(state, [clock] { return gst_clock_get_time(clock); });
    gst_object_unref(clock);
  });
#endif
}

// ---- Transforms

// What GStreamer keeps of a clock that is a slave of another.
struct Calibration {
  uint64_t fromNs, toNs, rateNumerator, rateDenominator;

  PVSyncTransform asTransform() const {
    return {PVTimeMake(static_cast<int64_t>(fromNs), 1000000000),
            static_cast<double>(rateNumerator) / static_cast<double>(rateDenominator),
            PVTimeMake(static_cast<int64_t>(toNs), 1000000000)};
  }
};
constexpr uint64_t kHourNs = 3600ull * 1000000000;
constexpr Calibration kSameRate = {2 * kHourNs, 5 * kHourNs, 1, 1};
constexpr Calibration kDrifting = {2 * kHourNs, 5 * kHourNs, 1000017, 1000000};

constexpr size_t kItems = 1024;
const std::array<int64_t, kItems> timesNs = [] {
  std::array<int64_t, kItems> times;
  std::mt19937_64 random(5);
  for (int64_t& time : times) time = static_cast<int64_t>(2 * kHourNs + random() % kHourNs);
  return times;
}();

template <class Time, class Make, class Map>
void mapOver(benchmark::State& state, Make make, Map map) {
  std::array<Time, kItems> times;
  for (size_t i = 0; i < kItems; ++i) times[i] = make(timesNs[i]);
  for (auto _ : state) {
    for (const Time& time : times) {
      auto mapped = map(time);
      benchmark::DoNotOptimize(mapped);
    }
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kItems));
}

void mapOurs(benchmark::State& state, int32_t timescale, const PVSyncTransform& transform) {
  mapOver<PVTime>(
      state, [=](int64_t ns) { return PVTimeMake(ns / (1000000000 / timescale), timescale); },
      [&](const PVTime& time) { return KivSyncApplyTransform(&transform, time); });
}

void registerTransforms() {
  struct {
    const char* family;
    Calibration calibration;
  } cases[] = {{"AffineMap", kDrifting}, {"AffineMapSameRate", kSameRate}};
  for (const auto& row : cases) {
    const std::string family = row.family;
    const PVSyncTransform transform = row.calibration.asTransform();
    benchmark::RegisterBenchmark((family + "/Ours").c_str(),
                                 [=](auto& state) { mapOurs(state, 1000000000, transform); });
#if HAVE_GSTREAMER
    const Calibration calibration = row.calibration;
    benchmark::RegisterBenchmark((family + "/Peer:gst_clock_adjust_unlocked").c_str(), [=](auto& state) {
      gst_init(nullptr, nullptr);
      GstClock* clock = gst_system_clock_obtain();
      gst_clock_set_calibration(clock, calibration.fromNs, calibration.toNs, calibration.rateNumerator,
                                calibration.rateDenominator);
      mapOver<GstClockTime>(
          state, [](int64_t ns) { return static_cast<GstClockTime>(ns); },
          [clock](GstClockTime time) { return gst_clock_adjust_unlocked(clock, time); });
      gst_clock_set_calibration(clock, 0, 0, 1, 1);
      gst_object_unref(clock);
    });
#endif
  }
  // Onto a timeline in the timescale of its media: no peer has one.
  const PVSyncTransform media = {PVTimeMake(static_cast<int64_t>(2 * kHourNs), 1000000000), 1.0,
                                 PVTimeMake(600, 600)};
  benchmark::RegisterBenchmark("AffineMapToMedia/Ours",
                               [=](auto& state) { mapOurs(state, 1000000000, media); });
  benchmark::RegisterBenchmark("AffineMapToMedia/Plain:double", [](auto& state) {
    mapOver<double>(
        state, [](int64_t ns) { return static_cast<double>(ns) * 1e-9; },
        [](double time) { return (time - 7200.0) * 1.0 + 1.0; });
  });
}

// ---- Conversion between clocks

// A clock that a device runs, read 10 ms ago.
PVStatus deviceTime(PVClockRef, PVTime* clockTimeOut, PVTime* referenceTimeOut) {
  const PVTime now = PVClockGetTime(PVClockGetHostTimeClock());
  *referenceTimeOut = PVTimeMake(now.value - 10000000, 1000000000);
  *clockTimeOut = PVTimeMake((now.value - 10000000) / 1000000 * 48, 48000);
  return 0;
}
constexpr KivDerivedClockCallbacks kDevice = {.version = 1,
                                              .derivedStorageSizeBytes = 0,
                                              .reserved = 0,
                                              .copyDebugDesc = nullptr,
                                              .finalize = nullptr,
                                              .mightDrift = nullptr,
                                              .getRate = [](PVClockRef) { return 1.000017; },
                                              .getAnchorTime = deviceTime};

br::Ref<PVClock> makeDeviceClock(PVTime minimumInterval) {
  br::Ref<PVClock> clock;
  KivDerivedClockCreateWithGetTimeCallback(nullptr, &kDevice, PVClockGetHostTimeClock(), false, clock.out(),
                                           minimumInterval);
  return clock;
}

void registerClocks() {
  benchmark::RegisterBenchmark("DerivedClockRead/Ours", [](auto& state) {
    const auto clock = makeDeviceClock(PVTimeMake(1, 10));
    readOver(state, [&] { return PVClockGetTime(clock.get()); });
  });
  benchmark::RegisterBenchmark("SyncConvertClocks/Ours", [](auto& state) {
    const auto from = makeDeviceClock(PVTimeMake(1, 10)), to = makeDeviceClock(PVTimeMake(1, 10));
    readOver(state, [&] { return PVSyncConvertTime(PVTimeMake(4800, 48000), from.get(), to.get()); });
  });
  for (const char* family : {"DerivedClockRead", "SyncConvertClocks"}) {
    benchmark::RegisterBenchmark((std::string(family) + "/Plain:clock_gettime").c_str(), [](auto& state) {
      readOver(state, [] {
        timespec now;
        clock_gettime(CLOCK_MONOTONIC, &now);
        return now;
      });
    });
  }
}

const bool registered = (registerReading(), registerTransforms(), registerClocks(), true);

}  // namespace
