#include "clocks/clock.hpp"
#include "tests/clocks/scripted_clock.hpp"

namespace {

using namespace test;

std::string debugDescription(PVClockRef clock) {
  const auto text = br::Ref<const BRString>::adopt(BRCopyDebugDescription(clock));
  return BRStringGetUTF8(text.get());
}

// ---- The host time clock

TEST(HostTimeClockTest, TellsTheUptimeInNanosecondsAndIsItsOwnReference) {
  PVClockRef host = PVClockGetHostTimeClock();
  EXPECT_EQ(KivClockGetHostTimeClock(), host);
  const auto before = static_cast<int64_t>(BRHostTimeGetUptimeNs());
  PVTime clockTime, referenceTime;
  ASSERT_EQ(PVClockGetAnchorTime(host, &clockTime, &referenceTime), 0);
  const PVTime now = PVClockGetTime(host);
  EXPECT_EQ(now.timescale, 1000000000);
  EXPECT_EQ(now.flags, uint32_t{kPVTimeFlags_Valid});
  EXPECT_LE(before, clockTime.value);
  EXPECT_LE(clockTime.value, now.value);
  EXPECT_LE(now.value, static_cast<int64_t>(BRHostTimeGetUptimeNs()));
  EXPECT_EQ(clockTime.value, referenceTime.value);

  PVSyncTransform transform;
  for (KivSyncDirection direction : {0u, 1u}) {
    ASSERT_EQ(KivClockGetTransformRelativeToReferenceClock(host, direction, &transform), 0);
    EXPECT_EQ(transform.rate, 1.0);
    expectTime(transform.fromAnchor, kPVTimeZero);
    expectTime(transform.toAnchor, kPVTimeZero);
  }
  for (int i = 0; i < 3; ++i) KivClockRelease(host);  // not ours to give, and harmless
  EXPECT_EQ(KivClockRetain(host), host);
  EXPECT_EQ(BRGetTypeID(host), PVClockGetTypeID());
  EXPECT_STREQ(BRTypeGetName(PVClockGetTypeID()), "KivClock");
  EXPECT_NE(debugDescription(host).find("HostTimeClock"), std::string::npos);
}

TEST(HostTimeClockTest, TimesBecomeTicksAndBack) {
  struct {
    PVTime time;
    uint64_t ticks;
  } cases[] = {{nanoseconds(5), 5},
               {seconds(3), 3000000000},
               {PVTimeMake(1, 3), 333333333},
               {PVTimeMake(3, 2000000000), 2},  // 1.5 ns
               {kPVTimeZero, 0},
               {nanoseconds(-1), 0},
               {kPVTimeInvalid, 0},
               {kPVTimeIndefinite, 0},
               {kPVTimePositiveInfinity, 0},
               {kPVTimeNegativeInfinity, 0},
               {PVTimeMake(INT64_MAX, 1), 0}};  // beyond any number of nanoseconds
  for (const auto& row : cases)
    EXPECT_EQ(PVClockConvertHostTimeToSystemUnits(row.time), row.ticks) << PVTimeGetSeconds(row.time);
  expectTime(PVClockMakeHostTimeFromSystemUnits(7), nanoseconds(7));
  expectTime(PVClockMakeHostTimeFromSystemUnits(UINT64_MAX), nanoseconds(INT64_MAX));
}

TEST(HostTimeClockDeathTest, NobodyEndsIt) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(PVClockInvalidate(PVClockGetHostTimeClock()), "");
}

// ---- Creation and the end

TEST(DerivedClockTest, ArgumentsAreCheckedInOrder) {
  KivDerivedClockCallbacks wrongVersion = kScriptedClock, incomplete = kScriptedClock;
  wrongVersion.version = 2;
  incomplete.getAnchorTime = nullptr;
  incomplete.version = 2;
  struct {
    const KivDerivedClockCallbacks* callbacks;
    bool hasOut;
    PVStatus expected;
  } cases[] = {{nullptr, true, kPVClockError_RequiredParameterMissing},
               {&wrongVersion, false, kPVClockError_RequiredParameterMissing},
               {&incomplete, true, kPVClockError_RequiredParameterMissing},
               {&wrongVersion, true, kPVClockError_InvalidClock}};
  for (const auto& row : cases) {
    auto clock = reinterpret_cast<PVClockRef>(&cases);
    EXPECT_EQ(KivDerivedClockCreateWithGetTimeCallback(nullptr, row.callbacks, nullptr, false,
                                                       row.hasOut ? &clock : nullptr, kPVTimeZero),
              row.expected);
    if (row.hasOut) {
      EXPECT_EQ(clock, nullptr);
    }
  }
  PVSyncTransform transform;
  EXPECT_FALSE(PVTimeIsValid(PVClockGetTime(nullptr)));
  EXPECT_EQ(PVClockGetAnchorTime(nullptr, nullptr, nullptr), kPVClockError_RequiredParameterMissing);
  EXPECT_EQ(KivDerivedClockGetDerivedStorage(nullptr), nullptr);
  for (auto get :
       {KivClockGetTransformRelativeToReferenceClock, KivClockGetTransformRelativeToHostTimeClock}) {
    EXPECT_EQ(get(nullptr, 0, &transform), kPVClockError_RequiredParameterMissing);
    EXPECT_EQ(get(PVClockGetHostTimeClock(), 0, nullptr), kPVClockError_RequiredParameterMissing);
  }
}

