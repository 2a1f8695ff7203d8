// Timers of both kinds beside a bare timer of the kernel, Asio's and GLib's: how late they are called, and
// what moving one of many costs.
//
// Lateness depends on what else the machine does, so that all are measured in turns: in a round each of them
// is set some times in a row, again and again, and every row of the round reads its percentile from it. The
// time of such a row is a lateness.
#include <bedra/bedra.h>
#include <benchmark/benchmark.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <deque>
#include <random>
#include <string>
#include <vector>

#if HAVE_ASIO
#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#endif
#if HAVE_GLIB
#include <glib.h>
#endif

#include "bench/second_thread.hpp"

namespace {

using Lateness = int64_t (*)(int64_t delayNs);

int64_t nowNs() { return static_cast<int64_t>(BRHostTimeGetUptimeNs()); }

// ---- One wait of each kind; the answer is by how many nanoseconds it was late

int64_t lateTimerfd(int64_t delayNs) {
  static const int descriptor = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
  const int64_t due = nowNs() + delayNs;
  const itimerspec when{{}, {due / 1'000'000'000, due % 1'000'000'000}};
  timerfd_settime(descriptor, TFD_TIMER_ABSTIME, &when, nullptr);
  uint64_t expirations = 0;
  if (read(descriptor, &expirations, sizeof expirations) < 0) return INT64_MAX;
  return nowNs() - due;
}

int64_t lateRunLoop(int64_t delayNs) {
  static int64_t calledNs;
  static BRRunLoopTimerRef timer = [] {
    BRRunLoopTimerRef made = BRRunLoopTimerCreate(
        nullptr, INFINITY, 86400, [](BRRunLoopTimerRef, void*) { calledNs = nowNs(); }, nullptr);
    BRRunLoopAddTimer(BRRunLoopGetCurrent(), made, kBRRunLoopDefaultMode);
    return made;
  }();
  const int64_t due = nowNs() + delayNs;
  BRRunLoopTimerSetNextFireDate(timer, BRAbsoluteTimeGetCurrent() + static_cast<double>(due - nowNs()) / 1e9);
  BRRunLoopRunInMode(kBRRunLoopDefaultMode, INFINITY, true);
  return calledNs - due;
}

// Set by another thread than the one that fires it.
int64_t lateTimerSource(int64_t delayNs) {
  static std::atomic<int64_t> calledNs;
  static BRTimerSourceRef source = [] {
    auto handler = [](BRTimerSourceRef, uint64_t, void*) {
      calledNs = nowNs();
      calledNs.notify_one();
    };
    return BRTimerSourceCreate(nullptr, BRWorkQueueCreate(nullptr, "bench"), handler, nullptr);
  }();
  calledNs = 0;
  const int64_t due = nowNs() + delayNs;
  BRTimerSourceSetTimer(source, static_cast<uint64_t>(due), 0, 0);
  calledNs.wait(0);
  return calledNs - due;
}

#if HAVE_ASIO
int64_t lateAsio(int64_t delayNs) {
  static asio::io_context context(1);
  static asio::steady_timer timer(context);
  const auto due = std::chrono::steady_clock::now() + std::chrono::nanoseconds(delayNs);
  std::chrono::steady_clock::time_point called;
  timer.expires_at(due);
  timer.async_wait([&](std::error_code) { called = std::chrono::steady_clock::now(); });
  context.restart();
  context.run();
  return (called - due).count();
}
#endif

#if HAVE_GLIB
int64_t lateGlib(int64_t delayNs) {
  static int64_t calledNs;
  static GSource* source = [] {
    static GSourceFuncs functions{};
    functions.dispatch = [](GSource* dispatched, GSourceFunc, gpointer) -> gboolean {
      calledNs = nowNs();
      g_source_set_ready_time(dispatched, -1);
      return G_SOURCE_CONTINUE;
    };
    GSource* made = g_source_new(&functions, sizeof(GSource));
    g_source_attach(made, nullptr);
    return made;
  }();
  const int64_t dueUs = (nowNs() + delayNs) / 1000;
  calledNs = 0;
  g_source_set_ready_time(source, dueUs);
  while (calledNs == 0) g_main_context_iteration(nullptr, TRUE);
  return calledNs - dueUs * 1000;
}
#endif

// ---- Rows of waits, each begun when the one before has ended. The first is not counted: it finds cold
// caches.

constexpr int kWaitsInARow = 10;

struct WaitRow {
  std::mt19937& random;
  std::vector<int64_t>& late;
  int begun = 0;
  int64_t dueNs = 0;

