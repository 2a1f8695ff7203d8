#include "tests/support/test.hpp"

namespace {

using namespace br::literals;

BRNotificationCenterRef center() { return BRNotificationCenterGetLocalCenter(); }

// An observer that runs what it was given; removed at the end of its life.
struct Observer {
  using Action = std::function<void(BRStringRef name, const void* object)>;
  explicit Observer(Action given) : action(std::move(given)) {}
  ~Observer() { BRNotificationCenterRemoveEveryObserver(center(), this); }

  bool add(BRStringRef name, const void* object) {
    return BRNotificationCenterAddObserver(center(), this, called, name, object);
  }
  void remove(BRStringRef name, const void* object) {
    BRNotificationCenterRemoveObserver(center(), this, name, object);
  }
  static void called(BRNotificationCenterRef, void* observer, BRStringRef name, const void* object,
                     BRDictionaryRef) {
    static_cast<Observer*>(observer)->action(name, object);
  }
  Action action;
};

void post(BRStringRef name, const void* object) {
  BRNotificationCenterPostNotification(center(), name, object, nullptr);
}

TEST(NotificationCenter, NameAndObjectSelectAndNullMatchesAny) {
  int one = 0, two = 0;
  struct Case {
    BRStringRef name;
    const void* object;
    std::string heard;  // of (start, one), (start, two), (stop, one), (stop, null)
  } cases[] = {
      {"start"_br, &one, "1000"},   {"start"_br, nullptr, "1100"}, {nullptr, &one, "1010"},
      {"stop"_br, nullptr, "0011"}, {"other"_br, &one, "0000"},    {"star"_br, nullptr, "0000"},
  };
  for (auto& c : cases) {
    int calls = 0;
    Observer observer([&](BRStringRef, const void*) { ++calls; });
    ASSERT_TRUE(observer.add(c.name, c.object));
    std::string heard;
    auto tell = [&](BRStringRef name, const void* object) {
      calls = 0;
      post(name, object);
      heard += std::to_string(calls);
    };
    tell("start"_br, &one);
    tell("start"_br, &two);
    tell("stop"_br, &one);
    tell("stop"_br, nullptr);
    EXPECT_EQ(heard, c.heard);
    observer.remove(c.name, c.object);
    tell("start"_br, &one);
    EXPECT_EQ(heard.back(), '0');
  }
}

TEST(NotificationCenter, NamesCompareByText) {
  int object = 0, calls = 0;
  Observer observer([&](BRStringRef, const void*) { ++calls; });
  BRStringRef name = BRStringCreateWithCString(nullptr, "ended", kBRStringEncodingUTF8);
  BRStringRef same = BRStringCreateWithCString(nullptr, "ended", kBRStringEncodingUTF8);
  observer.add(name, &object);
  BRRelease(name);
  observer.add("ended"_br, &object);
  post(same, &object);
  post("ended"_br, &object);
  EXPECT_EQ(calls, 4);
  observer.remove(same, &object);
  post(same, &object);
  EXPECT_EQ(calls, 4);
  BRRelease(same);
}

TEST(NotificationCenter, CallsInOrderOfRegistrationAcrossKindsOfKeys) {
  int object = 0;
  std::string order;
  std::vector<std::unique_ptr<Observer>> observers;
  for (char letter = 'a'; letter < 'm'; ++letter) {
    observers.push_back(
        std::make_unique<Observer>([&order, letter](BRStringRef, const void*) { order += letter; }));
    const int kind = letter % 3;
    observers.back()->add(kind == 0 ? nullptr : "order"_br, kind == 1 ? nullptr : &object);
  }
  post("order"_br, &object);
  EXPECT_EQ(order, "abcdefghijkl");
  observers.erase(observers.begin() + 4);
  order.clear();
  post("order"_br, &object);
  EXPECT_EQ(order, "abcdfghijkl");
}

TEST(NotificationCenter, BadArgumentsAreRefused) {
  int object = 0;
  Observer observer([](BRStringRef, const void*) { FAIL(); });
  EXPECT_FALSE(observer.add(nullptr, nullptr));
  EXPECT_FALSE(BRNotificationCenterAddObserver(nullptr, &observer, Observer::called, "x"_br, nullptr));
  EXPECT_FALSE(BRNotificationCenterAddObserver(center(), nullptr, Observer::called, "x"_br, nullptr));
  EXPECT_FALSE(BRNotificationCenterAddObserver(center(), &observer, nullptr, "x"_br, nullptr));
  BRNotificationCenterRemoveObserver(center(), &observer, nullptr, nullptr);
  BRNotificationCenterPostNotification(nullptr, "x"_br, &object, nullptr);
  BRNotificationCenterPostNotification(center(), nullptr, &object, nullptr);
}

TEST(NotificationCenter, CallbacksMayAddRemoveAndPost) {
  int object = 0;
  std::string heard;
  Observer later([&](BRStringRef, const void*) { heard += "later "; });
  Observer removed([&](BRStringRef, const void*) { heard += "removed "; });
  Observer first([&](BRStringRef, const void*) {
    heard += "first ";
    first.remove("change"_br, &object);
    removed.remove("change"_br, &object);
    later.add("change"_br, &object);
    post("nested"_br, &object);
  });
  Observer last(
      [&](BRStringRef name, const void*) { heard += BREqual(name, "nested"_br) ? "nested " : "last "; });
  first.add("change"_br, &object);
  removed.add("change"_br, &object);
  last.add(nullptr, &object);
  post("change"_br, &object);
  EXPECT_EQ(heard, "first nested last ");
  heard.clear();
  post("change"_br, &object);
  EXPECT_EQ(heard, "last later ");
}

TEST(NotificationCenter, PostsNestDeeperThanAThreadsOwnFrames) {
  int object = 0, depth = 0, calls = 0;
  Observer observer([&](BRStringRef, const void*) {
    ++calls;
    if (++depth < 20) post("deep"_br, &object);
    --depth;
    if (depth == 5) observer.remove("deep"_br, &object);
  });
  observer.add("deep"_br, &object);
  post("deep"_br, &object);
  EXPECT_EQ(calls, 20);
  post("deep"_br, &object);
  EXPECT_EQ(calls, 20);
}

TEST(NotificationCenter, OneOfAThousandIsFoundAndAllCanGo) {
  std::vector<int> objects(1000);
  int calls = 0;
  const void* heard = nullptr;
  Observer observer([&](BRStringRef, const void* object) {
    ++calls;
    heard = object;
  });
  for (auto& object : objects) ASSERT_TRUE(observer.add("many"_br, &object));
  for (auto& object : objects) {
    post("many"_br, &object);
    ASSERT_EQ(heard, &object);
  }
  EXPECT_EQ(calls, 1000);
  BRNotificationCenterRemoveEveryObserver(center(), &observer);
  for (auto& object : objects) post("many"_br, &object);
  EXPECT_EQ(calls, 1000);
}

// Threads that post, come and go while others add and remove; each removal must be the end of it.
TEST(NotificationThreads, RemovedObserverIsNeverCalledAgain) {
  static int object;
  std::atomic<bool> stop{false};
  std::vector<std::thread> posters;
  for (int t = 0; t < 2; ++t)
    posters.emplace_back([&] {
      while (!stop)
        std::thread([] {
          for (int i = 0; i < 100; ++i) post("churn"_br, &object);
        }).join();
    });
  std::vector<std::thread> changers;
  std::atomic<uint64_t> calls{0};
  for (int t = 0; t < 2; ++t)
    changers.emplace_back([&, t] {
      for (int i = 0; i < 400; ++i) {
        // The observer's memory goes with it: a late call is a use after free.
        auto observer = std::make_unique<Observer>([&calls](BRStringRef, const void*) { ++calls; });
        observer->add(i % 2 ? "churn"_br : nullptr, t ? &object : nullptr);
        observer->add("churn"_br, &object);
        if (i % 3 == 0) post("churn"_br, &object);
        observer->remove("churn"_br, &object);
        observer.reset();
      }
    });
  for (auto& thread : changers) thread.join();
  stop = true;
  for (auto& thread : posters) thread.join();
  EXPECT_GT(calls, 0u);
}

// An observer whose call lasts until it is released.
struct Slow {
  void call() {
    entered.count_down();
    release.wait();
    returned = true;
  }
  // The action must not return before the call, which is released meanwhile.
  void expectToWait(const std::function<void()>& action) {
    EXPECT_FALSE(returned);
    std::thread releaser([&] { release.count_down(); });
    action();
    EXPECT_TRUE(returned);
    releaser.join();
  }

