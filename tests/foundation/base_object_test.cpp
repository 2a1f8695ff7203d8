#include <kiv/base_object.h>
#include <kiv/error.h>
#include <pevrin/notification_center.h>
#include <cerrno>

#include "tests/support/test.hpp"

namespace {

using namespace br::literals;
using Object = br::Ref<PVBaseObject>;

struct Reel {
  int32_t frames;
  BRStringRef title;
};
int finalized = 0;

Reel* reelOf(PVBaseObjectRef object) { return static_cast<Reel*>(PVBaseObjectGetDerivedStorage(object)); }

const PVBaseClass kReelBase = [] {
  PVBaseClass base{};
  base.version = 1;
  base.derivedStorageSize = sizeof(Reel);
  base.equal = [](PVBaseObjectRef a, PVBaseObjectRef b) { return reelOf(a)->frames == reelOf(b)->frames; };
  base.finalize = [](PVBaseObjectRef object) {
    EXPECT_NE(PVBaseObjectGetVTable(object), nullptr);
    ++finalized;
  };
  base.copyDebugDescription = [](PVBaseObjectRef object) {
    return reelOf(object)->frames ? BRStringCreateWithFormat(nullptr, "%d frames", reelOf(object)->frames)
                                  : nullptr;
  };
  base.copyProperty = [](PVBaseObjectRef object, BRStringRef key, BRAllocatorRef,
                         void* valueOut) -> PVStatus {
    if (!BREqual(key, "title"_br)) return kPVBaseObjectError_ValueNotAvailable;
    *static_cast<BRTypeRef*>(valueOut) = BRRetain(reelOf(object)->title);
    return 0;
  };
  base.setProperty = [](PVBaseObjectRef object, BRStringRef, BRTypeRef value) -> PVStatus {
    reelOf(object)->title = static_cast<BRStringRef>(value);
    return 0;
  };
  return base;
}();
const PVVTable kReelVTable{nullptr, &kReelBase};
const PVVTable kOtherVTable{nullptr, &kReelBase};

PVBaseClassID registered(PVBaseClassID parent, const PVClassDescription* description, uint32_t flags) {
  PVBaseClassID classID = nullptr;
  EXPECT_EQ(KivBaseClassRegisterClass(description, parent, flags, &classID), 0);
  return classID;
}

const PVClassDescription kReelDescription{0, "Reel", nullptr, [](PVBaseObjectRef, BRDictionaryRef) {
                                            return BRStringCreateWithFormat(nullptr, "a reel");
                                          }};
const PVClassDescription kPlainDescription{0, "Plain", nullptr, nullptr};

// One chain: root > abstract > reel (runtime type) > longReel; beside it the class `plain` with a type of its
// own.
struct Classes {
  PVBaseClassID abstract = registered(kKivBaseClassID, &kPlainDescription, 0);
  PVBaseClassID reel = registered(abstract, &kReelDescription, kKivBaseClassFlag_OwnRuntimeType);
  PVBaseClassID longReel = registered(reel, &kPlainDescription, 0);
  PVBaseClassID plain = registered(kKivBaseClassID, &kPlainDescription, kKivBaseClassFlag_OwnRuntimeType);
};
const Classes& classes() {
  static const Classes all;
  return all;
}

Object makeReel(int32_t frames, const PVVTable* vtable = &kReelVTable,
                PVBaseClassID classID = classes().reel) {
  Object object;
  EXPECT_EQ(PVDerivedObjectCreate(nullptr, vtable, classID, object.out()), 0);
  reelOf(object.get())->frames = frames;
  return object;
}

TEST(BaseObject, RegistrationRefusesWhatHasNoPlaceInAChain) {
  PVBaseClassID out = classes().plain;
  const PVClassDescription nameless{0, nullptr, nullptr, nullptr};
  struct Case {
    const char* name;
    const PVClassDescription* description;
    PVBaseClassID parent;
    uint32_t flags;
    PVStatus expected;
  } const cases[] = {
      {"no description", nullptr, kKivBaseClassID, 0, kPVBaseObjectError_ParamErr},
      {"no parent", &kPlainDescription, nullptr, 0, kPVBaseObjectError_ParamErr},
      {"second type below the first", &kPlainDescription, classes().reel, 1, kPVBaseObjectError_ParamErr},
      {"second type far below the first", &kPlainDescription, classes().longReel, 1,
       kPVBaseObjectError_ParamErr},
      {"type without name", &nameless, kKivBaseClassID, 1, -1},
  };
  for (const Case& c : cases) {
    const uint64_t errors = KivGetErrorCount();
    EXPECT_EQ(KivBaseClassRegisterClass(c.description, c.parent, c.flags, &out), c.expected) << c.name;
    EXPECT_EQ(KivGetErrorCount(), errors + 1) << c.name;
    EXPECT_EQ(out, classes().plain) << c.name;
  }
  EXPECT_EQ(KivBaseClassRegisterClass(&kPlainDescription, kKivBaseClassID, 0, nullptr),
            kPVBaseObjectError_ParamErr);
}

TEST(BaseObject, RuntimeTypeIsThatOfTheNearestAncestor) {
  EXPECT_STREQ(BRTypeGetName(PVBaseClassGetBRTypeID(classes().reel)), "Reel");
  EXPECT_EQ(PVBaseClassGetBRTypeID(classes().longReel), PVBaseClassGetBRTypeID(classes().reel));
  EXPECT_EQ(PVBaseClassGetBRTypeID(classes().abstract), 0u);
  EXPECT_EQ(PVBaseClassGetBRTypeID(nullptr), 0u);
  EXPECT_EQ(KivBaseGetClassID(), kKivBaseClassID);
}

TEST(BaseObject, CreationChecksItsArgumentsInOrder) {
  PVBaseClass future = kReelBase, zero = kReelBase, huge = kReelBase;
  future.version = 3;
  zero.version = 0;
  huge.derivedStorageSize = SIZE_MAX - 8;
  const PVVTable futureTable{&future, &future}, zeroTable{nullptr, &zero}, hugeTable{nullptr, &huge};
  const PVVTable reservedTable{&future, &kReelBase};
  struct Case {
    const char* name;
    const PVVTable* vtable;
    PVBaseClassID classID;
    PVStatus expected;
  } const cases[] = {
      {"no VTable", nullptr, classes().reel, kPVBaseObjectError_ParamErr},
      {"version 3 before the reserved word", &futureTable, nullptr, kPVBaseObjectError_UnsupportedVersion},
      {"version 0", &zeroTable, classes().reel, kPVBaseObjectError_UnsupportedVersion},
      {"reserved word", &reservedTable, classes().reel, kPVBaseObjectError_ParamErr},
      {"no class", &kReelVTable, nullptr, kPVBaseObjectError_ParamErr},
      {"no runtime type", &kReelVTable, classes().abstract, kPVBaseObjectError_ParamErr},
      {"more storage than there is", &hugeTable, classes().reel, -ENOMEM},
  };
  for (const Case& c : cases) {
    PVBaseObjectRef object = reinterpret_cast<PVBaseObjectRef>(1);
    const uint64_t errors = KivGetErrorCount();
    EXPECT_EQ(PVDerivedObjectCreate(nullptr, c.vtable, c.classID, &object), c.expected) << c.name;
    EXPECT_EQ(object, nullptr) << c.name;
    EXPECT_EQ(KivGetErrorCount(), errors + 1) << c.name;
  }
  EXPECT_EQ(PVDerivedObjectCreate(nullptr, &kReelVTable, classes().reel, nullptr),
            kPVBaseObjectError_ParamErr);
}

TEST(BaseObject, StorageIsZeroedAndFinalizedOnce) {
  finalized = 0;
  test::walkAllocationFailures([](BRAllocatorRef allocator) {
    Object object;
    const PVStatus status = PVDerivedObjectCreate(allocator, &kReelVTable, classes().longReel, object.out());
    if (status) {
      EXPECT_EQ(status, -ENOMEM);
      return test::Outcome::kOutOfMemory;
    }
    EXPECT_EQ(reelOf(object.get())->frames, 0);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(reelOf(object.get())) % 16, 0u);
    EXPECT_EQ(KivBaseObjectGetClassID(object.get()), classes().longReel);
    EXPECT_EQ(KivBaseObjectGetVTable(object.get()), &kReelVTable);
    return test::Outcome::kSucceeded;
  });
  EXPECT_EQ(finalized, 1);
  EXPECT_EQ(PVBaseObjectGetVTable(nullptr), nullptr);
  EXPECT_EQ(PVBaseObjectGetDerivedStorage(nullptr), nullptr);
}

