#include <kiv/error.h>
#include <kiv/simple_queue.h>
#include <chrono>
#include <deque>

#include "tests/support/test.hpp"

namespace {

using Queue = br::Ref<PVSimpleQueue>;

Queue makeQueue(int32_t capacity, BRAllocatorRef allocator = nullptr) {
  Queue queue;
  EXPECT_EQ(PVSimpleQueueCreate(allocator, capacity, queue.out()), 0);
  return queue;
}

// Elements are never looked into.
const void* element(uintptr_t number) { return reinterpret_cast<const void*>(number); }

// The library's own functions, which inlined calls do not reach.
PVStatus (*volatile const calledEnqueue)(PVSimpleQueueRef, const void*) = PVSimpleQueueEnqueue;
const void* (*volatile const calledDequeue)(PVSimpleQueueRef) = PVSimpleQueueDequeue;

TEST(SimpleQueueTest, ArgumentsAreCheckedInOrder) {
  struct {
    int32_t capacity;
    bool hasOut;
    PVStatus expected;
  } cases[] = {{0, true, kPVSimpleQueueError_RequiredParameterMissing},
               {0, false, kPVSimpleQueueError_RequiredParameterMissing},
               {-1, false, kPVSimpleQueueError_RequiredParameterMissing},
               {-1, true, kPVSimpleQueueError_ParameterOutOfRange},
               {INT32_MIN, true, kPVSimpleQueueError_ParameterOutOfRange}};
  for (const auto& row : cases) {
    auto queue = reinterpret_cast<PVSimpleQueueRef>(&cases);
    EXPECT_EQ(PVSimpleQueueCreate(nullptr, row.capacity, row.hasOut ? &queue : nullptr), row.expected);
    if (row.hasOut) {
      EXPECT_EQ(queue, nullptr);
    }
  }
  const Queue queue = makeQueue(1);
  const uint64_t before = KivGetErrorCount();
  EXPECT_EQ(PVSimpleQueueEnqueue(nullptr, element(1)), kPVSimpleQueueError_RequiredParameterMissing);
  EXPECT_EQ(PVSimpleQueueEnqueue(queue.get(), nullptr), kPVSimpleQueueError_RequiredParameterMissing);
  EXPECT_EQ(calledEnqueue(queue.get(), nullptr), kPVSimpleQueueError_RequiredParameterMissing);
  EXPECT_EQ(PVSimpleQueueReset(nullptr), kPVSimpleQueueError_RequiredParameterMissing);
  EXPECT_EQ(PVSimpleQueueDequeue(nullptr), nullptr);
  EXPECT_EQ(calledDequeue(nullptr), nullptr);
  EXPECT_EQ(PVSimpleQueueGetHead(nullptr), nullptr);
  EXPECT_EQ(PVSimpleQueueGetCapacity(nullptr), 0);
  EXPECT_EQ(PVSimpleQueueGetCount(nullptr), 0);
  EXPECT_EQ(KivGetErrorCount(), before + 9);
  EXPECT_EQ(PVSimpleQueueDequeue(queue.get()), nullptr);
  EXPECT_EQ(PVSimpleQueueGetHead(queue.get()), nullptr);
  EXPECT_EQ(KivGetErrorCount(), before + 9) << "an empty queue is no error";
}

TEST(SimpleQueueTest, BehavesAsABoundedDequeOverAnyOperations) {
  std::mt19937 random(7);
  for (const size_t capacity : {1u, 2u, 3u, 7u, 8u, 100u}) {
    const Queue queue = makeQueue(static_cast<int32_t>(capacity));
    std::deque<const void*> model;
    for (uintptr_t step = 1; step < 20000; ++step) {
      // for twice the capacity more goes in than out, then more out than in
      const bool fills = random() % 8 < (step / (2 * capacity) % 2 ? 5u : 3u);
      if (random() % 1000 == 0) {
        ASSERT_EQ(PVSimpleQueueReset(queue.get()), 0);
        model.clear();
      } else if (fills) {
        const bool hasRoom = model.size() < capacity;
        const auto enqueue = random() % 2 ? calledEnqueue : PVSimpleQueueEnqueue;
        ASSERT_EQ(enqueue(queue.get(), element(step)), hasRoom ? 0 : kPVSimpleQueueError_QueueIsFull);
        if (hasRoom) model.push_back(element(step));
      } else {
        const auto dequeue = random() % 2 ? calledDequeue : PVSimpleQueueDequeue;
        ASSERT_EQ(dequeue(queue.get()), model.empty() ? nullptr : model.front());
        if (!model.empty()) model.pop_front();
      }
      ASSERT_EQ(PVSimpleQueueGetHead(queue.get()), model.empty() ? nullptr : model.front());
      ASSERT_EQ(PVSimpleQueueGetCount(queue.get()), static_cast<int32_t>(model.size()));
    }
    EXPECT_EQ(PVSimpleQueueGetCapacity(queue.get()), static_cast<int32_t>(capacity));
  }
}

TEST(SimpleQueueTest, IsOneBlockAndLeavesItsElementsAlone) {
  test::FailingAllocator allocator;
  {
    const Queue queue = makeQueue(1000, allocator), held = makeQueue(1);
    EXPECT_EQ(allocator.requests(), 1);
    ASSERT_EQ(PVSimpleQueueEnqueue(queue.get(), held.get()), 0);
    EXPECT_EQ(BRGetRetainCount(held.get()), 1u);
    EXPECT_EQ(KivSimpleQueueRetain(queue.get()), queue.get());
    EXPECT_EQ(BRGetRetainCount(queue.get()), 2u);
    KivSimpleQueueRelease(queue.get());
  }
  EXPECT_EQ(KivSimpleQueueRetain(nullptr), nullptr);
  KivSimpleQueueRelease(nullptr);

  allocator.failRequest(1);
  auto queue = reinterpret_cast<PVSimpleQueueRef>(&allocator);
  EXPECT_EQ(PVSimpleQueueCreate(allocator, 1, &queue), kPVSimpleQueueError_AllocationFailed);
  EXPECT_EQ(queue, nullptr);
}

TEST(SimpleQueueTest, DescribesItsRingAcrossTheWrap) {
  const Queue queue = makeQueue(2);
  for (uintptr_t number : {0x10, 0x20}) PVSimpleQueueEnqueue(queue.get(), element(number));
  PVSimpleQueueDequeue(queue.get());
  PVSimpleQueueEnqueue(queue.get(), element(0x30));
  char expected[300];
  std::snprintf(
      expected, sizeof expected,
      "<PVSimpleQueue %p retainCount: 1 allocator: %p\n\tcapacity = 2\n\tcount = 2\n"
      "\treadIndex = 1\n\twriteIndex = 0\n\telements[readIndex..(writeIndex-1) %% (capacity+1)] = {\n"
      "\t\t0x20\t\t0x30",
      static_cast<void*>(queue.get()), static_cast<const void*>(BRGetAllocator(queue.get())));
  const auto text = br::Ref<const BRString>::adopt(BRCopyDebugDescription(queue.get()));
  EXPECT_STREQ(BRStringGetUTF8(text.get()), expected);
}

#if defined(__has_feature)
#if __has_feature(thread_sanitizer) || __has_feature(address_sanitizer)
#define SANITIZED 1
#endif
#endif
#ifdef SANITIZED
constexpr uint64_t kHandedOver = 10'000'000;
#else
constexpr uint64_t kHandedOver = 100'000'000;
#endif

// Each element points at its number. A number is written over as soon as the queue's promise allows: when the
// element capacity + 1 places after it has found room, the consumer must be done with it.
struct Handover {
  explicit Handover(int32_t capacity)
      : queue(makeQueue(capacity)), numbers(static_cast<size_t>(capacity) + 2) {}

