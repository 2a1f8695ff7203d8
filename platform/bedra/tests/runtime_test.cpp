#include "tests/support/test.hpp"

namespace {

using namespace br::literals;

std::atomic<int> finalized;

struct Reel : BRObject {
  static constexpr const char* className = "Reel";
  explicit Reel(int frames) : frames(frames) {}
  ~Reel() {
    BRRetain(this);  // a balanced pair inside a finalizer is harmless
    BRRelease(this);
    ++finalized;
  }
  bool equals(const Reel& other) const { return frames == other.frames; }
  BRHashCode hash() const { return static_cast<BRHashCode>(frames); }
  int frames;
};

TEST(Runtime, ObjectLivesUntilItsLastReleaseAndZeroesExtraBytes) {
  finalized = 0;
  Reel* reel = br::create<Reel>(nullptr, 64, 24);
  for (int i = 0; i < 64; ++i) EXPECT_EQ(br::extra<char>(reel)[i], 0);
  EXPECT_EQ(BRGetTypeID(reel), br::typeID<Reel>());
  EXPECT_STREQ(BRTypeGetName(BRGetTypeID(reel)), "Reel");
  EXPECT_EQ(BRRetain(reel), reel);
  EXPECT_EQ(BRGetRetainCount(reel), 2u);
  BRRelease(reel);
  EXPECT_EQ(finalized, 0);
  BRRelease(reel);
  EXPECT_EQ(finalized, 1);
}

TEST(Runtime, EqualityAndHashFollowTheClass) {
  auto a = br::Ref<Reel>::adopt(br::create<Reel>(nullptr, 0, 24));
  auto b = br::Ref<Reel>::adopt(br::create<Reel>(nullptr, 0, 24));
  auto c = br::Ref<Reel>::adopt(br::create<Reel>(nullptr, 0, 25));
  EXPECT_TRUE(BREqual(a.get(), b.get()));
  EXPECT_EQ(BRHash(a.get()), BRHash(b.get()));
  EXPECT_FALSE(BREqual(a.get(), c.get()));
  EXPECT_FALSE(BREqual(a.get(), "24"_br));
  EXPECT_FALSE(BREqual(a.get(), nullptr));
  EXPECT_TRUE(BREqual(nullptr, nullptr));
}

TEST(Runtime, ConstantObjectsIgnoreRetainAndRelease) {
  for (BRTypeRef object : {BRTypeRef("text"_br), BRTypeRef(kBRBooleanTrue), BRTypeRef(kBRNull),
                           BRTypeRef(kBRAllocatorSystem), BRTypeRef(kBRAllocatorNull)}) {
    BRRelease(object);
    BRRetain(object);
    EXPECT_EQ(BRGetRetainCount(object), UINT32_MAX);
  }
}

TEST(Runtime, MalformedClassesAndUnknownTypesAreRefused) {
  BRRuntimeClass cls{};
  EXPECT_EQ(BRRuntimeRegisterClass(nullptr), 0u);
  EXPECT_EQ(BRRuntimeRegisterClass(&cls), 0u);
  cls.className = "Later";
  cls.version = 1;
  EXPECT_EQ(BRRuntimeRegisterClass(&cls), 0u);
  EXPECT_EQ(BRRuntimeCreateInstance(nullptr, 0, 0), nullptr);
  EXPECT_EQ(BRRuntimeCreateInstance(nullptr, 4095, 0), nullptr);
  EXPECT_EQ(BRRuntimeCreateInstance(nullptr, br::typeID<Reel>(), SIZE_MAX - 8), nullptr);
}

struct Ledger {
  int live = 0, retained = 0, released = 0;
};

BRAllocatorContext ledgerContext(Ledger* ledger) {
  BRAllocatorContext context{};
  context.info = ledger;
  context.retain = [](const void* info) {
    ++static_cast<Ledger*>(const_cast<void*>(info))->retained;
    return info;
  };
  context.release = [](const void* info) { ++static_cast<Ledger*>(const_cast<void*>(info))->released; };
  context.allocate = [](size_t size, void* info) {
    ++static_cast<Ledger*>(info)->live;
    return malloc(size);
  };
  context.deallocate = [](void* block, void* info) {
    --static_cast<Ledger*>(info)->live;
    free(block);
  };
  return context;
}

TEST(Allocator, ObjectRemembersItsAllocatorAndKeepsItAlive) {
  Ledger ledger;
  BRAllocatorContext context = ledgerContext(&ledger);
  BRAllocatorRef allocator = BRAllocatorCreate(nullptr, &context);
  Reel* reel = br::create<Reel>(allocator, 0, 1);
  EXPECT_EQ(BRGetAllocator(reel), allocator);
  BRRelease(allocator);
  EXPECT_EQ(ledger.live, 1);
  EXPECT_EQ(ledger.released, 0);
  BRRelease(reel);
  EXPECT_EQ(ledger.live, 0);
  EXPECT_EQ(ledger.retained, 1);
  EXPECT_EQ(ledger.released, 1);
}

TEST(Allocator, BuiltInAllocatorsAndBadContexts) {
  EXPECT_EQ(BRAllocatorAllocate(kBRAllocatorNull, 16), nullptr);
  int onStack = 0;
  BRAllocatorDeallocate(kBRAllocatorNull, &onStack);
  EXPECT_EQ(br::create<Reel>(kBRAllocatorNull, 0, 1), nullptr);
  void* block = BRAllocatorReallocate(nullptr, nullptr, 16);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % 16, 0u);
  EXPECT_EQ(BRAllocatorReallocate(nullptr, block, 0), nullptr);
  BRAllocatorContext context{};
  EXPECT_EQ(BRAllocatorCreate(nullptr, &context), nullptr);
  EXPECT_EQ(BRAllocatorCreate(nullptr, nullptr), nullptr);
}

TEST(RuntimeThreads, RetainAndReleaseFromManyThreadsLoseNothing) {
  finalized = 0;
  Reel* reel = br::create<Reel>(nullptr, 0, 1);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    BRRetain(reel);
    threads.emplace_back([reel] {
      for (int i = 0; i < 20000; ++i) {
        BRRetain(reel);
        BRRelease(reel);
      }
      BRRelease(reel);
    });
  }
  BRRelease(reel);
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(finalized, 1);
}

}  // namespace