TEST(BaseObject, EqualityNeedsOneVTableAndTheClassToAgree) {
  PVBaseClass silent = kReelBase;
  silent.equal = nullptr;
  const PVVTable silentTable{nullptr, &silent};
  Object a = makeReel(24), b = makeReel(24), c = makeReel(25), other = makeReel(24, &kOtherVTable);
  EXPECT_TRUE(BREqual(a.get(), a.get()));
  EXPECT_TRUE(BREqual(a.get(), b.get()));
  EXPECT_FALSE(BREqual(a.get(), c.get()));
  EXPECT_FALSE(BREqual(a.get(), other.get()));
  EXPECT_FALSE(BREqual(a.get(), nullptr));
  Object d = makeReel(24, &silentTable), e = makeReel(24, &silentTable);
  EXPECT_FALSE(BREqual(d.get(), e.get()));
  EXPECT_TRUE(BREqual(d.get(), d.get()));
}

TEST(BaseObject, MembershipFollowsTheChain) {
  Object reel = makeReel(1), longReel = makeReel(1, &kReelVTable, classes().longReel);
  struct Case {
    PVBaseObjectRef object;
    PVBaseClassID classID;
    bool expected;
  } const cases[] = {
      {reel.get(), classes().reel, true},
      {reel.get(), classes().abstract, true},
      {reel.get(), PVBaseGetClassID(), true},
      {reel.get(), classes().longReel, false},
      {longReel.get(), classes().longReel, true},
      {longReel.get(), classes().reel, true},
      {longReel.get(), classes().abstract, true},
      {reel.get(), classes().plain, false},
      {reel.get(), nullptr, false},
  };
  for (const Case& c : cases) EXPECT_EQ(KivBaseObjectIsMemberOfClass(c.object, c.classID), c.expected);
}