  // Sends as many as there is time for: on a busy machine two threads that wait for each other take long.
  void produce(uint64_t count) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(15);
    uint64_t number = 0;
    for (size_t next = 0; number < count; ++number) {
      if (number % 1024 == 0 && std::chrono::steady_clock::now() > deadline) break;
      numbers[next] = number;
      while (PVSimpleQueueEnqueue(queue.get(), &numbers[next]) != 0) {
        if (abandoned) return;
        std::this_thread::yield();
      }
      if (++next == numbers.size()) next = 0;
    }
    sent.store(number, std::memory_order_release);
  }
  // How many came as they were sent, until all that were sent have come or one is missing.
  uint64_t consume() {
    for (uint64_t number = 0;;) {
      const bool isLast = sent.load(std::memory_order_acquire) != kUnknown;
      if (const void* taken = PVSimpleQueueDequeue(queue.get())) {
        if (*static_cast<const uint64_t*>(taken) != number) return number;
        ++number;
      } else if (isLast) {
        return number;
      } else {
        std::this_thread::yield();
      }
    }
  }

  static constexpr uint64_t kUnknown = UINT64_MAX;
  Queue queue;
  std::vector<uint64_t> numbers;
  std::atomic<uint64_t> sent{kUnknown};
  std::atomic<bool> abandoned{false};
};

TEST(SimpleQueueThreadsTest, EveryElementArrivesOnceAndInOrder) {
  for (const auto& [capacity, count] :
       {std::pair{1, kHandedOver / 1000}, {3, kHandedOver / 1000}, {4095, kHandedOver}}) {
    Handover handover(capacity);
    std::thread producer([&, count = count] { handover.produce(count); });
    const uint64_t received = handover.consume();
    handover.abandoned = true;  // of a consumer that found a wrong one the producer must not wait for room
    producer.join();
    EXPECT_EQ(received, handover.sent) << "capacity " << capacity;
    EXPECT_GT(received, 0u);
    EXPECT_EQ(PVSimpleQueueGetCount(handover.queue.get()), 0);
  }
}

}  // namespace
