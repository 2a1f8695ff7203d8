#include <chrono>

#include "tests/queues/frames.hpp"

namespace {

using namespace test;

constexpr int kFramesPerProducer = 20000;

// Everything that may be done to one queue, each thing on a thread of its own. Frames are numbered; each must
// come out once, by a dequeue or by a reset.
class Crowd {
 public:
  explicit Crowd(bool isSorted)
      : queue_(makeQueue(isSorted ? sortedFrameCallbacks() : frameCallbacks(), isSorted ? 0 : 64)),
        timesOut_(2 * kFramesPerProducer) {}

  void run() {
    std::vector<std::thread> threads;
    threads.emplace_back([this] { produce(0); });
    threads.emplace_back([this] { produce(1); });
    threads.emplace_back([this] { repeat(&Crowd::consume); });
    threads.emplace_back([this] { repeat(&Crowd::consume); });
    threads.emplace_back([this] { repeat(&Crowd::reset); });
    threads.emplace_back([this] { repeat(&Crowd::watch); });
    threads.emplace_back([this] { repeat(&Crowd::read); });
    for (auto& thread : threads) thread.join();
    while (!PVBufferQueueIsEmpty(queue_.get())) consume();
    for (size_t i = 0; i < timesOut_.size(); ++i) ASSERT_EQ(timesOut_[i], 1) << "frame " << i;
    EXPECT_EQ(PVBufferQueueGetTotalSize(queue_.get()), 0u);
  }

 private:
  void repeat(void (Crowd::*act)()) {
    while (producing_ != 0) (this->*act)(), std::this_thread::yield();
  }
  void produce(int producer) {
    for (int i = 0; i < kFramesPerProducer; ++i) {
      auto frame = frameAt(i ^ 2);
      frame->key = i ^ 2;
      frame->size = static_cast<size_t>(producer * kFramesPerProducer + i);
      while (PVStatus status = PVBufferQueueEnqueue(queue_.get(), frame.get())) {
        EXPECT_EQ(status, -12764);
        std::this_thread::yield();
      }
      if (i % 4 == 0) postReady(frame.get());
    }
    --producing_;
  }
  void consume() {
    auto frame = FrameRef::adopt(frameOf(PVBufferQueueDequeueIfDataReadyAndRetain(queue_.get())));
    if (frame) ++timesOut_[frame->size];
  }
  void reset() {
    PVBufferQueueResetWithCallback(
        queue_.get(),
        [](PVBufferRef buffer, void* in) { ++static_cast<Crowd*>(in)->timesOut_[frameOf(buffer)->size]; },
        this);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  // A trigger's callback sees its condition true, and is not called after the removal: the counter is freed.
  void watch() {
    auto counter = std::make_unique<Counter>();
    auto other = std::make_unique<Counter>();
    counter->then = [this](auto) { EXPECT_GT(PVBufferQueueGetBufferCount(queue_.get()), 3); };
    EXPECT_EQ(counter->installCount(queue_, 11, 3), 0);
    EXPECT_EQ(other->install(queue_, turn_++ % 2 ? 5 : 7), 0);
    std::this_thread::yield();
    EXPECT_EQ(PVBufferQueueRemoveTrigger(queue_.get(), counter->token), 0);
    EXPECT_EQ(PVBufferQueueRemoveTrigger(queue_.get(), other->token), 0);
  }
  // With the mutex held, the totals are those of what is there.
  void read() {
    struct Sum {
      PVBufferQueueRef queue;
      int64_t count = 0;
      size_t size = 0;
    } sum{queue_.get()};
    auto add = [](PVBufferRef buffer, void* context) -> PVStatus {
      auto* in = static_cast<Sum*>(context);
      in->size += frameOf(buffer)->size;
      if (++in->count < PVBufferQueueGetBufferCount(in->queue)) return 0;
      EXPECT_EQ(PVBufferQueueGetTotalSize(in->queue), in->size);
      EXPECT_EQ(PVTimeCompare(PVBufferQueueGetDuration(in->queue), PVTimeMake(in->count, 10)), 0);
      return 1;
    };
    PVBufferQueueCallForEachBuffer(queue_.get(), add, &sum);
    PVBufferQueueGetMinPresentationTimeStamp(queue_.get());
    PVBufferQueueGetEndPresentationTimeStamp(queue_.get());
  }

  QueueRef queue_;
  std::vector<std::atomic<int>> timesOut_;
  std::atomic<int> producing_{2};
  int turn_ = 0;
};

TEST(BufferQueueThreads, NothingIsLostAndNothingComesTwiceInArrivalOrder) { Crowd(false).run(); }
TEST(BufferQueueThreads, NothingIsLostAndNothingComesTwiceSorted) { Crowd(true).run(); }

// A queue whose head turns out to be ready, says another thread, while this one does something else to the
// queue.
struct ReadinessRace {
  void run(const std::function<void()>& meanwhile) {
    std::latch start(2);
    std::thread poster([&] {
      start.arrive_and_wait();
      head->isReady = true;
      postReady(head.get());
    });
    start.arrive_and_wait();
    meanwhile();
    poster.join();
  }

  QueueRef queue = makeQueue();
  FrameRef head = [] {
    auto frame = frameAt(0);
    frame->isReady = false;
    return frame;
  }();
};

TEST(BufferQueueThreads, AQueueGoesWhileItsHeadBecomesReady) {
  for (int round = 0; round < 300; ++round) {
    ReadinessRace race;
    std::atomic<int> fired{0};
    auto count = [](void* counter, PVBufferQueueTriggerToken) { ++*static_cast<std::atomic<int>*>(counter); };
    PVBufferQueueInstallTrigger(race.queue.get(), count, &fired, 7, kPVTimeInvalid, nullptr);
    enqueue(race.queue, race.head);
    race.run([&] {
      if (round % 2) std::this_thread::yield();
      race.queue = nullptr;
    });
    EXPECT_LE(fired, 1);
    EXPECT_EQ(BRGetRetainCount(race.head.get()), 1u);
  }
}

// The head's readiness and its arrival at the head race: one of the two sides must see it.
TEST(BufferQueueThreads, AHeadThatBecomesReadyAsItArrivesIsHeard) {
  for (int round = 0; round < 300; ++round) {
    ReadinessRace race;
    Counter counter;
    counter.install(race.queue, 7);
    race.run([&] { enqueue(race.queue, race.head); });
    EXPECT_EQ(counter.fired, 1);
  }
}

}  // namespace