TEST(DerivedClockTest, IsOneBlockWithZeroedStorageAndLeavesNothingBehind) {
  KivDerivedClockCallbacks kind = kScriptedClock;
  kind.derivedStorageSizeBytes = 1000;
  kind.finalize = nullptr;
  ScriptedClock reference;
  walkAllocationFailures([&](BRAllocatorRef allocator) {
    br::Ref<PVClock> clock;
    const PVStatus status = KivDerivedClockCreateWithGetTimeCallback(allocator, &kind, reference.get(), true,
                                                                     clock.out(), kPVTimeZero);
    if (status == kPVClockError_AllocationFailed) return Outcome::kOutOfMemory;
    EXPECT_EQ(status, 0);
    const auto* storage = static_cast<const char*>(KivDerivedClockGetDerivedStorage(clock.get()));
    EXPECT_EQ(reinterpret_cast<uintptr_t>(storage) % 16, 0u);
    EXPECT_EQ(std::string(storage, 1000), std::string(1000, '\0'));
    EXPECT_EQ(BRGetRetainCount(reference.get()), 2u);
    EXPECT_NE(debugDescription(clock.get()).find("(may drift)"), std::string::npos);
    return Outcome::kSucceeded;
  });
  EXPECT_EQ(BRGetRetainCount(reference.get()), 1u);
}

TEST(DerivedClockTest, EndsOnceAndHasNoTimeAfterwards) {
  ScriptedClock reference, clock(reference.get());
  clock.script.whenFinalized = [&](PVClockRef ending) {
    expectTime(PVClockGetTime(ending), kPVTimeZero);  // not over yet
    PVClockInvalidate(ending);
  };
  EXPECT_TRUE(KivDerivedClockVerifyCallbacksMatch(clock.get(), &kScriptedClock));
  PVClockInvalidate(clock.get());
  PVClockInvalidate(clock.get());
  EXPECT_EQ(clock.script.finalized, 1);
  EXPECT_EQ(BRGetRetainCount(reference.get()), 1u);
  EXPECT_FALSE(KivDerivedClockVerifyCallbacksMatch(clock.get(), &kScriptedClock));
  EXPECT_TRUE(PVClockMightDrift(clock.get(), reference.get()));
  EXPECT_FALSE(PVTimeIsValid(PVClockGetTime(clock.get())));
  PVTime time = seconds(1);
  EXPECT_EQ(PVClockGetAnchorTime(clock.get(), &time, nullptr), kPVClockError_InvalidClock);
  expectTime(time, seconds(1));
  PVSyncTransform transform;
  EXPECT_EQ(KivClockGetTransformRelativeToReferenceClock(clock.get(), 1, &transform),
            kPVClockError_InvalidClock);
  clock.release();
  EXPECT_EQ(clock.script.finalized, 1);

  ScriptedClock dropped;
  dropped.release();
  EXPECT_EQ(dropped.script.finalized, 1);
}

TEST(DerivedClockTest, DriftIsForTheKindToSay) {
  static const KivDerivedClockCallbacks silent = {1, 8, 0, nullptr, nullptr, nullptr, nullptr, scriptedTime};
  ScriptedClock a, b, other(nullptr, kPVTimeInvalid, silent), another(nullptr, kPVTimeInvalid, silent);
  EXPECT_FALSE(PVClockMightDrift(a.get(), b.get()));
  b.script.rate = 2.0;
  EXPECT_TRUE(PVClockMightDrift(a.get(), b.get()));
  EXPECT_FALSE(PVClockMightDrift(other.get(), other.get()));
  EXPECT_TRUE(PVClockMightDrift(other.get(), another.get()));
  EXPECT_TRUE(PVClockMightDrift(a.get(), other.get()));
  EXPECT_TRUE(PVClockMightDrift(a.get(), PVClockGetHostTimeClock()));
  EXPECT_TRUE(PVClockMightDrift(nullptr, nullptr));
}

