#include "clocks/ns_line.hpp"
#include "tests/clocks/timebase_support.hpp"

namespace {

using namespace br::literals;
using namespace test;

constexpr int64_t kSecond = 1'000'000'000;

TEST(Timebase, NewOnesStandAtZeroAndKnowTheirChain) {
  FakeClock clock;
  clock.set(5 * kSecond);
  const Timebase top = onClock(clock), middle = onTimebase(top.get()), view = viewOf(middle.get());
  const Timebase low = onTimebase(view.get());
  for (const Timebase& timebase : {top, middle, view, low}) {
    EXPECT_TRUE(areEqual(PVTimebaseGetTime(timebase.get()), kPVTimeZero));
    EXPECT_EQ(PVTimebaseGetRate(timebase.get()), 0.0);
    EXPECT_EQ(PVTimebaseGetUltimateMasterClock(timebase.get()), static_cast<PVClockRef>(clock));
  }
  EXPECT_EQ(PVTimebaseGetMaster(top.get()), static_cast<const void*>(static_cast<PVClockRef>(clock)));
  EXPECT_EQ(PVTimebaseGetMasterTimebase(top.get()), nullptr);
  EXPECT_EQ(PVTimebaseGetMasterTimebase(view.get()), top.get());
  EXPECT_EQ(PVTimebaseGetMaster(low.get()), view.get());
  EXPECT_EQ(PVTimebaseGetMasterClock(low.get()), nullptr);
  int64_t height = 0;
  br::Ref<PVClock>::adopt(KivTimebaseCopyUltimateMasterClockAndHeight(low.get(), &height));
  EXPECT_EQ(height, 3);
}

TEST(Timebase, ReferencesAreBalanced) {
  FakeClock clock;
  const uint32_t before = BRGetRetainCount(static_cast<PVClockRef>(clock));
  {
    const Timebase top = onClock(clock), low = onTimebase(top.get()), view = viewOf(low.get());
    EXPECT_EQ(BRGetRetainCount(top.get()), 2u);
    PVTimebaseSetRate(top.get(), 1.0);
    PVTimebaseSetRate(low.get(), 2.0);
    EXPECT_TRUE(areEqual(PVTimebaseGetTime(view.get()), kPVTimeZero));
    EXPECT_EQ(PVTimebaseSetMasterClock(low.get(), clock), 0);
    EXPECT_EQ(BRGetRetainCount(top.get()), 1u);
    EXPECT_EQ(KivReadOnlyTimebaseSetTargetTimebase(view.get(), top.get()), 0);
    EXPECT_EQ(BRGetRetainCount(low.get()), 1u);
  }
  EXPECT_EQ(BRGetRetainCount(static_cast<PVClockRef>(clock)), before);
}

// What each change posts is compared with the model's; beside it stand changes that the model does not make.
TEST(Timebase, SaysOfAChangeOfClockOrRateThatItIsOne) {
  FakeClock clock;
  const Timebase timebase = onClock(clock);
  PVTimebaseRef t = timebase.get();
  Recorder recorder;
  recorder.listenTo(t);
  auto after = [&](PVStatus status) {
    EXPECT_EQ(status, 0);
    clock.advance(kSecond);
    return recorder.takeText();
  };
  EXPECT_EQ(after(PVTimebaseSetRateAndAnchorTime(t, -1.0, kPVTimeInvalid, kPVTimeInvalid)), "R");
  EXPECT_EQ(after(PVTimebaseSetTime(t, PVTimeMake(10, 2))), "J");
  EXPECT_EQ(after(PVTimebaseSetMasterClock(t, clock)), "WD");
  EXPECT_EQ(after(PVTimebaseSetMasterClock(t, PVClockGetHostTimeClock())), "WD");
}

TEST(Timebase, EffectiveRateIsThatOfTheChain) {
  FakeClock clock;
  const Timebase top = onClock(clock), low = onTimebase(top.get());
  PVTimebaseSetRate(low.get(), 0.5);
  EXPECT_EQ(PVTimebaseGetEffectiveRate(low.get()), 0.0);
  PVTimebaseSetRate(top.get(), -3.0);
  EXPECT_EQ(PVTimebaseGetEffectiveRate(low.get()), -1.5);
  PVTimebaseSetRate(top.get(), NAN);
  EXPECT_EQ(PVTimebaseGetEffectiveRate(low.get()), 0.0);
  // While an anchor is no number, the chain has no transform, and a timebase that moves no time.
  PVTimebaseSetRate(top.get(), 1.0);
  PVTimebaseSetAnchorTime(top.get(), kPVTimeIndefinite, kPVTimeZero);
  EXPECT_EQ(PVTimebaseGetEffectiveRate(low.get()), 0.0);
  EXPECT_TRUE(PVTimeIsInvalid(PVTimebaseGetTime(low.get())));
}

TEST(Timebase, TimeIsNeverFlaggedAsRoundedAndConvertsOnRequest) {
  FakeClock clock;
  const Timebase timebase = onClock(clock);
  PVTime rounded = PVTimeMake(1, 3);
  rounded.flags |= kPVTimeFlags_HasBeenRounded;
  PVTimebaseSetTime(timebase.get(), rounded);
  EXPECT_FALSE(PVTimeHasBeenRounded(PVTimebaseGetTime(timebase.get())));
  PVTimebaseSetRate(timebase.get(), 1.0 / 3);
  clock.set(kSecond);
  EXPECT_FALSE(PVTimeHasBeenRounded(PVTimebaseGetTime(timebase.get())));
  const PVTime scaled =
      PVTimebaseGetTimeWithTimeScale(timebase.get(), 600, kPVTimeRoundingMethod_RoundHalfAwayFromZero);
  EXPECT_EQ(scaled.value, 400);
  EXPECT_EQ(scaled.timescale, 600);
}

TEST(Timebase, TransformsGoBothWaysAndAsHighAsAsked) {
  FakeClock clock;
  const Timebase top = onClock(clock), low = onTimebase(top.get());
  PVSyncTransform transform{};
  EXPECT_EQ(KivTimebaseGetTransformRelativeToMaster(low.get(), 0, &transform), -12755);
  EXPECT_EQ(KivTimebaseGetTransformRelativeToMaster(low.get(), 1, &transform), 0);
  PVTimebaseSetRateAndAnchorTime(top.get(), 2.0, seconds(10), seconds(1));
  PVTimebaseSetRateAndAnchorTime(low.get(), -0.5, seconds(100), seconds(14));
  struct {
    int64_t height;
    KivSyncDirection direction;
    int64_t from, to;
  } const cases[] = {{1, 1, 16, 99}, {1, 0, 99, 16}, {2, 1, 4, 99}, {2, 0, 99, 4}};
  for (const auto& c : cases) {
    ASSERT_EQ(KivTimebaseGetTransformRelativeToMasterAtHeight(low.get(), c.height, c.direction, &transform),
              0);
    EXPECT_TRUE(areEqual(KivSyncApplyTransform(&transform, seconds(c.from)), seconds(c.to))) << c.height;
  }
  ASSERT_EQ(KivTimebaseGetTransformRelativeToUltimateMasterClock(low.get(), 1, &transform), 0);
  EXPECT_EQ(transform.rate, -1.0);
  EXPECT_EQ(KivTimebaseGetTransformRelativeToMasterAtHeight(low.get(), 3, 1, &transform), -12749);
  EXPECT_EQ(KivTimebaseGetTransformRelativeToMasterAtHeight(low.get(), 0, 1, &transform), -12748);
}

TEST(TimebaseSync, ConvertsThroughTheNearestCommonMaster) {
  FakeClock clock, otherClock;
  clock.set(30 * kSecond);
  otherClock.set(500 * kSecond);
  const Timebase root = onClock(clock), left = onTimebase(root.get()),
                 right = onTimebase(viewOf(root.get()).get());
  const Timebase deep = onTimebase(left.get()), far = onClock(otherClock);
  PVTimebaseRef all[] = {root.get(), left.get(), right.get(), deep.get(), far.get()};
  EXPECT_EQ(PVSyncGetRelativeRate(deep.get(), clock), 0.0);
  EXPECT_TRUE(std::isnan(PVSyncGetRelativeRate(clock, deep.get())));
  EXPECT_TRUE(areEqual(PVSyncConvertTime(seconds(3), deep.get(), deep.get()), seconds(3)));
  int64_t offset = 100;
  for (PVTimebaseRef timebase : all) {
    PVTimebaseSetRate(timebase, timebase == far.get() ? 1.0 : -2.0);
    PVTimebaseSetTime(timebase, seconds(offset += 100));
  }
  struct {
    PVTimebaseRef from, to;
    double rate;
  } const cases[] = {{deep.get(), right.get(), 0.5 * -1},
                     {left.get(), right.get(), 1},
                     {root.get(), deep.get(), 4},
                     {far.get(), left.get(), 4},
                     {deep.get(), far.get(), -0.125}};
  for (const auto& c : cases) {
    const double ratio = PVSyncGetRelativeRate(c.to, c.from);
    EXPECT_EQ(ratio, c.rate);
    // What one shows now is what the other shows now, to the moment between the readings of the host's clock.
    const PVTime converted = PVSyncConvertTime(PVSyncGetTime(c.from), c.from, c.to);
    EXPECT_NEAR(PVTimeGetSeconds(converted), PVTimeGetSeconds(PVSyncGetTime(c.to)), 0.5);
    const bool isExact = c.from != far.get() && c.to != far.get();
    EXPECT_TRUE(!isExact || areEqual(converted, PVSyncGetTime(c.to)));
  }
  EXPECT_FALSE(PVSyncMightDrift(deep.get(), clock));
  EXPECT_EQ(PVSyncMightDrift(deep.get(), far.get()), PVClockMightDrift(clock, otherClock));
  PVClockInvalidate(otherClock);
  EXPECT_TRUE(PVTimeIsInvalid(PVSyncConvertTime(seconds(3), far.get(), deep.get())));
}

// What readers and timers compute in nanoseconds is what the transform says.
TEST(Timebase, ALineInNanosecondsIsTheTransform) {
  constexpr PVTimeScale kScales[] = {1,     3,     600,   1000,          1024,
                                     30000, 44100, 90000, 1'000'000'000, 2'000'000'000};
  constexpr double kRates[] = {1.0, -1.0, 0.5, 2.0, 1.0 / 3, 1.001, 1e-7, 1e6, -1e9};
  std::minstd_rand random(1);
  auto time = [&] {
    return PVTimeMake(static_cast<int64_t>(random()) - 1'000'000'000, kScales[random() % std::size(kScales)]);
  };
  int known = 0;
  for (int i = 0; i < 40'000; ++i) {
    const bool isFromZero = i % 2;
    const PVTime source =
        isFromZero ? time() : ns((static_cast<int64_t>(random()) << (random() % 33)) - (1 << 30));
    const bool endsInNs = isFromZero && random() % 8;
    const PVSyncTransform transform{isFromZero || random() % 4 == 0 ? kPVTimeZero : time(),
                                    kRates[random() % std::size(kRates)],
                                    endsInNs       ? ns(time().value)
                                    : random() % 4 ? time()
                                                   : kPVTimeZero};
    const pv::NsLine line = pv::NsLine::make(transform);
    PVTime result;
    if (!(isFromZero ? line.applyFromZero(source, &result) : line.apply(source, &result))) continue;
    ++known;
    const PVTime expected = KivSyncApplyTransform(&transform, source);
    ASSERT_EQ(result.value, expected.value) << i << ": " << source.value << "/" << source.timescale;
    ASSERT_EQ(result.timescale, expected.timescale);
    ASSERT_EQ(result.flags, kPVTimeFlags_Valid);
  }
  EXPECT_GT(known, 20'000);
}

TEST(Timebase, ArgumentsAreChecked) {
  FakeClock clock;
  PVTimebaseRef out = reinterpret_cast<PVTimebaseRef>(&clock);
  EXPECT_EQ(PVTimebaseCreateWithMasterClock(nullptr, nullptr, &out), -12748);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(PVTimebaseCreateWithMasterTimebase(nullptr, nullptr, &out), -12748);
  EXPECT_EQ(PVTimebaseCreateReadOnlyTimebase(nullptr, nullptr, nullptr, nullptr, &out), -12748);
  const Timebase timebase = onClock(clock);
  EXPECT_EQ(PVTimebaseSetTime(timebase.get(), kPVTimePositiveInfinity), -12748);
  EXPECT_EQ(PVTimebaseSetRateAndAnchorTime(timebase.get(), 1.0, kPVTimeZero, kPVTimeInvalid), -12749);
  EXPECT_EQ(PVTimebaseSetMasterClock(timebase.get(), nullptr), -12748);
  EXPECT_EQ(PVTimebaseSetMasterTimebase(timebase.get(), nullptr), -12748);
  EXPECT_EQ(PVTimebaseSetRate(nullptr, 1.0), -12748);
  EXPECT_EQ(PVTimebaseNotificationBarrier(nullptr), -12748);
  EXPECT_EQ(KivReadOnlyTimebaseSetTargetTimebase(timebase.get(), timebase.get()), -12749);
  EXPECT_TRUE(PVTimeIsInvalid(PVTimebaseGetTime(nullptr)));
  EXPECT_EQ(PVTimebaseGetRate(timebase.get()), 0.0);
}

// A circle that a listener of MasterWillChange closes is found, too; what began is ended.
TEST(Timebase, NobodyFollowsItselfThroughAListener) {
  FakeClock clock;
  const Timebase top = onClock(clock), low = onTimebase(top.get()), other = onClock(clock);
  Recorder recorder;
  recorder.listenTo(top.get());
  recorder.listenTo(other.get());
  recorder.context = top.get();
  recorder.onEvent = [](void* context, const Event& event) {
    if (event.what != 'W' || event.object == context) return;
    auto* o = static_cast<PVTimebaseRef>(const_cast<void*>(event.object));
    EXPECT_EQ(PVTimebaseSetMasterTimebase(static_cast<PVTimebaseRef>(context), o), 0);
  };
  EXPECT_EQ(PVTimebaseSetMasterTimebase(other.get(), low.get()), -12749);
  EXPECT_EQ(recorder.takeText(), "WWDDD");  // the last as a follower of the other
  const Timebase lastView = viewOf(other.get());
  recorder.listenTo(lastView.get());
  EXPECT_EQ(KivReadOnlyTimebaseSetTargetTimebase(lastView.get(), low.get()), -12749);
  EXPECT_EQ(PVTimebaseGetMasterTimebase(top.get()), lastView.get());
}

TEST(TimebaseView, RefusesEveryWriteAndSaysSo) {
  FakeClock clock;
  int attempts = 0;
  const Timebase source = onClock(clock);
  const Timebase view = viewOf(
      source.get(), [](PVTimebaseRef, void* count) { ++*static_cast<int*>(count); }, &attempts);
  PVTimebaseRef v = view.get();
  const PVStatus statuses[] = {PVTimebaseSetTime(v, kPVTimeInvalid),
                               PVTimebaseSetAnchorTime(v, kPVTimeZero, kPVTimeZero),
                               PVTimebaseSetRate(v, 1.0),
                               PVTimebaseSetRateAndAnchorTime(v, 1.0, kPVTimeZero, kPVTimeInvalid),
                               PVTimebaseSetRateAndAnchorTimeWithFlags(v, 1, 1.0, kPVTimeZero, kPVTimeZero),
                               PVTimebaseSetMasterClock(v, nullptr),
                               PVTimebaseSetMasterTimebase(v, v),
                               PVTimebaseNotificationBarrier(v)};
  for (const PVStatus status : statuses) EXPECT_EQ(status, -12757);
  EXPECT_EQ(attempts, static_cast<int>(std::size(statuses)));
}

TEST(TimebaseView, PassesOnWhatItsTargetPostsAndWhatOthersPostForIt) {
  FakeClock clock;
  const Timebase source = onClock(clock), view = viewOf(source.get());
  Recorder recorder;
  recorder.listenTo(view.get());
  PVTimebaseSetRateAndAnchorTime(source.get(), 1.0, seconds(7), kPVTimeZero);
  PVNotificationCenterPostNotification(PVNotificationCenterGetDefaultLocalCenter(), "anything"_br,
                                       source.get(), nullptr, 0);
  const std::vector<Event> expected = {
      {view.get(), 'R', seconds(7)}, {view.get(), 'J', seconds(7)}, {view.get(), '?', kPVTimeInvalid}};
  EXPECT_EQ(recorder.take(), expected);
}

TEST(TimebaseView, ATargetWithoutATimeIsRefused) {
  FakeClock clock;
  const Timebase a = onClock(clock), b = onClock(clock), view = viewOf(a.get());
  PVTimebaseSetTime(a.get(), seconds(45));
  PVTimebaseSetAnchorTime(b.get(), kPVTimeIndefinite, kPVTimeZero);
  Recorder recorder;
  recorder.listenTo(view.get());
  EXPECT_EQ(KivReadOnlyTimebaseSetTargetTimebase(view.get(), b.get()), kPVSyncError_InvalidParameter);
  EXPECT_EQ(recorder.takeText(), "WD");
  EXPECT_TRUE(areEqual(PVTimebaseGetTime(view.get()), seconds(45)));
}

// Within a callback of a timebase everything may be done to it.
TEST(Timebase, CallbacksMayWriteSetTheMasterAndWait) {
  FakeClock clock;
  const Timebase top = onClock(clock), low = onTimebase(top.get());
  struct Context {
    PVTimebaseRef top, low;
    PVClockRef clock;
    int depth = 0;
  } context{top.get(), low.get(), clock};
  Recorder recorder;
  recorder.listenTo(top.get());
  recorder.listenTo(low.get());
  recorder.context = &context;
  recorder.onEvent = [](void* opaque, const Event& event) {
    auto& c = *static_cast<Context*>(opaque);
    auto* object = static_cast<PVTimebaseRef>(const_cast<void*>(event.object));
    EXPECT_EQ(PVTimebaseNotificationBarrier(object), 0);
    if (++c.depth > 3) return;
    EXPECT_EQ(PVTimebaseSetRateAndAnchorTime(object, c.depth, seconds(c.depth), kPVTimeZero), 0);
    EXPECT_EQ(PVTimebaseSetMasterClock(c.low, c.clock), 0);
    EXPECT_EQ(PVTimebaseSetMasterTimebase(c.low, c.top), 0);
    std::thread([&] { EXPECT_EQ(PVTimebaseSetRate(c.low, 8.0 + c.depth), 0); }).join();
  };
  PVTimebaseSetRate(top.get(), 1.0);
  PVTimebaseSetRate(low.get(), 1.0);
  EXPECT_GT(context.depth, 3);
  EXPECT_EQ(PVTimebaseGetMasterTimebase(low.get()), top.get());
}

TEST(Timebase, TheLastReferenceMayGoInACallback) {
  FakeClock clock;
  Timebase top = onClock(clock), low = onTimebase(top.get());
  Recorder recorder;
  recorder.listenTo(top.get());
  struct Held {
    Timebase *top, *low;
  } held{&top, &low};
  recorder.context = &held;
  recorder.onEvent = [](void* context, const Event&) {
    *static_cast<Held*>(context)->top = nullptr;
    *static_cast<Held*>(context)->low = nullptr;
  };
  EXPECT_EQ(PVTimebaseSetRateAndAnchorTime(top.get(), 1.0, seconds(1), seconds(1)), 0);
}

TEST(Timebase, ADayOfPlaybackAddsUpNoError) {
  constexpr int64_t kDay = 86'400;
  for (const auto& [scale, units] : {std::pair{30000, 1001}, {24000, 1001}, {44100, 1}}) {
    FakeClock clock;
    const Timebase timebase = onClock(clock);
    const int64_t startNs = 123'456'789'012;
    PVTimebaseSetRateAndAnchorTime(timebase.get(), 1.0, kPVTimeZero, ns(startNs));
    PVSyncTransform toClock;
    ASSERT_EQ(KivTimebaseGetTransformRelativeToUltimateMasterClock(timebase.get(), 0, &toClock), 0);
    const int64_t frames = kDay * scale / units;
    for (int64_t frame = frames; frame > 0; frame -= frames / 1009) {
      const PVTime time = PVTimeMake(frame * units, scale);
      const PVTime due = KivSyncApplyTransform(&toClock, time);
      // To the nearest nanosecond, computed exactly: |due - start - frame| <= 1/2.
      const __int128 error = static_cast<__int128>(due.value - startNs) * scale -
                             static_cast<__int128>(time.value) * 1'000'000'000;
      ASSERT_EQ(due.timescale, 1'000'000'000);
      ASSERT_LE(error < 0 ? -error : error, scale / 2) << frame;
      clock.set(due.value);
      ASSERT_EQ(PVTimebaseGetTimeWithTimeScale(timebase.get(), scale, 1).value, time.value);
      // Stopping and going on, at every frame, moves nothing.
      PVTimebaseSetRate(timebase.get(), 0.0);
      PVTimebaseSetRate(timebase.get(), 1.0);
      ASSERT_EQ(PVTimebaseGetTime(timebase.get()).value, due.value - startNs);
      ASSERT_EQ(KivTimebaseGetTransformRelativeToUltimateMasterClock(timebase.get(), 0, &toClock), 0);
    }
  }
}

TEST(Timebase, DescribesItself) {
  const Timebase timebase = onClock(PVClockGetHostTimeClock());
  PVTimebaseSetTime(timebase.get(), PVTimeMake(3, 2));
  const auto text = br::Ref<const BRString>::adopt(BRCopyDebugDescription(timebase.get()));
  char expected[400], found[400];
  snprintf(expected, sizeof expected,
           "KivTimebase: %p targetTimebase: (nil) retainCount: 1 allocator: %p master clock: %p rate: "
           "0.000000 time: "
           "{3/2 = 1.500} = 1.500000 seconds\n",
           static_cast<void*>(timebase.get()), static_cast<const void*>(BRGetAllocator(timebase.get())),
           static_cast<void*>(PVClockGetHostTimeClock()));
  ASSERT_TRUE(BRStringGetCString(text.get(), found, sizeof found, kBRStringEncodingUTF8));
  EXPECT_STREQ(found, expected);
}

TEST(Timebase, RunsOutOfMemoryAtEveryRequest) {
  FakeClock clock;
  const Timebase master = onClock(clock);
  for (const char kind : {'c', 't', 'v'})
    walkAllocationFailures([&](BRAllocatorRef allocator) {
      PVTimebaseRef made = nullptr;
      const PVStatus status =
          kind == 'c'   ? PVTimebaseCreateWithMasterClock(allocator, clock, &made)
          : kind == 't' ? PVTimebaseCreateWithMasterTimebase(allocator, master.get(), &made)
                        : PVTimebaseCreateReadOnlyTimebase(allocator, master.get(), nullptr, nullptr, &made);
      EXPECT_TRUE(status == 0 || status == -12750) << status;
      EXPECT_EQ(made == nullptr, status != 0);
      BRRelease(made);
      return status == 0 ? Outcome::kSucceeded : Outcome::kOutOfMemory;
    });
}

}  // namespace