TEST(BaseObject, PropertiesGoThroughTheSlots) {
  PVBaseClass bare{};
  bare.version = 1;
  bare.derivedStorageSize = sizeof(Reel);
  const PVVTable bareTable{nullptr, &bare};
  Object reel = makeReel(1), plain = makeReel(0, &bareTable);
  BRStringRef title = nullptr;
  EXPECT_EQ(KivBaseObjectSetProperty(reel.get(), "title"_br, "One"_br), 0);
  EXPECT_EQ(KivBaseObjectCopyProperty(reel.get(), "title"_br, nullptr, &title), 0);
  EXPECT_EQ(title, "One"_br);
  EXPECT_EQ(KivBaseObjectCopyProperty(reel.get(), "length"_br, nullptr, &title),
            kPVBaseObjectError_ValueNotAvailable);
  const uint64_t errors = KivGetErrorCount();
  EXPECT_EQ(KivBaseObjectCopyProperty(plain.get(), "title"_br, nullptr, &title),
            kPVBaseObjectError_ValueNotAvailable);
  EXPECT_EQ(KivBaseObjectSetProperty(plain.get(), "title"_br, nullptr), kPVBaseObjectError_ValueNotAvailable);
  EXPECT_EQ(KivBaseObjectSetProperty(nullptr, "title"_br, nullptr), kPVBaseObjectError_ParamErr);
  EXPECT_EQ(KivBaseObjectSetProperty(reel.get(), nullptr, nullptr), kPVBaseObjectError_ParamErr);
  EXPECT_EQ(KivBaseObjectCopyProperty(nullptr, "title"_br, nullptr, &title), kPVBaseObjectError_ParamErr);
  EXPECT_EQ(KivBaseObjectCopyProperty(reel.get(), nullptr, nullptr, &title), kPVBaseObjectError_ParamErr);
  EXPECT_EQ(KivBaseObjectCopyProperty(reel.get(), "title"_br, nullptr, nullptr), kPVBaseObjectError_ParamErr);
  EXPECT_EQ(KivGetErrorCount(), errors + 7);
  EXPECT_EQ(title, "One"_br);
}

std::string textOf(BRStringRef string) {
  auto owned = br::Ref<const BRString>::adopt(string);
  return BRStringGetUTF8(string);
}