// ---- Reading

// The reference clock is at `now` seconds, the source at `source`; then the clock must say `expected` and
// have asked so many times.
struct Reading {
  const char* what;
  int now;
  PVTime source;
  int discontinuities;
  int expectedQuestions;
  PVTime expected;
};

void expectReadings(PVTime minimumInterval, double rate, std::initializer_list<Reading> readings) {
  ScriptedClock reference, clock(reference.get(), minimumInterval);
  clock.script.rate = rate;
  for (const Reading& reading : readings) {
    SCOPED_TRACE(reading.what);
    reference.script.time = seconds(reading.now);
    clock.script.time = reading.source;
    for (int i = 0; i < reading.discontinuities; ++i) KivDerivedClockDiscontinuityOccurred(clock.get());
    expectTime(PVClockGetTime(clock.get()), reading.expected);
    EXPECT_EQ(clock.script.questions, reading.expectedQuestions);
  }
}

TEST(DerivedClockTest, AsksOncePerIntervalAndRunsOnInBetween) {
  expectReadings(seconds(10), 2.0,
                 {{"the first time", 100, seconds(5), 0, 1, seconds(5)},
                  {"inside the interval", 103, seconds(99), 0, 1, seconds(11)},
                  {"just inside", 109, seconds(99), 0, 1, seconds(23)},
                  {"at its end", 110, seconds(30), 0, 2, seconds(30)},
                  {"after a jump of the source", 111, seconds(70), 3, 3, seconds(70)},
                  {"the jump is seen", 112, seconds(99), 0, 3, seconds(72)},
                  {"before the interval", 90, seconds(1), 0, 4, seconds(1)}});
}

TEST(DerivedClockTest, RunsOnWithoutAnAnswerAndAsksUntilItHasOne) {
  expectReadings(seconds(10), 0.5,
                 {{"no time yet", 100, kPVTimeInvalid, 0, 1, kPVTimeInvalid},
                  {"nor now", 101, kPVTimeIndefinite, 0, 2, kPVTimeInvalid},
                  {"the first time", 102, seconds(5), 0, 3, seconds(5)},
                  {"lost", 112, kPVTimePositiveInfinity, 0, 4, seconds(10)},
                  {"still lost", 114, kPVTimeInvalid, 0, 5, seconds(11)},
                  {"found", 116, seconds(50), 0, 6, seconds(50)},
                  {"inside the interval", 118, seconds(99), 0, 6, seconds(51)}});
}

TEST(DerivedClockTest, AsksEveryTimeWithoutAnInterval) {
  for (PVTime none : {kPVTimeZero, kPVTimeInvalid, kPVTimePositiveInfinity})
    expectReadings(none, 1.0,
                   {{"once", 1, seconds(5), 0, 1, seconds(5)}, {"again", 1, seconds(6), 0, 2, seconds(6)}});
}

TEST(DerivedClockTest, RatesThatAreNoNumberRunWithTheReferenceAndZeroStands) {
  constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
  for (double rate : {kNaN, HUGE_VAL, -HUGE_VAL, 1.0})
    expectReadings(seconds(10), rate,
                   {{"", 1, seconds(5), 0, 1, seconds(5)}, {"", 3, seconds(5), 0, 1, seconds(7)}});
  expectReadings(seconds(10), 0.0,
                 {{"", 1, seconds(5), 0, 1, seconds(5)}, {"", 3, seconds(9), 0, 1, seconds(5)}});
}

TEST(DerivedClockTest, AnswersThePairThatBelongsTogether) {
  ScriptedClock reference, clock(reference.get(), seconds(10));
  reference.script.time = seconds(100);
  clock.script.time = seconds(5);
  clock.script.referenceTime = seconds(98);  // when the device last looked
  PVTime clockTime, referenceTime;
  ASSERT_EQ(PVClockGetAnchorTime(clock.get(), &clockTime, &referenceTime), 0);
  expectTime(clockTime, seconds(5));
  expectTime(referenceTime, seconds(98));
  reference.script.time = seconds(109);  // ten seconds behind the question, not behind the stamp
  ASSERT_EQ(PVClockGetAnchorTime(clock.get(), &clockTime, &referenceTime), 0);
  expectTime(clockTime, seconds(16));
  expectTime(referenceTime, seconds(109));
  EXPECT_EQ(clock.script.questions, 1);
}

