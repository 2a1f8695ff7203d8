// One buffer out and one in, at a depth that stays (the argument), in B-frame order: I P B B P B B ... by
// presentation time, taken out sorted. All hold references to the same objects behind a mutex; only ours
// keeps totals.
#include <benchmark/benchmark.h>
#include <kiv/buffer_queue.h>
#include <pevrin/sample_buffer.h>
#include <bedra/object.hpp>

#include <algorithm>
#include <deque>
#include <map>
#include <mutex>
#include <queue>
#include <vector>

#if HAVE_GLIB
#include <glib.h>
#endif

#include "bench/second_thread.hpp"

namespace {

// A time of the n-th frame in decode order.
int64_t presentationAt(int64_t n) { return 1001 * (n == 0 ? 0 : n % 3 == 1 ? n + 2 : n - 1); }

// What is queued: small objects that hardly cost anything to ask, and sample buffers.
struct Frame : BRObject {
  static constexpr const char* className = "BenchFrame";
  PVTime presentation = PVTimeMake(0, 30000);
  PVTime duration = PVTimeMake(1001, 30000);

  static const Frame* of(PVBufferRef buffer) { return static_cast<const Frame*>(buffer); }
  static PVBufferRef make() { return br::create<Frame>(nullptr, 0); }
  static void place(PVBufferRef buffer, int64_t n) {
    const_cast<Frame*>(of(buffer))->presentation.value = presentationAt(n);
  }
  static PVTime presentationOf(PVBufferRef buffer, void*) { return of(buffer)->presentation; }
  static PVTime durationOf(PVBufferRef buffer, void*) { return of(buffer)->duration; }
  static int32_t compare(PVBufferRef a, PVBufferRef b, void*) {
    return PVTimeCompare(of(a)->presentation, of(b)->presentation);
  }
  static const PVBufferCallbacks* callbacks(bool isSorted = true) {
    static constexpr PVBufferCallbacks kSorted{0,       nullptr, nullptr, presentationOf, durationOf,
                                               nullptr, compare, nullptr, nullptr};
    static constexpr PVBufferCallbacks kUnsorted{0,       nullptr, nullptr, presentationOf, durationOf,
                                                 nullptr, nullptr, nullptr, nullptr};
    return isSorted ? &kSorted : &kUnsorted;
  }
};

struct Sample {
  static PVSampleBufferRef of(PVBufferRef buffer) {
    return static_cast<PVSampleBufferRef>(const_cast<void*>(buffer));
  }
  static PVBufferRef make() {
    const PVSampleTimingInfo timing{PVTimeMake(1001, 30000), PVTimeMake(0, 30000), PVTimeMake(0, 30000)};
    const size_t size = 1000;
    PVSampleBufferRef sample = nullptr;
    PVSampleBufferCreateReady(nullptr, nullptr, nullptr, 1, 1, &timing, 1, &size, &sample);
    return sample;
  }
  static void place(PVBufferRef buffer, int64_t n) {
    PVSampleBufferSetOutputPresentationTimeStamp(of(buffer), PVTimeMake(presentationAt(n), 30000));
  }
  static int32_t compare(PVBufferRef a, PVBufferRef b, void*) { return callbacks()->compare(a, b, nullptr); }
  static const PVBufferCallbacks* callbacks() {
    return PVBufferQueueGetCallbacksForSampleBuffersSortedByOutputPTS();
  }
};

template <class Kind>
struct OurQueue {
  OurQueue() { PVBufferQueueCreate(nullptr, 0, Kind::callbacks(), &queue); }
  ~OurQueue() { BRRelease(queue); }
  void push(PVBufferRef buffer) { PVBufferQueueEnqueue(queue, buffer); }
  PVBufferRef pop() { return PVBufferQueueDequeueAndRetain(queue); }
  PVBufferQueueRef queue;
};

template <class Kind>
struct MultimapQueue {
  struct Before {
    bool operator()(PVBufferRef a, PVBufferRef b) const { return Kind::compare(a, b, nullptr) < 0; }
  };
  void push(PVBufferRef buffer) {
    std::lock_guard guard(lock);
    BRRetain(buffer);
    buffers.emplace(buffer, buffer);
  }
  PVBufferRef pop() {
    std::lock_guard guard(lock);
    PVBufferRef buffer = buffers.begin()->second;
    buffers.erase(buffers.begin());
    return buffer;
  }
  ~MultimapQueue() {
    while (!buffers.empty()) BRRelease(pop());
  }
  std::mutex lock;
  std::multimap<PVBufferRef, PVBufferRef, Before> buffers;
};

template <class Kind>
struct PriorityQueue {
  struct After {
    bool operator()(PVBufferRef a, PVBufferRef b) const { return Kind::compare(a, b, nullptr) > 0; }
  };
  void push(PVBufferRef buffer) {
    std::lock_guard guard(lock);
    BRRetain(buffer);
    buffers.push(buffer);
  }
  PVBufferRef pop() {
    std::lock_guard guard(lock);
    PVBufferRef buffer = buffers.top();
    buffers.pop();
    return buffer;
  }
  ~PriorityQueue() {
    while (!buffers.empty()) BRRelease(pop());
  }
  std::mutex lock;
  std::priority_queue<PVBufferRef, std::vector<PVBufferRef>, After> buffers;
};

#if HAVE_GLIB
template <class Kind>
struct AsyncQueue {
  static gint compare(gconstpointer a, gconstpointer b, gpointer) { return Kind::compare(a, b, nullptr); }
  void push(PVBufferRef buffer) {
    BRRetain(buffer);
    g_async_queue_push_sorted(queue, const_cast<void*>(buffer), compare, nullptr);
  }
  PVBufferRef pop() { return g_async_queue_try_pop(queue); }
  ~AsyncQueue() {
    while (PVBufferRef buffer = pop()) BRRelease(buffer);
    g_async_queue_unref(queue);
  }
  GAsyncQueue* queue = g_async_queue_new();
};
#endif

template <template <class> class Queue, class Kind>
void outAndIn(benchmark::State& state) {
  Queue<Kind> queue;
  int64_t next = 0;
  for (int64_t i = 0; i < state.range(0); ++i) {
    PVBufferRef buffer = Kind::make();
    Kind::place(buffer, next++);
    queue.push(buffer);
    BRRelease(buffer);
  }
  for (auto _ : state) {
    PVBufferRef buffer = queue.pop();
    Kind::place(buffer, next++);
    queue.push(buffer);
    BRRelease(buffer);
  }
}

void atDepths(benchmark::internal::Benchmark* row) { row->Arg(16)->Arg(256)->Arg(4096); }

BENCHMARK(outAndIn<OurQueue, Frame>)->Name("BufferQueue/Ours")->Apply(atDepths);
BENCHMARK(outAndIn<PriorityQueue, Frame>)->Name("BufferQueue/Peer:std::priority_queue")->Apply(atDepths);
BENCHMARK(outAndIn<MultimapQueue, Frame>)->Name("BufferQueue/Peer:std::multimap")->Apply(atDepths);
BENCHMARK(outAndIn<OurQueue, Sample>)->Name("BufferQueueSamples/Ours")->Apply(atDepths);
BENCHMARK(outAndIn<PriorityQueue, Sample>)
    ->Name("BufferQueueSamples/Peer:std::priority_queue")
    ->Apply(atDepths);
BENCHMARK(outAndIn<MultimapQueue, Sample>)->Name("BufferQueueSamples/Peer:std::multimap")->Apply(atDepths);
#if HAVE_GLIB
BENCHMARK(outAndIn<AsyncQueue, Frame>)->Name("BufferQueue/Peer:GAsyncQueue")->Apply(atDepths);
BENCHMARK(outAndIn<AsyncQueue, Sample>)->Name("BufferQueueSamples/Peer:GAsyncQueue")->Apply(atDepths);
#endif

// In decode order, and the least and the greatest presentation time asked for after each change.
void askOurs(benchmark::State& state) {
  PVBufferQueueRef queue = nullptr;
  PVBufferQueueCreate(nullptr, 0, Frame::callbacks(false), &queue);
  int64_t next = 0;
  auto push = [&](PVBufferRef buffer) {
    Frame::place(buffer, next++);
    PVBufferQueueEnqueue(queue, buffer);
    BRRelease(buffer);
  };
  for (int64_t i = 0; i < state.range(0); ++i) push(Frame::make());
  for (auto _ : state) {
    push(PVBufferQueueDequeueAndRetain(queue));
    benchmark::DoNotOptimize(PVBufferQueueGetMinPresentationTimeStamp(queue));
    benchmark::DoNotOptimize(PVBufferQueueGetMaxPresentationTimeStamp(queue));
  }
  BRRelease(queue);
}

void askScan(benchmark::State& state) {
  std::deque<PVTime> times;
  int64_t next = 0;
  auto push = [&] { times.push_back(PVTimeMake(presentationAt(next++), 30000)); };
  for (int64_t i = 0; i < state.range(0); ++i) push();
  auto isBefore = [](const PVTime& a, const PVTime& b) { return PVTimeCompare(a, b) < 0; };
  for (auto _ : state) {
    times.pop_front();
    push();
    benchmark::DoNotOptimize(std::minmax_element(times.begin(), times.end(), isBefore));
  }
}

BENCHMARK(askOurs)->Name("BufferQueueAsk/Ours")->Apply(atDepths);
BENCHMARK(askScan)->Name("BufferQueueAsk/Plain:scan")->Apply(atDepths);

}  // namespace
