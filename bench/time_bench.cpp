// Time arithmetic beside the peers' rational and fixed-point times. Every row walks arrays of varied inputs,
// one operation per item; the functions of both sides are calls into shared libraries, except the plain rows.
#include <benchmark/benchmark.h>
#include <kiv/math.h>
#include <pevrin/time.h>

#include <array>
#include <cstdint>
#include <random>

#if HAVE_ABSL
#include <absl/time/time.h>
#endif
#if HAVE_AVUTIL
extern "C" {
#include <libavutil/mathematics.h>
#include <libavutil/rational.h>
}
#endif
#if HAVE_GSTREAMER
#include <gst/gst.h>
#endif

#include "bench/second_thread.hpp"

namespace {

constexpr size_t kItems = 1024;
constexpr int64_t kThreeHours = 3 * 3600;
constexpr int64_t kSinceEpoch = INT64_C(56) * 365 * 86400;  // a live stream's times, counted from 1970

template <class T>
using Items = std::array<T, kItems>;

int64_t randomBelow(int64_t limit) {
  static std::mt19937_64 random(20260117);
  return static_cast<int64_t>(random() % static_cast<uint64_t>(limit));
}

template <class T, class Make>
Items<T> filled(Make make) {
  Items<T> items;
  for (T& item : items) item = make();
  return items;
}

// Times of up to so many seconds in the timescales that media use. A program meets the same pair of
// timescales many times over (one track's, another track's), so the pair changes every 128 items.
constexpr std::array<int32_t, 8> kTimescales = {600, 48000, 90000, 30000, 44100, 1000, 24000, 60000};
int32_t timescaleOfRun(size_t item, size_t shift) {
  return kTimescales[(item / 128 + shift) % kTimescales.size()];
}
Items<PVTime> mediaTimes(size_t shift, int64_t limitSeconds) {
  Items<PVTime> times;
  for (size_t i = 0; i < kItems; ++i) {
    const int32_t timescale = timescaleOfRun(i, shift);
    times[i] = PVTimeMake(1 + randomBelow(limitSeconds * timescale), timescale);
  }
  return times;
}
PVTime tick() { return PVTimeMake(randomBelow(INT64_C(1) << 40) - (INT64_C(1) << 39), 90000); }

// One operation on two items, over and over.
template <class A, class B, class Operation>
void walk(benchmark::State& state, const Items<A>& left, const Items<B>& right, Operation operation) {
  for (auto _ : state) {
    for (size_t i = 0; i < kItems; ++i) {
      auto result = operation(left[i], right[i]);
      benchmark::DoNotOptimize(result);
    }
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kItems));
}

// A running sum: each operation waits for the one before.
template <class T, class Operation>
void accumulate(benchmark::State& state, const Items<T>& items, T start, Operation operation) {
  for (auto _ : state) {
    T sum = start;
    for (const T& item : items) sum = operation(sum, item);
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kItems));
}

const Items<PVTime> ticksA = filled<PVTime>(tick), ticksB = filled<PVTime>(tick);
const Items<PVTime> mixedA = mediaTimes(0, kThreeHours), mixedB = mediaTimes(1, kThreeHours);
const Items<PVTime> shortA = mediaTimes(0, 10), shortB = mediaTimes(1, 10);
const Items<PVTime> datesA = mediaTimes(0, kSinceEpoch), datesB = mediaTimes(1, kSinceEpoch);
const Items<int32_t> factors = filled<int32_t>([] { return static_cast<int32_t>(1 + randomBelow(1000)); });
const Items<int32_t> timescales = [] {
  Items<int32_t> items;
  for (size_t i = 0; i < kItems; ++i) items[i] = timescaleOfRun(i, 1);
  return items;
}();
const Items<int64_t> wholeA = filled<int64_t>([] { return randomBelow(INT64_C(1) << 40); }), wholeB = wholeA;

#if HAVE_ABSL
Items<absl::Duration> durations(const Items<PVTime>& times) {
  Items<absl::Duration> result;
  for (size_t i = 0; i < kItems; ++i) result[i] = absl::Seconds(times[i].value) / times[i].timescale;
  return result;
}
const Items<absl::Duration> durationsA = durations(ticksA), durationsB = durations(ticksB);
#endif

void registerAdd() {
  benchmark::RegisterBenchmark("TimeAddSame/Ours", [](auto& s) { walk(s, ticksA, ticksB, PVTimeAdd); });
  benchmark::RegisterBenchmark("TimeAddSum/Ours",
                               [](auto& s) { accumulate(s, ticksA, kPVTimeZero, PVTimeAdd); });
  benchmark::RegisterBenchmark("TimeAddMixed/Ours", [](auto& s) { walk(s, mixedA, mixedB, PVTimeAdd); });
  benchmark::RegisterBenchmark("TimeAddMixedShort/Ours", [](auto& s) { walk(s, shortA, shortB, PVTimeAdd); });
  benchmark::RegisterBenchmark("TimeAddSame/Plain:int64", [](auto& s) {
    walk(s, wholeA, wholeB, [](int64_t a, int64_t b) { return a + b; });
  });
#if HAVE_ABSL
  constexpr auto add = [](absl::Duration a, absl::Duration b) { return a + b; };
  benchmark::RegisterBenchmark("TimeAddSame/Peer:absl::Duration",
                               [=](auto& s) { walk(s, durationsA, durationsB, add); });
  benchmark::RegisterBenchmark("TimeAddSum/Peer:absl::Duration",
                               [=](auto& s) { accumulate(s, durationsA, absl::ZeroDuration(), add); });
#endif
#if HAVE_AVUTIL
  // The same times on both sides. Three hours on 90000 still fit the peer's 32-bit numerators; its sums do
  // not always, and are then approximated. Short times are the peer's best case: all its sums are exact.
  constexpr auto rational = [](const Items<PVTime>& times) {
    Items<AVRational> result;
    for (size_t i = 0; i < kItems; ++i) result[i] = {static_cast<int>(times[i].value), times[i].timescale};
    return result;
  };
  constexpr auto addRationals = [](AVRational a, AVRational b) { return av_add_q(a, b); };
  benchmark::RegisterBenchmark("TimeAddMixed/Peer:av_add_q", [=](auto& s) {
    static const Items<AVRational> a = rational(mixedA), b = rational(mixedB);
    walk(s, a, b, addRationals);
  });
  benchmark::RegisterBenchmark("TimeAddMixedShort/Peer:av_add_q", [=](auto& s) {
    static const Items<AVRational> a = rational(shortA), b = rational(shortB);
    walk(s, a, b, addRationals);
  });
#endif
}