TEST(DerivedClockTest, FailuresComeOutAsTheyAreAndLeaveTheLastAnswer) {
  ScriptedClock reference, clock(reference.get(), seconds(10));
  ASSERT_EQ(PVClockGetAnchorTime(clock.get(), nullptr, nullptr), 0);
  clock.script.status = -77;
  PVTime time = kPVTimeInvalid;
  EXPECT_EQ(PVClockGetAnchorTime(clock.get(), &time, nullptr), 0);  // not asked
  KivDerivedClockDiscontinuityOccurred(clock.get());
  EXPECT_EQ(PVClockGetAnchorTime(clock.get(), &time, nullptr), -77);
  EXPECT_EQ(PVClockGetAnchorTime(clock.get(), &time, nullptr), -77);
  expectTime(time, kPVTimeZero);
  reference.script.status = -78;
  EXPECT_EQ(PVClockGetAnchorTime(clock.get(), &time, nullptr), -78);
}

TEST(DerivedClockTest, ExternalSyncEventsAreNotThereYet) {
  ScriptedClock clock;
  clock.get()->classTag = pv::kExternalSyncEventsClass;
  testing::internal::CaptureStderr();
  EXPECT_EQ(PVClockGetAnchorTime(clock.get(), nullptr, nullptr), kPVSyncError_NotImplemented);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "PVClockGetAnchorTime: kKivClockClass_ExternalSyncEvents not yet implemented\n");
}

// ---- Callbacks that come back

TEST(DerivedClockTest, ASourceMayReadItsOwnClock) {
  ScriptedClock reference, clock(reference.get(), seconds(10));
  std::vector<PVTime> seen;
  clock.script.whenAsked = [&](PVClockRef asked) { seen.push_back(PVClockGetTime(asked)); };
  clock.script.time = seconds(5);
  expectTime(PVClockGetTime(clock.get()), seconds(5));
  reference.script.time = seconds(20);
  clock.script.time = seconds(7);
  expectTime(PVClockGetTime(clock.get()), seconds(7));
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_FALSE(PVTimeIsValid(seen[0]));
  expectTime(seen[1], seconds(25));  // run on from the last answer
}

TEST(DerivedClockTest, DiscontinuitiesDuringAQuestionAreAskedAboutAgainButNotForEver) {
  ScriptedClock reference, clock(reference.get(), seconds(10));
  int jumps = 3;
  clock.script.whenAsked = [&](PVClockRef asked) {
    if (jumps-- <= 0) return;
    clock.script.time = seconds(jumps);
    KivDerivedClockDiscontinuityOccurred(asked);
  };
  expectTime(PVClockGetTime(clock.get()), kPVTimeZero);
  EXPECT_EQ(clock.script.questions, 4);
  PVClockGetTime(clock.get());
  EXPECT_EQ(clock.script.questions, 4);  // all were seen

  jumps = 1000000;
  KivDerivedClockDiscontinuityOccurred(clock.get());
  EXPECT_TRUE(PVTimeIsNumeric(PVClockGetTime(clock.get())));
  EXPECT_EQ(clock.script.questions, 20);
  PVClockGetTime(clock.get());
  EXPECT_EQ(clock.script.questions, 36);
}

TEST(DerivedClockTest, ASourceMayEndItsClockAndDropIt) {
  ScriptedClock reference, middle(reference.get()), clock(middle.get(), seconds(10));
  clock.script.whenAsked = PVClockInvalidate;
  EXPECT_EQ(PVClockGetAnchorTime(clock.get(), nullptr, nullptr), kPVClockError_InvalidClock);
  EXPECT_EQ(BRGetRetainCount(middle.get()), 1u);

  ScriptedClock dropped(reference.get(), seconds(10));
  PVClockRef last = dropped.get();
  dropped.script.whenAsked = [&](PVClockRef) { dropped.release(); };
  EXPECT_EQ(PVClockGetAnchorTime(last, nullptr, nullptr), 0);
  EXPECT_EQ(dropped.script.finalized, 1);

  // the question to the reference ends the clock that reads it, which held the last reference
  ScriptedClock under(reference.get()), above(under.get());
  under.script.whenAsked = [&](PVClockRef) { PVClockInvalidate(above.get()); };
  under.release();
  EXPECT_EQ(PVClockGetAnchorTime(above.get(), nullptr, nullptr), kPVClockError_InvalidClock);
  EXPECT_EQ(under.script.finalized, 1);
}

}  // namespace
