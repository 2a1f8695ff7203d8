// Serial work queues beside strands on a pool of the same size.
#include <bedra/runtime.h>
#include <bedra/work_queue.h>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <thread>

#if HAVE_ASIO
#include <asio/post.hpp>
#include <asio/strand.hpp>
#include <asio/thread_pool.hpp>
#endif

#include "bench/second_thread.hpp"

namespace {

// What each call does.
struct Work {
  int64_t calls = 0;
  std::atomic<bool> done{false};

  void wait() {
    done.wait(false);
    done = false;
  }
  void finish() {
    done = true;
    done.notify_one();
  }
};

constexpr int kCalls = 5000;

// Thousands of calls, then a wait for the last.
void WorkQueuePostRunOurs(benchmark::State& state) {
  BRWorkQueueRef queue = BRWorkQueueCreate(nullptr, "bench");
  Work work;
  for (auto _ : state) {
    for (int i = 0; i < kCalls; ++i)
      BRWorkQueueAsync(
          queue, [](void* context) { ++static_cast<Work*>(context)->calls; }, &work);
    BRWorkQueueAsync(
        queue, [](void* context) { static_cast<Work*>(context)->finish(); }, &work);
    work.wait();
  }
  state.SetItemsProcessed(state.iterations() * kCalls);
  BRRelease(queue);
}
BENCHMARK(WorkQueuePostRunOurs)->Name("WorkQueuePostRun/Ours")->MeasureProcessCPUTime();

// Each call queues the next.
struct Chain {
  BRWorkQueueRef queue;
  int left;
  Work work;
};
void nextOurs(void* context) {
  auto* chain = static_cast<Chain*>(context);
  if (--chain->left == 0)
    chain->work.finish();
  else
    BRWorkQueueAsync(chain->queue, nextOurs, chain);
}
void WorkQueueChainOurs(benchmark::State& state) {
  Chain chain{BRWorkQueueCreate(nullptr, "bench"), 0, {}};
  for (auto _ : state) {
    chain.left = 1000;
    BRWorkQueueAsync(chain.queue, nextOurs, &chain);
    chain.work.wait();
  }
  BRRelease(chain.queue);
}
BENCHMARK(WorkQueueChainOurs)->Name("WorkQueueChain/Ours")->MeasureProcessCPUTime();

// One call and its end, from a thread outside.
void WorkQueuePingPongOurs(benchmark::State& state) {
  BRWorkQueueRef queue = BRWorkQueueCreate(nullptr, "bench");
  Work work;
  for (auto _ : state) {
    BRWorkQueueAsync(
        queue, [](void* context) { static_cast<Work*>(context)->finish(); }, &work);
    work.wait();
  }
  BRRelease(queue);
}
BENCHMARK(WorkQueuePingPongOurs)->Name("WorkQueuePingPong/Ours")->UseRealTime();

void WorkQueueSyncOurs(benchmark::State& state) {
  BRWorkQueueRef queue = BRWorkQueueCreate(nullptr, "bench");
  Work work;
  for (auto _ : state)
    BRWorkQueueSync(
        queue, [](void* context) { ++static_cast<Work*>(context)->calls; }, &work);
  BRRelease(queue);
}
BENCHMARK(WorkQueueSyncOurs)->Name("WorkQueueSync/Ours");

#if HAVE_ASIO

using Strand = asio::strand<asio::thread_pool::executor_type>;

// As many threads as the work queues share.
asio::thread_pool& pool() {
  static auto* made = new asio::thread_pool(std::clamp(std::thread::hardware_concurrency(), 4u, 16u));
  return *made;
}

void WorkQueuePostRunAsio(benchmark::State& state) {
  Strand strand(pool().get_executor());
  Work work;
  for (auto _ : state) {
    for (int i = 0; i < kCalls; ++i) asio::post(strand, [&work] { ++work.calls; });
    asio::post(strand, [&work] { work.finish(); });
    work.wait();
  }
  state.SetItemsProcessed(state.iterations() * kCalls);
}
BENCHMARK(WorkQueuePostRunAsio)->Name("WorkQueuePostRun/Peer:asio::strand")->MeasureProcessCPUTime();

void nextAsio(Strand& strand, int& left, Work& work) {
  if (--left == 0)
    work.finish();
  else
    asio::post(strand, [&] { nextAsio(strand, left, work); });
}
void WorkQueueChainAsio(benchmark::State& state) {
  Strand strand(pool().get_executor());
  Work work;
  int left;
  for (auto _ : state) {
    left = 1000;
    asio::post(strand, [&] { nextAsio(strand, left, work); });
    work.wait();
  }
}
BENCHMARK(WorkQueueChainAsio)->Name("WorkQueueChain/Peer:asio::strand")->MeasureProcessCPUTime();

void WorkQueuePingPongAsio(benchmark::State& state) {
  Strand strand(pool().get_executor());
  Work work;
  for (auto _ : state) {
    asio::post(strand, [&work] { work.finish(); });
    work.wait();
  }
}
BENCHMARK(WorkQueuePingPongAsio)->Name("WorkQueuePingPong/Peer:asio::strand")->UseRealTime();

void WorkQueueSyncAsio(benchmark::State& state) {
  Strand strand(pool().get_executor());
  Work work;
  for (auto _ : state) {
    asio::post(strand, [&work] {
      ++work.calls;
      work.finish();
    });
    work.wait();
  }
}
BENCHMARK(WorkQueueSyncAsio)->Name("WorkQueueSync/Peer:asio::strand post and wait");

#endif

}  // namespace
