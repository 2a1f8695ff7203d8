#include <kiv/error.h>
#include <kiv/notification_center.h>

#include "tests/support/test.hpp"

namespace {

using namespace br::literals;

PVNotificationCenterRef center() { return PVNotificationCenterGetDefaultLocalCenter(); }

// What a deferred call brought, in the order in which the calls came.
struct Heard {
  std::string names;
  const void* object = nullptr;
  BRDictionaryRef payload = nullptr;
  std::function<void()> then;
};
void hear(PVNotificationCenterRef, void* listener, BRStringRef name, const void* object,
          BRDictionaryRef payload) {
  auto* heard = static_cast<Heard*>(listener);
  heard->names += BRStringGetUTF8(name);
  heard->object = object;
  heard->payload = payload;
  if (heard->then) heard->then();
}

br::Ref<const BRDictionary> makePayload() {
  const void *key = "rate"_br, *value = "1"_br;
  return br::Ref<const BRDictionary>::adopt(BRDictionaryCreate(
      nullptr, &key, &value, 1, &kBRTypeDictionaryKeyCallBacks, &kBRTypeDictionaryValueCallBacks));
}
br::Ref<BRWorkQueue> makeQueue() {
  return br::Ref<BRWorkQueue>::adopt(BRWorkQueueCreate(nullptr, "org.example"));
}
void finish(const br::Ref<BRWorkQueue>& queue) {
  BRWorkQueueSync(
      queue.get(), [](void*) {}, nullptr);
}

PVStatus deferToLoop(Heard& heard, BRStringRef name, BRRunLoopRef loop = BRRunLoopGetCurrent(),
                     BRAllocatorRef allocator = nullptr) {
  return KivDeferNotificationToRunLoop(hear, center(), &heard, name, nullptr, nullptr, loop, allocator);
}

TEST(DeferredNotification, QueueCallsInOrderWithPayloadHeld) {
  Heard heard;
  int object = 0;
  auto queue = makeQueue();
  auto payload = makePayload();
  std::latch block(1);
  BRWorkQueueAsync(
      queue.get(), [](void* context) { static_cast<std::latch*>(context)->wait(); }, &block);
  for (BRStringRef name : {"a"_br, "b"_br, "c"_br})
    EXPECT_EQ(KivDeferNotificationToDispatchQueue(hear, center(), &heard, name, &object, payload.get(),
                                                  queue.get(), nullptr),
              0);
  EXPECT_EQ(BRGetRetainCount(payload.get()), 4u);
  block.count_down();
  finish(queue);
  EXPECT_EQ(heard.names, "abc");
  EXPECT_EQ(heard.object, &object);
  EXPECT_EQ(heard.payload, payload.get());
  EXPECT_EQ(BRGetRetainCount(payload.get()), 1u);
}

TEST(DeferredNotification, WithoutMemoryNothingIsCalledOrLeft) {
  auto queue = makeQueue();
  test::walkAllocationFailures([&](BRAllocatorRef allocator) {
    Heard heard;
    const PVStatus status = KivDeferNotificationToDispatchQueue(hear, center(), &heard, "x"_br, nullptr,
                                                                nullptr, queue.get(), allocator);
    finish(queue);
    EXPECT_EQ(heard.names, status == 0 ? "x" : "");
    EXPECT_TRUE(status == 0 || status == -12726);
    return status == 0 ? test::Outcome::kSucceeded : test::Outcome::kOutOfMemory;
  });
  const int requests = test::walkAllocationFailures([&](BRAllocatorRef allocator) {
    Heard heard;
    const PVStatus status = deferToLoop(heard, "x"_br, BRRunLoopGetCurrent(), allocator);
    KivRunDeferredNotificationsOnCurrentRunLoop();
    EXPECT_EQ(heard.names, status == 0 ? "x" : "");
    EXPECT_TRUE(status == 0 || status == -12726);
    return status == 0 ? test::Outcome::kSucceeded : test::Outcome::kOutOfMemory;
  });
  EXPECT_GE(requests, 2);  // the record and the timer
}

TEST(DeferredNotification, NullArgumentsAreRefused) {
  Heard heard;
  auto queue = makeQueue();
  auto toQueue = [&](PVNotificationCallback callback, BRWorkQueueRef to) {
    return KivDeferNotificationToDispatchQueue(callback, center(), &heard, "x"_br, nullptr, nullptr, to,
                                               nullptr);
  };
  EXPECT_EQ(toQueue(nullptr, nullptr), -12720);
  EXPECT_EQ(toQueue(hear, nullptr), -12724);
  EXPECT_EQ(deferToLoop(heard, "x"_br, nullptr), -12724);
  EXPECT_EQ(KivDispatchAsyncPostNotification(nullptr, "x"_br, nullptr, nullptr, queue.get(), 0), -12721);
  EXPECT_EQ(KivDispatchAsyncPostNotification(center(), nullptr, nullptr, nullptr, queue.get(), 0), -12721);
  EXPECT_EQ(KivDispatchAsyncPostNotification(center(), "x"_br, nullptr, nullptr, nullptr, 0), -12724);
  finish(queue);
}

TEST(DeferredNotification, RunLoopCallsInOrderAndUntilNoneIsLeft) {
  Heard heard;
  int more = 3;
  heard.then = [&] {
    if (more-- > 0) {
      EXPECT_EQ(deferToLoop(heard, "+"_br), 0);
    }
  };
  for (BRStringRef name : {"a"_br, "b"_br, "c"_br, "d"_br, "e"_br}) EXPECT_EQ(deferToLoop(heard, name), 0);
  EXPECT_EQ(heard.names, "");
  KivRunDeferredNotificationsOnCurrentRunLoop();
  EXPECT_EQ(heard.names, "abcde+++");
  KivRunDeferredNotificationsOnCurrentRunLoop();
  EXPECT_EQ(heard.names, "abcde+++");
  deferToLoop(heard, "f"_br);
  EXPECT_EQ(BRRunLoopRunInMode(kBRRunLoopDefaultMode, 0, false), kBRRunLoopFinished);
  EXPECT_EQ(heard.names, "abcde+++f");
}

TEST(DeferredNotification, RunningThemKeepsAStopForTheRunOutside) {
  Heard heard;
  for (BRStringRef name : {"a"_br, "b"_br}) deferToLoop(heard, name);
  heard.then = [] { BRRunLoopStop(BRRunLoopGetCurrent()); };
  KivRunDeferredNotificationsOnCurrentRunLoop();
  EXPECT_EQ(heard.names, "ab");
  EXPECT_EQ(BRRunLoopRunInMode(kBRRunLoopDefaultMode, 0, false), kBRRunLoopStopped);
  EXPECT_EQ(BRRunLoopRunInMode(kBRRunLoopDefaultMode, 0, false), kBRRunLoopFinished);
}

TEST(DeferredNotification, AsyncPostHoldsItsObjectAndPosts) {
  Heard heard;
  auto queue = makeQueue();
  auto object = makePayload(), payload = makePayload();
  PVNotificationCenterAddListener(center(), &heard, hear, nullptr, object.get());
  std::latch block(1);
  BRWorkQueueAsync(
      queue.get(), [](void* context) { static_cast<std::latch*>(context)->wait(); }, &block);
  EXPECT_EQ(
      KivDispatchAsyncPostNotification(center(), "async"_br, object.get(), payload.get(), queue.get(), 0), 0);
  EXPECT_EQ(KivDispatchAsyncPostNotification(center(), "bad"_br, object.get(), "text"_br, queue.get(), 0), 0);
  EXPECT_EQ(BRGetRetainCount(object.get()), 3u);
  EXPECT_EQ(BRGetRetainCount(payload.get()), 2u);
  const uint64_t before = KivGetErrorCount();
  block.count_down();
  finish(queue);
  EXPECT_EQ(heard.names, "async");
  EXPECT_EQ(heard.payload, payload.get());
  EXPECT_EQ(KivGetErrorCount(), before + 1);  // the payload that is no dictionary
  EXPECT_EQ(BRGetRetainCount(object.get()), 1u);
  PVNotificationCenterRemoveListener(center(), &heard, hear, nullptr, object.get());
}

TEST(DeferredNotificationThreads, CallsGoToTheLoopsThreadAndNowhereWhenItHasEnded) {
  Heard here, there;
  std::latch ready(1), deferred(1);
  BRRunLoopRef loop = nullptr;
  std::thread::id calledOn;
  there.then = [&] { calledOn = std::this_thread::get_id(); };
  test::FailingAllocator allocator;
  std::thread runner([&] {
    loop = BRRunLoopGetCurrent();
    BRRetain(loop);
    ready.count_down();
    deferred.wait();
    KivRunDeferredNotificationsOnCurrentRunLoop();
    EXPECT_EQ(calledOn, std::this_thread::get_id());
    deferToLoop(there, "never"_br, loop, allocator);
  });
  ready.wait();
  for (int i = 0; i < 100; ++i) EXPECT_EQ(deferToLoop(there, "t"_br, loop, allocator), 0);
  KivRunDeferredNotificationsOnCurrentRunLoop();
  EXPECT_EQ(there.names, "");
  deferred.count_down();
  runner.join();
  EXPECT_EQ(there.names, std::string(100, 't'));
  EXPECT_EQ(deferToLoop(there, "late"_br, loop, allocator), -12726);
  BRRelease(loop);
}

}  // namespace