  std::latch entered{1}, release{1};
  std::atomic<bool> returned{false};
  Observer observer{[this](BRStringRef, const void*) { call(); }};
};

TEST(NotificationThreads, RemovalWaitsForTheCallInProgressButNotForOtherListeners) {
  int object = 0;
  Slow slow;
  Observer other([](BRStringRef, const void*) {});
  slow.observer.add("slow"_br, &object);
  other.add("slow"_br, &object);
  std::thread poster([&] { post("slow"_br, &object); });
  slow.entered.wait();
  other.remove("slow"_br, &object);  // not being called: does not wait
  slow.expectToWait([&] { slow.observer.remove("slow"_br, &object); });
  poster.join();
}

TEST(NotificationThreads, RemovalInsideACallbackDoesNotWait) {
  int object = 0;
  Slow slow;
  Observer remover([&](BRStringRef, const void*) {
    slow.observer.remove("slow"_br, &object);
    EXPECT_FALSE(slow.returned);
  });
  slow.observer.add("slow"_br, &object);
  remover.add("remove"_br, &object);
  std::thread poster([&] { post("slow"_br, &object); });
  slow.entered.wait();
  post("remove"_br, &object);
  slow.release.count_down();
  poster.join();
}

// The innermost of many nested posts blocks, in a frame that is not of the thread's record.
TEST(NotificationThreads, RemovalAndWaitSeeDeeplyNestedDeliveries) {
  for (const bool removes : {true, false}) {
    int objects[12];
    size_t depth = 0;
    Slow slow;
    Observer nested([&](BRStringRef, const void*) {
      if (++depth < std::size(objects))
        post("nest"_br, &objects[depth]);
      else
        slow.call();
    });
    for (auto& object : objects) nested.add("nest"_br, &object);
    std::thread poster([&] { post("nest"_br, &objects[0]); });
    slow.entered.wait();
    Observer changes([](BRStringRef, const void*) {});
    changes.add("nest"_br, nullptr);
    slow.expectToWait([&] {
      if (removes)
        nested.remove("nest"_br, &objects[std::size(objects) - 1]);
      else
        BRNotificationCenterWaitForDeliveries(center(), &objects[std::size(objects) - 2]);
    });
    poster.join();
  }
}

TEST(NotificationThreads, CallbacksThatRemoveEachOtherDoNotWait) {
  int one = 0, two = 0;
  for (int round = 0; round < 50; ++round) {
    std::latch both(2);
    Observer *a = nullptr, *b = nullptr;
    Observer first([&](BRStringRef, const void*) {
      both.arrive_and_wait();
      b->remove("mutual"_br, &two);
    });
    Observer second([&](BRStringRef, const void*) {
      both.arrive_and_wait();
      a->remove("mutual"_br, &one);
    });
    a = &first;
    b = &second;
    first.add("mutual"_br, &one);
    second.add("mutual"_br, &two);
    std::thread thread([&] { post("mutual"_br, &one); });
    post("mutual"_br, &two);
    thread.join();
  }
}

TEST(NotificationThreads, WaitCoversDeliveriesInProgressAndPassesMutualWaits) {
  int object = 0, unrelated = 0;
  Slow slow;
  slow.observer.add("slow"_br, &object);
  std::thread poster([&] { post("slow"_br, &object); });
  slow.entered.wait();
  BRNotificationCenterWaitForDeliveries(center(), &unrelated);
  slow.expectToWait([&] { BRNotificationCenterWaitForDeliveries(center(), &object); });
  poster.join();

  for (int round = 0; round < 50; ++round) {
    std::latch both(2);
    Observer waiter([&](BRStringRef, const void*) {
      both.arrive_and_wait();
      BRNotificationCenterWaitForDeliveries(center(), &object);
      post("nested"_br, &object);
    });
    waiter.add("wait"_br, &object);
    std::thread thread([&] { post("wait"_br, &object); });
    post("wait"_br, &object);
    thread.join();
  }
}

}  // namespace
