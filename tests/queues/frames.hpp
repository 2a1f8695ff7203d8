// Small buffers that say what they are told to, for the tests of buffer queues.
#ifndef TESTS_QUEUES_FRAMES_HPP
#define TESTS_QUEUES_FRAMES_HPP

#include <kiv/buffer_queue.h>
#include <kiv/error.h>
#include <pevrin/notification_center.h>

#include "tests/support/test.hpp"

namespace test {

using namespace br::literals;

struct Frame : BRObject {
  static constexpr const char* className = "TestFrame";
  Frame() { ++alive; }
  ~Frame() { --alive; }

  PVTime presentation = kPVTimeInvalid;
  PVTime decode = kPVTimeInvalid;
  PVTime duration = PVTimeMake(1, 10);
  size_t size = 0;
  int64_t key = 0;  // what sorted queues sort by
  std::atomic<bool> isReady{true};
  static inline std::atomic<int> alive{0};
};
using FrameRef = br::Ref<Frame>;
using QueueRef = br::Ref<PVBufferQueue>;

inline FrameRef makeFrame(PVTime presentation, PVTime duration = PVTimeMake(1, 10)) {
  auto frame = FrameRef::adopt(br::create<Frame>(nullptr, 0));
  frame->presentation = presentation;
  frame->decode = presentation;
  frame->duration = duration;
  frame->key = presentation.value;
  return frame;
}
// A frame of 1/10 s at so many tenths.
inline FrameRef frameAt(int64_t tenths) { return makeFrame(PVTimeMake(tenths, 10)); }

inline Frame* frameOf(PVBufferRef buffer) { return static_cast<Frame*>(const_cast<void*>(buffer)); }

inline void postReady(Frame* frame) {
  PVNotificationCenterPostNotification(PVNotificationCenterGetDefaultLocalCenter(), "FrameBecameReady"_br,
                                       frame, nullptr, 0);
}

// The records that the tests start from. `asked`, when it is the refcon, is called with each question about a
// buffer.
using Asked = std::function<void(const char* question)>;
inline void tell(void* refcon, const char* question) {
  if (refcon) (*static_cast<Asked*>(refcon))(question);
}
inline PVBufferCallbacks frameCallbacks(Asked* asked = nullptr) {
  return {
      1,
      asked,
      [](PVBufferRef buffer, void* refcon) { return tell(refcon, "decode"), frameOf(buffer)->decode; },
      [](PVBufferRef buffer, void* refcon) {
        return tell(refcon, "presentation"), frameOf(buffer)->presentation;
      },
      [](PVBufferRef buffer, void* refcon) { return tell(refcon, "duration"), frameOf(buffer)->duration; },
      [](PVBufferRef buffer, void* refcon) { return tell(refcon, "ready"), frameOf(buffer)->isReady.load(); },
      nullptr,
      "FrameBecameReady"_br,
      [](PVBufferRef buffer, void* refcon) { return tell(refcon, "size"), frameOf(buffer)->size; }};
}
inline PVBufferCallbacks sortedFrameCallbacks(Asked* asked = nullptr) {
  PVBufferCallbacks callbacks = frameCallbacks(asked);
  callbacks.compare = [](PVBufferRef a, PVBufferRef b, void* refcon) -> BRComparisonResult {
    tell(refcon, "compare");
    return (frameOf(a)->key > frameOf(b)->key) - (frameOf(a)->key < frameOf(b)->key);
  };
  return callbacks;
}

inline QueueRef makeQueue(const PVBufferCallbacks& callbacks = frameCallbacks(), int64_t capacity = 0,
                          BRAllocatorRef allocator = nullptr) {
  QueueRef queue;
  EXPECT_EQ(PVBufferQueueCreate(allocator, capacity, &callbacks, queue.out()), 0);
  return queue;
}

inline FrameRef dequeue(const QueueRef& queue) {
  return FrameRef::adopt(frameOf(PVBufferQueueDequeueAndRetain(queue.get())));
}
inline void enqueue(const QueueRef& queue, const FrameRef& frame) {
  EXPECT_EQ(PVBufferQueueEnqueue(queue.get(), frame.get()), 0);
}

// A trigger that counts how often it fires, and does something more.
struct Counter {
  int fired = 0;
  PVBufferQueueTriggerToken token = nullptr;
  std::function<void(PVBufferQueueTriggerToken)> then;

  static void fire(void* refcon, PVBufferQueueTriggerToken token) {
    auto* counter = static_cast<Counter*>(refcon);
    ++counter->fired;
    if (counter->then) counter->then(token);
  }
  PVStatus install(const QueueRef& queue, int32_t condition, PVTime threshold = kPVTimeInvalid) {
    return PVBufferQueueInstallTrigger(queue.get(), fire, this, condition, threshold, &token);
  }
  PVStatus installCount(const QueueRef& queue, int32_t condition, int64_t threshold) {
    return PVBufferQueueInstallTriggerWithIntegerThreshold(queue.get(), fire, this, condition, threshold,
                                                           &token);
  }
  bool isTrue(const QueueRef& queue) const { return PVBufferQueueTestTrigger(queue.get(), token); }
};

}  // namespace test

// The expression's status, which must have been signalled exactly once.
#define EXPECT_SIGNALLED(expression, status)          \
  do {                                                \
    const uint64_t errorsBefore = KivGetErrorCount(); \
    EXPECT_EQ(expression, status);                    \
    EXPECT_EQ(KivGetErrorCount() - errorsBefore, 1u); \
  } while (false)

#endif
