#include "tests/support/test.hpp"

namespace {

using namespace br::literals;
using Weak = br::Ref<const BRWeakReference>;

std::atomic<int> living;

struct Listener : BRObject {
  static constexpr const char* className = "Listener";
  Listener() { ++living; }
  ~Listener() {
    alive = 0;
    --living;
  }
  std::atomic<int> alive{4711};
};

using Strong = br::Ref<Listener>;

Strong listener() { return Strong::adopt(br::create<Listener>(nullptr, 0)); }
Weak weak(BRTypeRef object) { return Weak::adopt(BRWeakReferenceCreate(nullptr, object)); }
Strong upgrade(const Weak& reference) {
  return Strong::adopt(static_cast<Listener*>(const_cast<void*>(BRWeakReferenceCopyObject(reference.get()))));
}

TEST(WeakReference, AnswersWhileSomebodyElseHoldsTheObject) {
  Strong object = listener();
  Weak first = weak(object.get()), second = weak(object.get());
  EXPECT_EQ(BRGetRetainCount(object.get()), 1u);
  Strong held = upgrade(first);
  EXPECT_EQ(held.get(), object.get());
  object = nullptr;
  EXPECT_EQ(living, 1);
  EXPECT_TRUE(upgrade(second));
  held = nullptr;
  EXPECT_EQ(living, 0);
  EXPECT_FALSE(upgrade(first));
  EXPECT_FALSE(upgrade(second));
  EXPECT_EQ(BRWeakReferenceCreate(nullptr, nullptr), nullptr);
  EXPECT_EQ(BRWeakReferenceCopyObject(nullptr), nullptr);
}

TEST(WeakReference, ManyObjectsAndReferencesKeepApart) {
  constexpr int kObjects = 3000;
  std::vector<Strong> objects;
  std::vector<Weak> references;
  for (int i = 0; i < kObjects; ++i) {
    objects.push_back(listener());
    for (int copy = 0; copy < 3; ++copy) references.push_back(weak(objects[i].get()));
  }
  for (int i = 0; i < kObjects; i += 2) objects[i] = nullptr;
  for (int i = 0; i < kObjects; i += 3) references[3 * i] = nullptr;
  for (int i = 0; i < kObjects; ++i) EXPECT_EQ(upgrade(references[3 * i + 1]).get(), objects[i].get());
  objects.clear();
  for (int i = 0; i < kObjects; ++i) EXPECT_FALSE(upgrade(references[3 * i + 2]));
}

TEST(WeakReference, ImmortalObjectsAreNamedForEver) {
  for (BRTypeRef object : {BRTypeRef("text"_br), BRTypeRef(kBRNull), BRTypeRef(kBRAllocatorSystem)})
    EXPECT_EQ(BRWeakReferenceCopyObject(weak(object).get()), object);
}

TEST(WeakReference, MayNameAWeakReference) {
  Strong object = listener();
  Weak inner = weak(object.get()), outer = weak(inner.get());
  auto copy = Weak::adopt(static_cast<BRWeakReferenceRef>(BRWeakReferenceCopyObject(outer.get())));
  EXPECT_EQ(copy.get(), inner.get());
  copy = inner = nullptr;
  EXPECT_EQ(BRWeakReferenceCopyObject(outer.get()), nullptr);
}

// An object that looks at itself through weak references while it goes.
struct Dying : BRObject {
  static constexpr const char* className = "Dying";
  ~Dying() {
    EXPECT_EQ(BRWeakReferenceCopyObject(earlier.get()), nullptr);
    BRRetain(this);
    *later = weak(this);
    EXPECT_EQ(BRWeakReferenceCopyObject(later->get()), nullptr);
    BRRelease(this);
  }
  Weak earlier;
  Weak* later = nullptr;
};

TEST(WeakReference, FinalizerIsUnseenAndMakesNoneToItself) {
  for (bool hasEarlier : {true, false}) {
    Weak later;
    auto object = br::Ref<Dying>::adopt(br::create<Dying>(nullptr, 0));
    if (hasEarlier) object->earlier = weak(object.get());
    object->later = &later;
    object = nullptr;
    EXPECT_TRUE(later);
    EXPECT_EQ(BRWeakReferenceCopyObject(later.get()), nullptr);
  }
}

TEST(WeakReference, OutOfMemoryLeavesTheObjectAlone) {
  Strong object = listener();
  const int requests = test::walkAllocationFailures([&](BRAllocatorRef allocator) {
    Weak reference = Weak::adopt(BRWeakReferenceCreate(allocator, object.get()));
    return reference ? test::Outcome::kSucceeded : test::Outcome::kOutOfMemory;
  });
  EXPECT_EQ(requests, 1);
  EXPECT_EQ(BRGetRetainCount(object.get()), 1u);
}

// Each round: one thread drops the last reference while others upgrade, copy and drop weak ones.
TEST(WeakReferenceThreads, UpgradesRaceWithTheLastRelease) {
  constexpr int kRounds = 400, kReaders = 3;
  std::atomic<int> round{0}, ready{0}, upgraded{0};
  Strong object;
  Weak shared;
  std::vector<std::thread> readers;
  for (int t = 0; t < kReaders; ++t) {
    readers.emplace_back([&] {
      for (int r = 1; r <= kRounds; ++r) {
        while (round.load() < r) std::this_thread::yield();
        for (int i = 0; i < 20; ++i) {
          Strong held = upgrade(shared);
          if (!held) break;
          EXPECT_EQ(held->alive.load(), 4711);
          ++upgraded;
          Weak another = weak(held.get());
          held = nullptr;
          upgrade(another);
        }
        ++ready;
      }
    });
  }
  for (int r = 1; r <= kRounds; ++r) {
    object = listener();
    shared = weak(object.get());
    ready = 0;
    const int before = upgraded;
    round = r;
    // in odd rounds a reader has come before the last release, so that both outcomes are certain to be seen
    while (r % 2 && upgraded == before) std::this_thread::yield();
    object = nullptr;
    while (ready.load() < kReaders) std::this_thread::yield();
    EXPECT_FALSE(upgrade(shared));
    EXPECT_EQ(living, 0);
  }
  for (auto& reader : readers) reader.join();
  EXPECT_GT(upgraded, 0);
}

// Threads that each own objects and references, so that the shards' lists change from all sides.
TEST(WeakReferenceThreads, ShardsAreSharedSafely) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([] {
      std::vector<Strong> objects(16);
      std::vector<Weak> references(16);
      for (int i = 0; i < 4000; ++i) {
        const int at = i * 7 % 16;
        if (i % 3 == 0) {
          objects[at] = listener();
          references[at] = weak(objects[at].get());
        } else if (i % 3 == 1) {
          references[at] = nullptr;
        } else {
          objects[at] = nullptr;
          EXPECT_FALSE(upgrade(references[at]));
        }
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(living, 0);
}

}  // namespace