void registerConvert() {
  benchmark::RegisterBenchmark("TimeConvert/Ours", [](auto& s) {
    walk(s, mixedA, timescales, [](const PVTime& t, int32_t timescale) {
      return PVTimeConvertScale(t, timescale, kPVTimeRoundingMethod_RoundTowardZero);
    });
  });
  benchmark::RegisterBenchmark("TimeConvertRound/Ours", [](auto& s) {
    walk(s, mixedA, timescales, [](const PVTime& t, int32_t timescale) {
      return PVTimeConvertScale(t, timescale, kPVTimeRoundingMethod_RoundHalfAwayFromZero);
    });
  });
  benchmark::RegisterBenchmark("TimeConvert/Plain:int128", [](auto& s) {
    walk(s, mixedA, timescales, [](const PVTime& t, int32_t timescale) {
      __extension__ using Wide = __int128;
      return static_cast<int64_t>(static_cast<Wide>(t.value) * timescale / t.timescale);
    });
  });
#if HAVE_GSTREAMER
  benchmark::RegisterBenchmark("TimeConvert/Peer:gst_util_uint64_scale", [](auto& s) {
    walk(s, mixedA, timescales, [](const PVTime& t, int32_t timescale) {
      return gst_util_uint64_scale(static_cast<guint64>(t.value), static_cast<guint64>(timescale),
                                   static_cast<guint64>(t.timescale));
    });
  });
  benchmark::RegisterBenchmark("TimeConvertRound/Peer:gst_util_uint64_scale_round", [](auto& s) {
    walk(s, mixedA, timescales, [](const PVTime& t, int32_t timescale) {
      return gst_util_uint64_scale_round(static_cast<guint64>(t.value), static_cast<guint64>(timescale),
                                         static_cast<guint64>(t.timescale));
    });
  });
#endif
}

void registerCompare() {
  benchmark::RegisterBenchmark("TimeCompareSame/Ours",
                               [](auto& s) { walk(s, ticksA, ticksB, PVTimeCompare); });
  benchmark::RegisterBenchmark("TimeCompareMixed/Ours",
                               [](auto& s) { walk(s, mixedA, mixedB, PVTimeCompare); });
  benchmark::RegisterBenchmark("TimeCompareSame/Plain:int64", [](auto& s) {
    walk(s, wholeA, wholeB, [](int64_t a, int64_t b) { return (a > b) - (a < b); });
  });
#if HAVE_AVUTIL
  constexpr auto compare = [](const PVTime& a, const PVTime& b) {
    return av_compare_ts(a.value, AVRational{1, a.timescale}, b.value, AVRational{1, b.timescale});
  };
  benchmark::RegisterBenchmark("TimeCompareSame/Peer:av_compare_ts",
                               [=](auto& s) { walk(s, ticksA, ticksB, compare); });
  // Times of some hours are the peer's best case: no product of its needs more than 64 bits.
  benchmark::RegisterBenchmark("TimeCompareMixed/Peer:av_compare_ts",
                               [=](auto& s) { walk(s, datesA, datesB, compare); });
  benchmark::RegisterBenchmark("TimeCompareMixedShort/Peer:av_compare_ts",
                               [=](auto& s) { walk(s, mixedA, mixedB, compare); });
#endif
}

void registerMultiply() {
  benchmark::RegisterBenchmark("TimeMultiply/Ours",
                               [](auto& s) { walk(s, mixedA, factors, PVTimeMultiply); });
  benchmark::RegisterBenchmark("TimeMultiply/Plain:int64", [](auto& s) {
    walk(s, wholeA, factors, [](int64_t a, int32_t b) { return a * b; });
  });
  benchmark::RegisterBenchmark("TimeRatio/Ours", [](auto& s) {
    walk(s, mixedA, factors,
         [](const PVTime& t, int32_t factor) { return PVTimeMultiplyByRatio(t, factor, 1001); });
  });
#if HAVE_AVUTIL
  benchmark::RegisterBenchmark("TimeRatio/Peer:av_rescale", [](auto& s) {
    walk(s, mixedA, factors,
         [](const PVTime& t, int32_t factor) { return av_rescale(t.value, factor, 1001); });
  });
#endif
}

const bool registered = (registerAdd(), registerConvert(), registerCompare(), registerMultiply(), true);

}  // namespace
