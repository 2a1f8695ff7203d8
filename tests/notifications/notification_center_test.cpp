#include <kiv/error.h>
#include <pevrin/notification_center.h>

#include "tests/support/test.hpp"

namespace {

using namespace br::literals;

PVNotificationCenterRef center() { return PVNotificationCenterGetDefaultLocalCenter(); }

void call(PVNotificationCenterRef, void* listener, BRStringRef, const void*, BRDictionaryRef) {
  (*static_cast<std::function<void()>*>(listener))();
}

using Listener = std::function<void()>;

PVStatus post(BRStringRef name, const void* object) {
  return PVNotificationCenterPostNotification(center(), name, object, nullptr, 0);
}

// The status, which must have been signalled exactly once when it is a failure.
PVStatus signalledOnce(const std::function<PVStatus()>& action) {
  const uint64_t before = KivGetErrorCount();
  const PVStatus status = action();
  EXPECT_EQ(KivGetErrorCount() - before, status == 0 ? 0u : 1u);
  return status;
}

TEST(NotificationCenterLayer, DefaultCenterIsOneObject) {
  auto created = br::Ref<BRNotificationCenter>::adopt(PVNotificationCenterCreate());
  EXPECT_EQ(created.get(), center());
  EXPECT_EQ(BRGetTypeID(center()), PVNotificationCenterGetTypeID());
}

TEST(NotificationCenterLayer, ArgumentsAreCheckedInOrder) {
  Listener listener = [] { FAIL(); };
  int object = 0;
  struct Case {
    bool center, callback, listener, name, object;
    PVStatus added, removed;
  } cases[] = {
      {false, false, false, false, false, -12721, -12721},
      {true, false, false, false, false, -12720, -12723},
      {true, true, false, false, false, -12723, -12723},
      {true, true, true, false, false, -12725, 0},
      {true, true, true, true, false, 0, 0},
      {true, true, true, false, true, 0, 0},
      {true, false, true, false, false, -12720, 0},
  };
  for (auto& c : cases) {
    auto change = [&](auto function) {
      return signalledOnce([&] {
        return function(c.center ? center() : nullptr, c.listener ? &listener : nullptr,
                        c.callback ? call : nullptr, c.name ? "checked"_br : nullptr,
                        c.object ? &object : nullptr);
      });
    };
    EXPECT_EQ(change(PVNotificationCenterAddListener), c.added);
    EXPECT_EQ(change(PVNotificationCenterRemoveListener), c.removed);
  }
  EXPECT_EQ(post("checked"_br, &object), 0);
}

TEST(NotificationCenterLayer, PostChecksItsArgumentsAndANullObjectIsNotSignalled) {
  int object = 0, calls = 0;
  Listener listener = [&] { ++calls; };
  PVNotificationCenterAddListener(center(), &listener, call, "post"_br, nullptr);
  auto postWith = [&](PVNotificationCenterRef to, BRStringRef name, const void* about, BRTypeRef payload) {
    return signalledOnce([&] { return PVNotificationCenterPostNotification(to, name, about, payload, 7); });
  };
  EXPECT_EQ(postWith(nullptr, nullptr, nullptr, nullptr), -12721);
  EXPECT_EQ(postWith(center(), nullptr, nullptr, nullptr), -12722);
  EXPECT_EQ(postWith(center(), "post"_br, &object, "no dictionary"_br), -12724);
  const uint64_t before = KivGetErrorCount();
  EXPECT_EQ(post("post"_br, nullptr), -12724);
  EXPECT_EQ(KivGetErrorCount(), before);
  EXPECT_EQ(calls, 0);
  EXPECT_EQ(postWith(center(), "post"_br, &object, nullptr), 0);
  EXPECT_EQ(calls, 1);
  PVNotificationCenterRemoveListener(center(), &listener, nullptr, "post"_br, nullptr);
}

TEST(NotificationCenterLayer, BarrierSupportIsRegisteredOnceAndNeeded) {
  int object = 0;
  auto status = [&](auto function, PVNotificationCenterRef to, const void* about) {
    return signalledOnce([&] { return function(to, about); });
  };
  EXPECT_EQ(status(PVNotificationCenterBarrier, center(), &object), -12724);
  EXPECT_EQ(status(PVNotificationCenterUnregisterForBarrierSupport, center(), &object), -12724);
  EXPECT_EQ(status(PVNotificationCenterRegisterForBarrierSupport, center(), nullptr), -12724);
  EXPECT_EQ(status(PVNotificationCenterRegisterForBarrierSupport, nullptr, &object), -12721);
  EXPECT_EQ(status(PVNotificationCenterRegisterForBarrierSupport, center(), &object), 0);
  EXPECT_EQ(status(PVNotificationCenterRegisterForBarrierSupport, center(), &object), -12724);
  EXPECT_EQ(status(PVNotificationCenterBarrier, center(), &object), 0);
  EXPECT_EQ(status(PVNotificationCenterBarrier, nullptr, &object), -12721);
  EXPECT_EQ(status(PVNotificationCenterUnregisterForBarrierSupport, nullptr, &object), -12721);
  EXPECT_EQ(status(PVNotificationCenterUnregisterForBarrierSupport, center(), &object), 0);
  EXPECT_EQ(status(PVNotificationCenterBarrier, center(), &object), -12724);
}

TEST(NotificationCenterLayerThreads, BarrierWaitsForDeliveriesOnOtherThreadsOnly) {
  static int object;
  ASSERT_EQ(PVNotificationCenterRegisterForBarrierSupport(center(), &object), 0);
  std::latch entered(1), release(1);
  std::atomic<bool> finished{false};
  Listener slow = [&] {
    // From inside a delivery of the same object, nested and after its end, a barrier goes through.
    EXPECT_EQ(PVNotificationCenterBarrier(center(), &object), 0);
    post("nested"_br, &object);
    EXPECT_EQ(PVNotificationCenterBarrier(center(), &object), 0);
    entered.count_down();
    release.wait();
    finished = true;
  };
  Listener nested = [&] { EXPECT_EQ(PVNotificationCenterBarrier(center(), &object), 0); };
  PVNotificationCenterAddListener(center(), &slow, call, "slow"_br, &object);
  PVNotificationCenterAddListener(center(), &nested, call, "nested"_br, &object);
  std::thread poster([&] { post("slow"_br, &object); });
  entered.wait();
  post("nested"_br, nullptr);
  std::thread releaser([&] { release.count_down(); });
  EXPECT_EQ(PVNotificationCenterBarrier(center(), &object), 0);
  EXPECT_TRUE(finished);
  releaser.join();
  poster.join();
  PVNotificationCenterRemoveListener(center(), &slow, call, "slow"_br, &object);
  PVNotificationCenterRemoveListener(center(), &nested, call, "nested"_br, &object);

  Listener last = [&] {
    EXPECT_EQ(PVNotificationCenterUnregisterForBarrierSupport(center(), &object), 0);
    EXPECT_EQ(PVNotificationCenterBarrier(center(), &object), -12724);
  };
  PVNotificationCenterAddListener(center(), &last, call, "last"_br, &object);
  EXPECT_EQ(post("last"_br, &object), 0);
  PVNotificationCenterRemoveListener(center(), &last, call, "last"_br, &object);
}

}  // namespace