  int64_t nextDelay() { return 300'000 + static_cast<int64_t>(random() % 700'000); }
  // False when that was the last.
  bool record(int64_t lateNs) {
    if (begun++ > 0) late.push_back(lateNs);
    return begun <= kWaitsInARow;
  }
};

template <Lateness lateness>
void waitEach(WaitRow& row) {
  while (row.record(lateness(row.nextDelay()))) {
  }
}

// Its handler sets the source anew.
void waitInHandler(WaitRow& row) {
  static std::atomic<WaitRow*> current;
  auto setNext = [](BRTimerSourceRef source, WaitRow& of) {
    of.dueNs = nowNs() + of.nextDelay();
    BRTimerSourceSetTimer(source, static_cast<uint64_t>(of.dueNs), 0, 0);
  };
  static BRTimerSourceRef source = BRTimerSourceCreate(
      nullptr, BRWorkQueueCreate(nullptr, "bench"),
      [](BRTimerSourceRef fired, uint64_t, void*) {
        const int64_t calledNs = nowNs();
        WaitRow& served = *current;
        if (served.record(calledNs - served.dueNs)) return decltype(setNext){}(fired, served);
        current = nullptr;
        current.notify_one();
      },
      nullptr);
  current = &row;
  setNext(source, row);
  current.wait(&row);
}

// ---- Rounds

struct Kind {
  const char* name;
  void (*wait)(WaitRow&);
};
const Kind kKinds[] = {
    {"Plain:timerfd", waitEach<lateTimerfd>},
    {"run loop", waitEach<lateRunLoop>},
    {"timer source", waitInHandler},
    {"timer source set elsewhere", waitEach<lateTimerSource>},
#if HAVE_ASIO
    {"Peer:asio::steady_timer", waitEach<lateAsio>},
#endif
#if HAVE_GLIB
    {"Peer:GSource", waitEach<lateGlib>},
#endif
};
constexpr size_t kKindCount = std::size(kKinds);

struct Round {
  Round() {
    static std::mt19937 random(6);
    for (int i = 0; i < 30; ++i)
      for (size_t kind = 0; kind < kKindCount; ++kind) {
        WaitRow row{random, sorted[kind]};
        kKinds[kind].wait(row);
      }
    for (auto& times : sorted) std::sort(times.begin(), times.end());
  }
  std::vector<int64_t> sorted[kKindCount];
};

// A row's n-th repetition reads the n-th round, as the other rows do.
void readPercentile(benchmark::State& state, size_t kind, int percentile, size_t& repetition) {
  static std::deque<Round> rounds;
  while (rounds.size() <= repetition) rounds.emplace_back();
  const auto& times = rounds[repetition++].sorted[kind];
  const int64_t late = times[times.size() * static_cast<size_t>(percentile) / 100];
  if (times[0] < 0) state.SkipWithError("called early");
  for (auto _ : state) state.SetIterationTime(static_cast<double>(late) / 1e9);
}

void registerLateness(const std::string& family, size_t ours) {
  for (int percentile : {50, 90, 99})
    for (size_t kind = 0; kind < kKindCount; ++kind) {
      const bool isOther = std::string_view(kKinds[kind].name).find(':') != std::string_view::npos;
      if (kind != ours && !isOther) continue;
      const std::string row =
          family + "LateP" + std::to_string(percentile) + "/" + (isOther ? kKinds[kind].name : "Ours");
      auto read = [=, repetition = size_t{0}](benchmark::State& state) mutable {
        readPercentile(state, kind, percentile, repetition);
      };
      benchmark::RegisterBenchmark(row.c_str(), read)->UseManualTime()->Iterations(1);
    }
}

