// Posts beside GLib's signals and Boost's. An argument of a family is the number of listeners.
#include <benchmark/benchmark.h>
#include <pevrin/notification_center.h>
#include <bedra/literal.hpp>

#include <memory>
#include <string>
#include <vector>

#if HAVE_BOOST
#include <boost/signals2.hpp>
#endif
#if HAVE_GLIB
#include <glib-object.h>
#endif

#include "bench/second_thread.hpp"

namespace {

using namespace br::literals;

PVNotificationCenterRef center() { return PVNotificationCenterGetDefaultLocalCenter(); }

void count(PVNotificationCenterRef, void* listener, BRStringRef, const void*, BRDictionaryRef) {
  ++*static_cast<int64_t*>(listener);
}

// Each post is about another of a few objects, so that no answer is remembered.
constexpr int kObjects = 16;

// Listeners of one name: each of any object.
struct Listeners {
  explicit Listeners(int64_t number) : counts(static_cast<size_t>(number)) {
    for (auto& counter : counts)
      PVNotificationCenterAddListener(center(), &counter, count, "bench"_br, nullptr);
  }
  ~Listeners() {
    for (auto& counter : counts)
      PVNotificationCenterRemoveListener(center(), &counter, count, "bench"_br, nullptr);
  }
  std::vector<int64_t> counts;
};

void postOurs(benchmark::State& state, int64_t listeners) {
  Listeners registered(listeners);
  int objects[kObjects];
  size_t next = 0;
  for (auto _ : state)
    benchmark::DoNotOptimize(
        PVNotificationCenterPostNotification(center(), "bench"_br, &objects[next++ % kObjects], nullptr, 0));
}
void NotifyPost0Ours(benchmark::State& state) { postOurs(state, 0); }
void NotifyPost1Ours(benchmark::State& state) { postOurs(state, 1); }
void NotifyPost10Ours(benchmark::State& state) { postOurs(state, 10); }
void NotifyPost100Ours(benchmark::State& state) { postOurs(state, 100); }

// Many listeners of one name, each of an object of its own; every post is about one of them.
void matchOurs(benchmark::State& state, int64_t listeners) {
  std::vector<int64_t> counts(static_cast<size_t>(listeners));
  for (auto& counter : counts)
    PVNotificationCenterAddListener(center(), &counter, count, "bench"_br, &counter);
  size_t next = 0;
  for (auto _ : state) {
    next = (next + 7) % counts.size();
    PVNotificationCenterPostNotification(center(), "bench"_br, &counts[next], nullptr, 0);
  }
  for (auto& counter : counts)
    PVNotificationCenterRemoveListener(center(), &counter, count, "bench"_br, &counter);
}
void NotifyMatch1of1Ours(benchmark::State& state) { matchOurs(state, 1); }
void NotifyMatch1of10Ours(benchmark::State& state) { matchOurs(state, 10); }
void NotifyMatch1of1000Ours(benchmark::State& state) { matchOurs(state, 1000); }

BENCHMARK(NotifyPost0Ours)->Name("NotifyPost0/Ours");
BENCHMARK(NotifyPost1Ours)->Name("NotifyPost1/Ours");
BENCHMARK(NotifyPost10Ours)->Name("NotifyPost10/Ours");
BENCHMARK(NotifyPost100Ours)->Name("NotifyPost100/Ours");
BENCHMARK(NotifyMatch1of1Ours)->Name("NotifyMatch1of1/Ours");
BENCHMARK(NotifyMatch1of10Ours)->Name("NotifyMatch1of10/Ours");
BENCHMARK(NotifyMatch1of1000Ours)->Name("NotifyMatch1of1000/Ours");

// Adding a listener among others and removing it.
void NotifyAddRemoveOurs(benchmark::State& state) {
  Listeners others(10);
  int64_t counter = 0;
  for (auto _ : state) {
    PVNotificationCenterAddListener(center(), &counter, count, "bench"_br, &counter);
    PVNotificationCenterRemoveListener(center(), &counter, count, "bench"_br, &counter);
  }
}
BENCHMARK(NotifyAddRemoveOurs)->Name("NotifyAddRemove/Ours");

// Two threads that post about objects of their own.
void NotifyPost1TwoThreadsOurs(benchmark::State& state) {
  int64_t counter = 0, object = 0;
  PVNotificationCenterAddListener(center(), &counter, count, "bench"_br, &object);
  for (auto _ : state) PVNotificationCenterPostNotification(center(), "bench"_br, &object, nullptr, 0);
  PVNotificationCenterRemoveListener(center(), &counter, count, "bench"_br, &object);
}
BENCHMARK(NotifyPost1TwoThreadsOurs)->Name("NotifyPost1TwoThreads/Ours")->Threads(2);

#if HAVE_BOOST

using Signal = boost::signals2::signal<void(void*, BRStringRef, const void*, BRDictionaryRef)>;

void postBoost(benchmark::State& state, int64_t listeners) {
  Signal signal;
  std::vector<int64_t> counts(static_cast<size_t>(listeners));
  for (auto& counter : counts)
    signal.connect([&counter](void*, BRStringRef, const void*, BRDictionaryRef) { ++counter; });
  int objects[kObjects];
  size_t next = 0;
  for (auto _ : state) signal(nullptr, "bench"_br, &objects[next++ % kObjects], nullptr);
}
void NotifyPost1Boost(benchmark::State& state) { postBoost(state, 1); }
void NotifyPost10Boost(benchmark::State& state) { postBoost(state, 10); }
void NotifyPost100Boost(benchmark::State& state) { postBoost(state, 100); }
BENCHMARK(NotifyPost1Boost)->Name("NotifyPost1/Peer:boost::signals2");
BENCHMARK(NotifyPost10Boost)->Name("NotifyPost10/Peer:boost::signals2");
BENCHMARK(NotifyPost100Boost)->Name("NotifyPost100/Peer:boost::signals2");

void NotifyAddRemoveBoost(benchmark::State& state) {
  Signal signal;
  std::vector<int64_t> counts(10);
  for (auto& counter : counts)
    signal.connect([&counter](void*, BRStringRef, const void*, BRDictionaryRef) { ++counter; });
  int64_t counter = 0;
  for (auto _ : state)
    signal.connect([&counter](void*, BRStringRef, const void*, BRDictionaryRef) { ++counter; }).disconnect();
}
BENCHMARK(NotifyAddRemoveBoost)->Name("NotifyAddRemove/Peer:boost::signals2");

void NotifyPost1TwoThreadsBoost(benchmark::State& state) {
  Signal signal;
  int64_t counter = 0;
  signal.connect([&counter](void*, BRStringRef, const void*, BRDictionaryRef) { ++counter; });
  for (auto _ : state) signal(nullptr, "bench"_br, &counter, nullptr);
}
BENCHMARK(NotifyPost1TwoThreadsBoost)->Name("NotifyPost1TwoThreads/Peer:boost::signals2")->Threads(2);

#endif

#if HAVE_GLIB

guint benchSignal() {
  static const guint signal = g_signal_newv("bench", G_TYPE_OBJECT, G_SIGNAL_RUN_LAST, nullptr, nullptr,
                                            nullptr, nullptr, G_TYPE_NONE, 0, nullptr);
  return signal;
}
void countGlib(GObject*, gpointer counter) { ++*static_cast<int64_t*>(counter); }

// Objects with one handler each, or none; every emission is of one of them.
void emitGlib(benchmark::State& state, int64_t objects, bool isHeard) {
  std::vector<GObject*> emitters;
  std::vector<int64_t> counts(static_cast<size_t>(objects));
  for (auto& counter : counts) {
    emitters.push_back(G_OBJECT(g_object_new(G_TYPE_OBJECT, nullptr)));
    const guint signal = benchSignal();
    if (isHeard) g_signal_connect(emitters.back(), g_signal_name(signal), G_CALLBACK(countGlib), &counter);
  }
  size_t next = 0;
  for (auto _ : state) {
    next = (next + 7) % emitters.size();
    g_signal_emit(emitters[next], benchSignal(), 0);
  }
  for (auto* emitter : emitters) g_object_unref(emitter);
}
void NotifyPost0Glib(benchmark::State& state) { emitGlib(state, kObjects, false); }
void NotifyMatch1of1Glib(benchmark::State& state) { emitGlib(state, 1, true); }
void NotifyMatch1of10Glib(benchmark::State& state) { emitGlib(state, 10, true); }
void NotifyMatch1of1000Glib(benchmark::State& state) { emitGlib(state, 1000, true); }
BENCHMARK(NotifyPost0Glib)->Name("NotifyPost0/Peer:g_signal_emit");
BENCHMARK(NotifyMatch1of1Glib)->Name("NotifyMatch1of1/Peer:g_signal_emit");
BENCHMARK(NotifyMatch1of10Glib)->Name("NotifyMatch1of10/Peer:g_signal_emit");
BENCHMARK(NotifyMatch1of1000Glib)->Name("NotifyMatch1of1000/Peer:g_signal_emit");

#endif

}  // namespace
