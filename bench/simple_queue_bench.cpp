// Simple queues beside other queues for one producer and one consumer. Those are templates that the compiler puts in
// place, as it does the moves of ours. Every queue is reached by a pointer: two threads share it, so it is no local
// variable whose fields the compiler could address on its own stack.
#include <benchmark/benchmark.h>
#include <pevrin/simple_queue.h>
#include <bedra/runtime.h>

#include <memory>
#include <thread>

#if HAVE_BOOST
#include <boost/lockfree/spsc_queue.hpp>
#endif
#if HAVE_READERWRITERQUEUE
#include <readerwriterqueue/readerwriterqueue.h>
#endif

#include "bench/second_thread.hpp"

namespace {

constexpr int32_t kCapacity = 1024;

struct Ours {
  Ours() { PVSimpleQueueCreate(nullptr, kCapacity, &queue); }
  ~Ours() { BRRelease(queue); }
  bool push(const void* element) { return PVSimpleQueueEnqueue(queue, element) == 0; }
  const void* pop() { return PVSimpleQueueDequeue(queue); }
  PVSimpleQueueRef queue = nullptr;
};

#if HAVE_BOOST
struct Boost {
  bool push(const void* element) { return queue->push(element); }
  const void* pop() {
    const void* element = nullptr;
    queue->pop(element);
    return element;
  }
  using Queue = boost::lockfree::spsc_queue<const void*>;
  std::unique_ptr<Queue> queue = std::make_unique<Queue>(kCapacity);
};
#endif

#if HAVE_READERWRITERQUEUE
struct ReaderWriter {
  bool push(const void* element) { return queue->try_enqueue(element); }
  const void* pop() {
    const void* element = nullptr;
    queue->try_dequeue(element);
    return element;
  }
  using Queue = moodycamel::ReaderWriterQueue<const void*>;
  std::unique_ptr<Queue> queue = std::make_unique<Queue>(kCapacity);
};
#endif

// On one thread: so many in, then so many out.
template <class Queue>
void oneThread(benchmark::State& state) {
  Queue queue;
  const int64_t burst = state.range(0);
  for (auto _ : state) {
    for (int64_t i = 0; i < burst; ++i) benchmark::DoNotOptimize(queue.push(&queue));
    for (int64_t i = 0; i < burst; ++i) benchmark::DoNotOptimize(queue.pop());
  }
  state.SetItemsProcessed(state.iterations() * burst);
}

// A side that cannot move lets others run: where the machine has more to do than processors, a side that only waits
// would take the other's.
template <class Move>
auto persist(Move move) {
  for (int tries = 1;; ++tries) {
    if (auto result = move()) return result;
    if (tries % 64 == 0) std::this_thread::yield();
  }
}

// Between two threads: the time for a hundred thousand elements to arrive.
template <class Queue>
void twoThreads(benchmark::State& state) {
  constexpr int64_t kElements = 100'000;
  Queue queue, done;
  std::thread consumer([&] {
    for (int64_t taken = 0;;) {
      if (persist([&] { return queue.pop(); }) == &queue) return;
      if (++taken % kElements == 0) done.push(&taken);
    }
  });
  for (auto _ : state) {
    for (int64_t i = 0; i < kElements; ++i) persist([&] { return queue.push(&state); });
    persist([&] { return done.pop(); });
  }
  queue.push(&queue);
  consumer.join();
  state.SetItemsProcessed(state.iterations() * kElements);
}

// There and back, one element at a time.
template <class Queue>
void roundTrip(benchmark::State& state) {
  Queue there, back;
  std::thread other([&] {
    for (;;) {
      const void* element = persist([&] { return there.pop(); });
      if (element == &there) return;
      back.push(element);
    }
  });
  for (auto _ : state) {
    there.push(&state);
    persist([&] { return back.pop(); });
  }
  there.push(&there);
  other.join();
}

BENCHMARK(oneThread<Ours>)->Name("SimpleQueueOneThread/Ours")->Arg(1)->Arg(256);
BENCHMARK(twoThreads<Ours>)->Name("SimpleQueueTwoThreads/Ours")->UseRealTime();
BENCHMARK(roundTrip<Ours>)->Name("SimpleQueueRoundTrip/Ours")->UseRealTime();
#if HAVE_BOOST
BENCHMARK(oneThread<Boost>)->Name("SimpleQueueOneThread/Peer:boost::spsc_queue")->Arg(1)->Arg(256);
BENCHMARK(twoThreads<Boost>)->Name("SimpleQueueTwoThreads/Peer:boost::spsc_queue")->UseRealTime();
BENCHMARK(roundTrip<Boost>)->Name("SimpleQueueRoundTrip/Peer:boost::spsc_queue")->UseRealTime();
#endif
#if HAVE_READERWRITERQUEUE
BENCHMARK(oneThread<ReaderWriter>)->Name("SimpleQueueOneThread/Peer:ReaderWriterQueue")->Arg(1)->Arg(256);
BENCHMARK(twoThreads<ReaderWriter>)->Name("SimpleQueueTwoThreads/Peer:ReaderWriterQueue")->UseRealTime();
BENCHMARK(roundTrip<ReaderWriter>)->Name("SimpleQueueRoundTrip/Peer:ReaderWriterQueue")->UseRealTime();
#endif

}  // namespace