TEST(BaseObject, Descriptions) {
  test::FailingAllocator allocator;
  Object reel;
  ASSERT_EQ(PVDerivedObjectCreate(allocator, &kReelVTable, classes().longReel, reel.out()), 0);
  char expected[200];
  std::snprintf(expected, sizeof expected,
                "<KivBaseObject: instance<%p> storage<%p> class<%p> allocator<%p>>{",
                static_cast<void*>(reel.get()), static_cast<void*>(reelOf(reel.get())),
                static_cast<const void*>(&kReelVTable),
                static_cast<const void*>(static_cast<BRAllocatorRef>(allocator)));
  EXPECT_EQ(textOf(BRCopyDebugDescription(reel.get())), std::string(expected) + "}");
  reelOf(reel.get())->frames = 24;
  EXPECT_EQ(textOf(BRCopyDebugDescription(reel.get())), std::string(expected) + "\n24 frames\n}");
  EXPECT_EQ(textOf(BRCopyDescription(reel.get())), "a reel");
  Object plain = makeReel(0, &kReelVTable, classes().plain);
  EXPECT_EQ(textOf(BRCopyDescription(plain.get())).rfind("<Plain 0x", 0), 0u);
}

TEST(BaseObject, StandardBarrierRegistersTheObjectWhileItLives) {
  PVNotificationCenterRef center = PVNotificationCenterGetDefaultLocalCenter();
  PVBaseClass withBarrier = kReelBase, withOwn = kReelBase;
  withBarrier.version = withOwn.version = 2;
  withBarrier.notificationBarrier = KivBaseObjectStandardNotificationBarrier;
  withOwn.notificationBarrier = [](PVBaseObjectRef) -> PVStatus { return 0; };
  PVBaseClass first = withBarrier;
  first.version = 1;
  const PVVTable tables[] = {{nullptr, &withBarrier}, {nullptr, &withOwn}, {nullptr, &first}};
  Object object = makeReel(1, &tables[0]);
  EXPECT_EQ(KivBaseObjectStandardNotificationBarrier(object.get()), 0);
  EXPECT_EQ(PVNotificationCenterRegisterForBarrierSupport(center, object.get()),
            kPVNotificationCenterError_ParamErr);
  const void* gone = object.get();
  object = nullptr;
  EXPECT_EQ(PVNotificationCenterBarrier(center, gone), kPVNotificationCenterError_ParamErr);
  EXPECT_EQ(KivBaseObjectStandardNotificationBarrier(nullptr), kPVBaseObjectError_ParamErr);
  for (int i : {1, 2}) {  // a barrier of its own, and version 1: not registered
    Object outside = makeReel(1, &tables[i]);
    const uint64_t errors = KivGetErrorCount();
    EXPECT_NE(PVNotificationCenterBarrier(center, outside.get()), 0);
    outside = nullptr;
    EXPECT_EQ(KivGetErrorCount(), errors + 1);
  }
}

TEST(ErrorSignalling, CountsAndReturnsTheStatus) {
  const uint64_t errors = KivGetErrorCount();
  EXPECT_EQ(KivSignalErrorAt(-108, "file.cpp", 12, "function"), -108);
  EXPECT_EQ(KivSignalErrorAt(0, nullptr, 0, nullptr), 0);
  EXPECT_EQ(KivGetErrorCount(), errors + 2);
}

TEST(ErrorSignallingDeathTest, LogsThePlaceWhenAskedTo) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // a fresh process, which has not read its environment yet
  EXPECT_EXIT(
      {
        setenv("PEVRIN_LOG_ERRORS", "1", 1);
        KivSignalErrorAt(-12894, "files/atom_stream.cpp", 120, "readHeader");
        std::exit(0);
      },
      testing::ExitedWithCode(0), "files/atom_stream.cpp:120 readHeader: status -12894");
}

TEST(ErrorCounterThreads, NoErrorIsLostWhenManySignal) {
  constexpr int kThreads = 4, kErrors = 20000;
  const uint64_t before = KivGetErrorCount();
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([] {
      for (int i = 0; i < kErrors; ++i)
        EXPECT_EQ(KivSignalErrorAt(-12780 - i, nullptr, i, nullptr), -12780 - i);
    });
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(KivGetErrorCount() - before, uint64_t{kThreads} * kErrors);
}

}  // namespace
