#include <kiv/error.h>
#include <kiv/notification_center.h>

#include "tests/support/test.hpp"

namespace {

using namespace br::literals;

// A listener that counts its calls, and says where it ends.
struct Player : BRObject {
  static constexpr const char* className = "Player";
  ~Player() {
    if (ended) ended();
  }
  std::function<void()> ended;
  std::function<void()> called;
  std::atomic<int> calls{0};
};
using PlayerRef = br::Ref<Player>;

PlayerRef makePlayer(BRAllocatorRef allocator = nullptr) {
  return PlayerRef::adopt(br::create<Player>(allocator, 0));
}

PVNotificationCenterRef center() { return PVNotificationCenterGetDefaultLocalCenter(); }

void hear(PVNotificationCenterRef, void* listener, BRStringRef, const void*, BRDictionaryRef) {
  auto* player = static_cast<Player*>(listener);
  ++player->calls;
  if (player->called) player->called();
}
void hearToo(PVNotificationCenterRef, void* listener, BRStringRef, const void*, BRDictionaryRef) {
  static_cast<Player*>(listener)->calls += 100;
}

PVStatus add(BRTypeRef player, BRStringRef name, const void* object, uint32_t flags = 0,
             BRWorkQueueRef queue = nullptr) {
  return KivNotificationCenterAddWeakListener(center(), player, hear, name, object, flags, queue);
}
PVStatus drop(BRTypeRef player, BRStringRef name, const void* object) {
  return KivNotificationCenterRemoveWeakListener(center(), player, hear, name, object);
}
void post(BRStringRef name, const void* object) {
  EXPECT_EQ(PVNotificationCenterPostNotification(center(), name, object, nullptr, 0), 0);
}

TEST(WeakListener, IsCalledWhileItLivesAndNotKeptAlive) {
  int object = 0;
  bool ended = false;
  PlayerRef player = makePlayer();
  Player* address = player.get();
  player->ended = [&] { ended = true; };
  ASSERT_EQ(add(address, "weak"_br, &object), 0);
  EXPECT_EQ(BRGetRetainCount(address), 1u);
  post("weak"_br, &object);
  EXPECT_EQ(player->calls, 1);
  player = nullptr;
  EXPECT_TRUE(ended);
  post("weak"_br, &object);
  EXPECT_EQ(drop(address, "weak"_br, &object), 0);
}

TEST(WeakListener, TheSameTwiceIsRefusedAndOtherCallbacksAreOthers) {
  int object = 0;
  PlayerRef player = makePlayer();
  auto name =
      br::Ref<const BRString>::adopt(BRStringCreateWithCString(nullptr, "twice", kBRStringEncodingUTF8));
  ASSERT_EQ(add(player.get(), "twice"_br, &object), 0);
  const uint64_t before = KivGetErrorCount();
  EXPECT_EQ(add(player.get(), name.get(), &object), -12724);
  EXPECT_EQ(KivGetErrorCount(), before + 1);
  EXPECT_EQ(
      KivNotificationCenterAddWeakListener(center(), player.get(), hearToo, "twice"_br, &object, 0, nullptr),
      0);
  post("twice"_br, &object);
  EXPECT_EQ(player->calls, 101);
  EXPECT_EQ(drop(player.get(), name.get(), &object), 0);  // by text, and only its own callback
  EXPECT_EQ(drop(player.get(), name.get(), &object), 0);  // a missing one is no error
  post("twice"_br, &object);
  EXPECT_EQ(player->calls, 201);
  EXPECT_EQ(KivNotificationCenterRemoveWeakListener(center(), player.get(), hearToo, "twice"_br, &object), 0);
  EXPECT_EQ(add(player.get(), "twice"_br, &object), 0);
  EXPECT_EQ(drop(player.get(), "twice"_br, &object), 0);
}

TEST(WeakListener, NoNameIsNotTheNameThatReadsLikeIt) {
  int object = 0;
  auto player = makePlayer();
  ASSERT_EQ(add(player.get(), nullptr, &object), 0);
  EXPECT_EQ(drop(player.get(), "(null)"_br, &object), 0);
  post("any"_br, &object);
  EXPECT_EQ(player->calls, 1);
  ASSERT_EQ(add(player.get(), "(null)"_br, &object), 0);
  post("(null)"_br, &object);
  EXPECT_EQ(player->calls, 3);
  EXPECT_EQ(drop(player.get(), nullptr, &object), 0);
  EXPECT_EQ(drop(player.get(), "(null)"_br, &object), 0);
  post("(null)"_br, &object);
  EXPECT_EQ(player->calls, 3);
}

TEST(WeakListener, ArgumentsAreCheckedInOrderAfterTheKeyAndNothingIsLeftBehind) {
  int object = 0;
  PlayerRef player = makePlayer();
  auto status = [&](bool hasCenter, bool hasListener, bool hasCallback, BRStringRef name) {
    return KivNotificationCenterAddWeakListener(hasCenter ? center() : nullptr,
                                                hasListener ? player.get() : nullptr,
                                                hasCallback ? hear : nullptr, name, nullptr, 0, nullptr);
  };
  EXPECT_EQ(status(false, false, false, nullptr), -12721);
  EXPECT_EQ(status(true, false, false, nullptr), -12720);
  EXPECT_EQ(status(true, false, true, nullptr), -12723);
  EXPECT_EQ(status(true, true, true, nullptr), -12725);
  EXPECT_EQ(status(true, true, true, "checks"_br), 0);
  EXPECT_EQ(status(false, true, true, "checks"_br), -12724);
  EXPECT_EQ(KivNotificationCenterRemoveWeakListener(nullptr, nullptr, hear, nullptr, nullptr), -12721);
  EXPECT_EQ(KivNotificationCenterRemoveWeakListener(center(), nullptr, hear, nullptr, nullptr), -12723);
  // A listener's number is not taken for somebody's listener, nor removed as one.
  post("checks"_br, &object);
  EXPECT_EQ(drop(player.get(), "checks"_br, nullptr), 0);
  post("checks"_br, &object);
  EXPECT_EQ(player->calls, 1);
}

// An allocator with room for one object, so that the next has the address of the last.
alignas(16) char oneRoom[256];
BRAllocatorRef makeOneRoomAllocator() {
  BRAllocatorContext context{};
  context.allocate = [](size_t sizeBytes, void*) -> void* {
    return sizeBytes <= sizeof oneRoom ? oneRoom : nullptr;
  };
  return BRAllocatorCreate(nullptr, &context);
}

TEST(WeakListener, ANewListenerMayHaveTheAddressOfOneThatHasGone) {
  int object = 0;
  auto allocator = br::Ref<const BRAllocator>::adopt(makeOneRoomAllocator());
  PlayerRef player = makePlayer(allocator.get());
  Player* address = player.get();
  ASSERT_EQ(add(address, "reborn"_br, &object), 0);
  player = nullptr;
  player = makePlayer(allocator.get());
  ASSERT_EQ(player.get(), address);
  EXPECT_EQ(add(address, "reborn"_br, &object), 0);
  post("reborn"_br, &object);
  EXPECT_EQ(player->calls, 1);
  EXPECT_EQ(drop(address, "reborn"_br, &object), 0);
}

TEST(WeakListener, QueueCallsLaterWithListenerAndObjectHeldAsAsked) {
  auto queue = br::Ref<BRWorkQueue>::adopt(BRWorkQueueCreate(nullptr, "org.example.weak"));
  for (const bool retains : {false, true}) {
    PlayerRef object = makePlayer(), player = makePlayer();
    bool onQueue = false;
    std::latch block(1);
    player->called = [&] { onQueue = BRWorkQueueIsCurrent(queue.get()); };
    ASSERT_EQ(add(player.get(), "queued"_br, object.get(), retains ? kKivWeakListenerFlag_RetainObject : 0,
                  queue.get()),
              0);
    BRWorkQueueAsync(
        queue.get(), [](void* context) { static_cast<std::latch*>(context)->wait(); }, &block);
    post("queued"_br, object.get());
    EXPECT_EQ(player->calls, 0);
    EXPECT_EQ(BRGetRetainCount(player.get()), 2u);
    EXPECT_EQ(BRGetRetainCount(object.get()), retains ? 2u : 1u);
    EXPECT_EQ(drop(player.get(), "queued"_br, object.get()), 0);  // what waits is still called
    block.count_down();
    BRWorkQueueSync(
        queue.get(), [](void*) {}, nullptr);
    EXPECT_EQ(player->calls, 1);
    EXPECT_TRUE(onQueue);
    EXPECT_EQ(BRGetRetainCount(player.get()), 1u);
    EXPECT_EQ(BRGetRetainCount(object.get()), 1u);
  }
}

TEST(WeakListener, LastReleaseHappensWhereTheFlagSays) {
  for (const bool deferred : {false, true}) {
    int object = 0;
    std::latch ended(1);
    std::thread::id where;
    PlayerRef player = makePlayer();
    Player* address = player.get();
    player->ended = [&] {
      where = std::this_thread::get_id();
      drop(address, "last"_br, &object);  // a finalizer may remove its own registration
      ended.count_down();
    };
    player->called = [&] { player = nullptr; };  // only the delivery holds it now
    ASSERT_EQ(add(address, "last"_br, &object, deferred ? kKivWeakListenerFlag_DeferRelease : 0), 0);
    post("last"_br, &object);
    ended.wait();
    EXPECT_EQ(where != std::this_thread::get_id(), deferred);
  }
}

TEST(WeakListenerThreads, RemovalDoesNotWaitWhereThatIsAsked) {
  int object = 0;
  std::latch begun(1), removed(1);
  PlayerRef player = makePlayer();
  player->called = [&] {
    begun.count_down();
    removed.wait();
  };
  ASSERT_EQ(add(player.get(), "slow"_br, &object, kKivWeakListenerFlag_RemoveWithoutWaiting), 0);
  std::thread poster([&] { post("slow"_br, &object); });
  begun.wait();
  EXPECT_EQ(drop(player.get(), "slow"_br, &object), 0);
  removed.count_down();
  poster.join();
  post("slow"_br, &object);
  EXPECT_EQ(player->calls, 1);
}

TEST(ListenerLists, StopAtTheFirstFailure) {
  int object = 0;
  PlayerRef player = makePlayer();
  const KivNotificationListenerEntry entries[] = {
      {hear, "one"_br}, {hear, "two"_br}, {nullptr, "three"_br}, {hearToo, "four"_br}};
  auto postAll = [&] {
    player->calls = 0;
    for (auto& entry : entries) post(entry.name, &object);
    return player->calls.load();
  };
  Player* listener = player.get();
  EXPECT_EQ(KivNotificationCenterAddListeners(center(), listener, entries, 4, &object), -12720);
  EXPECT_EQ(postAll(), 2);
  EXPECT_EQ(KivNotificationCenterRemoveListeners(center(), listener, entries, 4, &object), 0);
  EXPECT_EQ(postAll(), 0);
  EXPECT_EQ(KivNotificationCenterAddWeakListeners(center(), listener, entries, 2, &object, 0, nullptr), 0);
  EXPECT_EQ(KivNotificationCenterAddWeakListeners(center(), listener, entries + 1, 3, &object, 0, nullptr),
            -12724);
  EXPECT_EQ(postAll(), 2);
  EXPECT_EQ(KivNotificationCenterRemoveWeakListeners(center(), listener, entries, 4, &object), 0);
  EXPECT_EQ(postAll(), 0);
  EXPECT_EQ(KivNotificationCenterAddListeners(center(), listener, nullptr, 0, &object), 0);
  EXPECT_EQ(KivNotificationCenterAddListeners(center(), listener, nullptr, 1, &object), -12724);
}

TEST(WeakListenerThreads, ListenersDieWhileOthersPost) {
  static int object;
  auto queue = br::Ref<BRWorkQueue>::adopt(BRWorkQueueCreate(nullptr, "org.example.dying"));
  PVNotificationCenterRegisterForBarrierSupport(center(), &object);
  std::atomic<bool> stop{false};
  std::vector<std::thread> posters;
  for (int t = 0; t < 2; ++t)
    posters.emplace_back([&] {
      while (!stop) post("dying"_br, &object);
    });
  for (int i = 0; i < 300; ++i) {
    PlayerRef player = makePlayer();
    Player* address = player.get();
    const uint32_t flags = i % 2 ? kKivWeakListenerFlag_DeferRelease : 0;
    ASSERT_EQ(add(address, "dying"_br, &object, flags, i % 3 ? nullptr : queue.get()), 0);
    if (i % 5 == 0) std::this_thread::yield();
    player = nullptr;
    if (i % 7 == 0) {
      EXPECT_EQ(PVNotificationCenterBarrier(center(), &object), 0);
    }
    if (i % 2) {  // the others are dropped when an address comes again
      EXPECT_EQ(drop(address, "dying"_br, &object), 0);
    }
  }
  stop = true;
  for (auto& thread : posters) thread.join();
  PVNotificationCenterUnregisterForBarrierSupport(center(), &object);
  BRWorkQueueSync(
      queue.get(), [](void*) {}, nullptr);
}

}  // namespace