[[maybe_unused]] const bool latenessRegistered = [] {
  registerLateness("RunLoopTimer", 1);
  registerLateness("TimerSource", 2);
  registerLateness("TimerSourceSet", 3);
  return true;
}();

// ---- Moving one of many

constexpr size_t kTimers = 10'000;

struct Move {
  size_t timer;
  int64_t delayNs;
};
const std::vector<Move>& moves() {
  static const std::vector<Move> made = [] {
    std::mt19937_64 random(10);
    std::vector<Move> all(1 << 16);
    for (auto& move : all)
      move = {random() % kTimers, static_cast<int64_t>(100'000'000'000 + random() % 1'000'000'000'000)};
    return all;
  }();
  return made;
}
struct Moves {
  const Move& next() { return all[i++ % all.size()]; }
  const std::vector<Move>& all = moves();
  size_t i = 0;
};

void RunLoopRearmOurs(benchmark::State& state) {
  std::vector<BRRunLoopTimerRef> timers(kTimers);
  const double base = BRAbsoluteTimeGetCurrent() + 100;
  for (auto& timer : timers) {
    timer = BRRunLoopTimerCreate(
        nullptr, base, 86400, [](BRRunLoopTimerRef, void*) {}, nullptr);
    BRRunLoopAddTimer(BRRunLoopGetCurrent(), timer, kBRRunLoopDefaultMode);
  }
  Moves moves;
  for (auto _ : state) {
    const Move& move = moves.next();
    BRRunLoopTimerSetNextFireDate(timers[move.timer], base + static_cast<double>(move.delayNs) * 1e-9);
  }
  for (auto timer : timers) {
    BRRunLoopTimerInvalidate(timer);
    BRRelease(timer);
  }
}
BENCHMARK(RunLoopRearmOurs)->Name("RunLoopRearm10000/Ours");

void TimerSourceRearmOurs(benchmark::State& state) {
  BRWorkQueueRef queue = BRWorkQueueCreate(nullptr, "bench");
  std::vector<BRTimerSourceRef> sources(kTimers);
  const int64_t base = nowNs();
  for (auto& source : sources) {
    source = BRTimerSourceCreate(
        nullptr, queue, [](BRTimerSourceRef, uint64_t, void*) {}, nullptr);
    BRTimerSourceSetTimer(source, static_cast<uint64_t>(base + 100'000'000'000), 0, 0);
  }
  Moves moves;
  for (auto _ : state) {
    const Move& move = moves.next();
    BRTimerSourceSetTimer(sources[move.timer], static_cast<uint64_t>(base + move.delayNs), 0, 0);
  }
  for (auto source : sources) {
    BRTimerSourceCancel(source);
    BRRelease(source);
  }
  BRRelease(queue);
}
BENCHMARK(TimerSourceRearmOurs)->Name("TimerSourceRearm10000/Ours");

#if HAVE_ASIO
// Moving an Asio timer ends its wait, whose handler has to be run: every thousand moves here.
void RearmAsio(benchmark::State& state) {
  asio::io_context context;
  const auto base = std::chrono::steady_clock::now();
  std::vector<asio::steady_timer> timers;
  timers.reserve(kTimers);
  int64_t calls = 0;
  auto called = [&calls](std::error_code) { ++calls; };
  for (size_t i = 0; i < kTimers; ++i) {
    timers.emplace_back(context, base + std::chrono::seconds(100));
    timers.back().async_wait(called);
  }
  Moves moves;
  for (auto _ : state) {
    const Move& move = moves.next();
    timers[move.timer].expires_at(base + std::chrono::nanoseconds(move.delayNs));
    timers[move.timer].async_wait(called);
    if (moves.i % 1000 == 0) context.poll();
  }
  benchmark::DoNotOptimize(calls);
}
BENCHMARK(RearmAsio)->Name("RunLoopRearm10000/Peer:asio::steady_timer");
BENCHMARK(RearmAsio)->Name("TimerSourceRearm10000/Peer:asio::steady_timer");
#endif

}  // namespace
