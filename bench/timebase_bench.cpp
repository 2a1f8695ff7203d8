// Timebases: reading, changing the rate with timers, and setting timers anew.
#include <bedra/run_loop.h>
#include <bedra/timer_source.h>
#include <bedra/work_queue.h>
#include <benchmark/benchmark.h>
#include <pevrin/sync.h>
#include <pevrin/timebase_timer.h>
#include <bedra/ref.hpp>

#include <ctime>
#include <random>
#include <vector>

#if HAVE_ASIO
#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#endif

#include "bench/second_thread.hpp"

namespace {

using Timebase = br::Ref<PVTimebase>;

PVClockRef host() { return PVClockGetHostTimeClock(); }

// A chain of running timebases on the host time clock; the last is read.
std::vector<Timebase> makeChain(int64_t length) {
  std::vector<Timebase> chain(static_cast<size_t>(length));
  PVTimebaseCreateWithMasterClock(nullptr, host(), chain[0].out());
  for (size_t i = 1; i < chain.size(); ++i)
    PVTimebaseCreateWithMasterTimebase(nullptr, chain[i - 1].get(), chain[i].out());
  for (auto& timebase : chain) {
    PVTimebaseSetTime(timebase.get(), PVTimeMake(900, 600));
    PVTimebaseSetRate(timebase.get(), 1.0);
  }
  return chain;
}

void timebaseTime(benchmark::State& state, int64_t length) {
  const auto chain = makeChain(length);
  for (auto _ : state) benchmark::DoNotOptimize(PVTimebaseGetTime(chain.back().get()));
}
void clockGettime(benchmark::State& state) {
  timespec time;
  for (auto _ : state) benchmark::DoNotOptimize(clock_gettime(CLOCK_MONOTONIC, &time));
}
BENCHMARK_CAPTURE(timebaseTime, 1, 1)->Name("TimebaseTime1/Ours");
BENCHMARK_CAPTURE(timebaseTime, 3, 3)->Name("TimebaseTime3/Ours");
BENCHMARK_CAPTURE(timebaseTime, 10, 10)->Name("TimebaseTime10/Ours");
BENCHMARK(clockGettime)->Name("TimebaseTime1/Plain:clock_gettime");
BENCHMARK(clockGettime)->Name("TimebaseTime3/Plain:clock_gettime");
BENCHMARK(clockGettime)->Name("TimebaseTime10/Plain:clock_gettime");

// From the end of one chain to the end of another.
void syncConvert(benchmark::State& state, int64_t length) {
  const auto from = makeChain(length), to = makeChain(length);
  int64_t value = 0;
  for (auto _ : state)
    benchmark::DoNotOptimize(PVSyncConvertTime(PVTimeMake(++value, 600), from.back().get(), to.back().get()));
}
BENCHMARK_CAPTURE(syncConvert, 1, 1)->Name("TimebaseConvert1/Ours");
BENCHMARK_CAPTURE(syncConvert, 3, 3)->Name("TimebaseConvert3/Ours");
BENCHMARK_CAPTURE(syncConvert, 10, 10)->Name("TimebaseConvert10/Ours");
BENCHMARK(clockGettime)->Name("TimebaseConvert1/Plain:clock_gettime");
BENCHMARK(clockGettime)->Name("TimebaseConvert3/Plain:clock_gettime");
BENCHMARK(clockGettime)->Name("TimebaseConvert10/Plain:clock_gettime");

// ---- Timers

struct Sources {
  explicit Sources(int64_t count) : queue(br::Ref<BRWorkQueue>::adopt(BRWorkQueueCreate(nullptr, "bench"))) {
    for (int64_t i = 0; i < count; ++i) {
      auto fired = [](BRTimerSourceRef, uint64_t, void*) {};
      sources.push_back(
          br::Ref<BRTimerSource>::adopt(BRTimerSourceCreate(nullptr, queue.get(), fired, nullptr)));
      PVTimebaseAddTimerDispatchSource(timebase(), sources.back().get());
    }
  }
  ~Sources() {
    for (auto& source : sources) BRTimerSourceCancel(source.get());
  }
  PVTimebaseRef timebase() const { return chain[0].get(); }

  std::vector<Timebase> chain = makeChain(1);
  br::Ref<BRWorkQueue> queue;
  std::vector<br::Ref<BRTimerSource>> sources;
};

constexpr size_t kTimers = 10'000;

// A timer to be set to another time: a frame of 600ths of a second, within hours from now.
struct Move {
  size_t timer;
  int64_t frame;
};
std::vector<Move> makeMoves() {
  std::minstd_rand random(7);
  std::vector<Move> moves(1 << 16);
  for (Move& move : moves)
    move = {random() % kTimers, static_cast<int64_t>(600 * 3'600 + random() % 8'000'000)};
  return moves;
}

void rearmOurs(benchmark::State& state) {
  const Sources timers(kTimers);
  for (auto& source : timers.sources)
    PVTimebaseSetTimerDispatchSourceNextFireTime(timers.timebase(), source.get(), PVTimeMake(86'400, 1), 0);
  const auto moves = makeMoves();
  size_t i = 0;
  for (auto _ : state) {
    const Move& move = moves[i++ % moves.size()];
    PVTimebaseSetTimerDispatchSourceNextFireTime(timers.timebase(), timers.sources[move.timer].get(),
                                                 PVTimeMake(move.frame, 600), 0);
  }
}
BENCHMARK(rearmOurs)->Name("TimebaseTimerRearm10000/Ours");

void setRate(benchmark::State& state, int64_t count) {
  const Sources timers(count);
  PVTime fire = PVTimeMake(600 * 14'400, 600);
  for (auto& source : timers.sources) {
    ++fire.value;
    PVTimebaseSetTimerDispatchSourceNextFireTime(timers.timebase(), source.get(), fire, 0);
  }
  double rate = 1.0;
  for (auto _ : state) PVTimebaseSetRate(timers.timebase(), rate = 3.0 - rate);
}
BENCHMARK_CAPTURE(setRate, 0, 0)->Name("TimebaseSetRate0/Ours");
BENCHMARK_CAPTURE(setRate, 10, 10)->Name("TimebaseSetRate10/Ours");
BENCHMARK_CAPTURE(setRate, 1000, 1000)->Name("TimebaseSetRate1000/Ours");
BENCHMARK(clockGettime)->Name("TimebaseSetRate0/Plain:clock_gettime");
BENCHMARK(clockGettime)->Name("TimebaseSetRate10/Plain:clock_gettime");
BENCHMARK(clockGettime)->Name("TimebaseSetRate1000/Plain:clock_gettime");

#if HAVE_ASIO
// Moving an Asio timer ends its wait, whose handler has to be run: every thousand moves here.
void rearmAsio(benchmark::State& state) {
  asio::io_context context;
  const auto start = std::chrono::steady_clock::now();
  std::vector<asio::steady_timer> timers;
  timers.reserve(kTimers);
  for (size_t i = 0; i < kTimers; ++i) {
    timers.emplace_back(context, start + std::chrono::hours(24));
    timers.back().async_wait([](const asio::error_code&) {});
  }
  const auto moves = makeMoves();
  size_t i = 0;
  for (auto _ : state) {
    const Move& move = moves[i++ % moves.size()];
    timers[move.timer].expires_at(start + std::chrono::nanoseconds(move.frame * 1'000'000'000 / 600));
    timers[move.timer].async_wait([](const asio::error_code&) {});
    if (i % 1000 == 0) context.poll();
  }
}
BENCHMARK(rearmAsio)->Name("TimebaseTimerRearm10000/Peer:asio::steady_timer");
#endif

}  // namespace
