// Ranges and mappings.
#include <pevrin/time_range.h>

#include "tests/foundation/time_support.hpp"

bool operator==(const PVTimeRange& a, const PVTimeRange& b) {
  return a.start == b.start && a.duration == b.duration;
}
bool operator==(const PVTimeMapping& a, const PVTimeMapping& b) {
  return a.source == b.source && a.target == b.target;
}
std::ostream& operator<<(std::ostream& out, const PVTimeRange& r) {
  return out << "[" << r.start << r.duration << "]";
}
std::ostream& operator<<(std::ostream& out, const PVTimeMapping& m) { return out << m.source << m.target; }

namespace {

using namespace test;
using namespace br::literals;
using DictionaryRef = br::Ref<const BRDictionary>;
using StringRef = br::Ref<const BRString>;

constexpr PVTimeRange kInvalidRange = {kInvalid, kInvalid};
constexpr PVTimeRange kZeroRange = {exact(0, 1), exact(0, 1)};
constexpr PVTimeMapping kInvalidMapping = {kInvalidRange, kInvalidRange};

// In whole seconds.
constexpr PVTimeRange seconds(int64_t start, int64_t duration) {
  return {exact(start, 1), exact(duration, 1)};
}
// What no constructor makes: a duration in an epoch.
constexpr PVTimeRange kEpochRange = {exact(0, 1), exact(5, 1, 2)};

TEST(TimeRange, ConstructorsRefuseDurationsInAnEpoch) {
  EXPECT_EQ(kPVTimeRangeZero, kZeroRange);
  EXPECT_EQ(kPVTimeRangeInvalid, kInvalidRange);
  EXPECT_EQ(kPVTimeMappingInvalid, kInvalidMapping);
  EXPECT_EQ(PVTimeRangeMake(exact(1, 1, 9), exact(-1, 1)), (PVTimeRange{exact(1, 1, 9), exact(-1, 1)}));
  EXPECT_EQ(PVTimeRangeMake(exact(0, 1), exact(1, 1, 2)), kInvalidRange);
  EXPECT_EQ(PVTimeRangeFromTimeToTime(exact(3, 1), exact(5, 1)), seconds(3, 2));
  EXPECT_EQ(PVTimeRangeFromTimeToTime(exact(5, 1), exact(3, 1)), kInvalidRange);
  EXPECT_EQ(PVTimeRangeFromTimeToTime(exact(1, 1, 2), exact(3, 1, 2)),
            (PVTimeRange{exact(1, 1, 2), exact(2, 1)}));
  EXPECT_EQ(PVTimeRangeFromTimeToTime(exact(1, 1), exact(3, 1, 2)),
            kInvalidRange);  // the difference has epoch 2
  EXPECT_EQ(PVTimeMappingMake(seconds(0, 1), seconds(5, 2)), (PVTimeMapping{seconds(0, 1), seconds(5, 2)}));
  EXPECT_EQ(PVTimeMappingMake(kEpochRange, seconds(5, 2)), kInvalidMapping);
  EXPECT_EQ(PVTimeMappingMake(seconds(5, 2), kEpochRange), kInvalidMapping);
  EXPECT_EQ(PVTimeMappingMakeEmpty(seconds(5, 2)), (PVTimeMapping{kInvalidRange, seconds(5, 2)}));
  EXPECT_EQ(PVTimeMappingMakeEmpty(kEpochRange), kInvalidMapping);
}

TEST(TimeRange, EndFollowsAddition) {
  EXPECT_EQ(PVTimeRangeGetEnd({exact(1, 2, 7), exact(1, 3)}), exact(5, 6, 7));
  EXPECT_EQ(PVTimeRangeGetEnd({exact(1, 2), kPlusInfinity}), kPlusInfinity);
  EXPECT_EQ(PVTimeRangeGetEnd({exact(1, 2), kIndefinite}), kIndefinite);
  EXPECT_EQ(PVTimeRangeGetEnd(kEpochRange), kInvalid);
}

TEST(TimeRange, UnionFillsGapsAndIntersectionOfTouchingRangesIsZero) {
  struct Case {
    PVTimeRange a, b, unionOf, intersection;
  };
  const PVTimeRange late = {exact(0, 1, 1), exact(1, 1)};
  const PVTimeRange endless = {exact(3, 1), kPlusInfinity};
  const Case cases[] = {
      {seconds(0, 1), seconds(10, 1), seconds(0, 11), kZeroRange},
      {seconds(0, 5), seconds(5, 5), seconds(0, 10), kZeroRange},
      {seconds(0, 5), seconds(3, 5), seconds(0, 8), seconds(3, 2)},
      {seconds(0, 9), seconds(3, 2), seconds(0, 9), seconds(3, 2)},
      {seconds(0, 5), endless, {exact(0, 1), kPlusInfinity}, seconds(3, 2)},
      {seconds(0, 5), late, kInvalidRange, kInvalidRange},
      {late, late, late, late},
      {seconds(0, 5), kEpochRange, {exact(0, 1), kInvalid}, seconds(0, 5)},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(PVTimeRangeGetUnion(c.a, c.b), c.unionOf) << c.a << c.b;
    EXPECT_EQ(PVTimeRangeGetUnion(c.b, c.a), c.unionOf) << c.a << c.b;
    EXPECT_EQ(PVTimeRangeGetIntersection(c.a, c.b), c.intersection) << c.a << c.b;
    EXPECT_EQ(PVTimeRangeGetIntersection(c.b, c.a), c.intersection) << c.a << c.b;
  }
}

TEST(TimeRange, ContainsUpToTheEnd) {
  const PVTimeRange range = seconds(0, 5);
  EXPECT_TRUE(PVTimeRangeContainsTime(range, exact(0, 600)));
  EXPECT_TRUE(PVTimeRangeContainsTime(range, exact(2999, 600)));
  EXPECT_FALSE(PVTimeRangeContainsTime(range, exact(5, 1)));
  EXPECT_FALSE(PVTimeRangeContainsTime(range, exact(-1, 600)));
  EXPECT_FALSE(PVTimeRangeContainsTime(range, kIndefinite));
  EXPECT_FALSE(PVTimeRangeContainsTime(range, kInvalid));
  EXPECT_TRUE(
      PVTimeRangeContainsTime(kEpochRange, exact(INT64_MAX, 1)));  // its end is invalid, behind everything
  EXPECT_TRUE(PVTimeRangeContainsTimeRange(range, range));
  EXPECT_TRUE(PVTimeRangeContainsTimeRange(range, seconds(3, 2)));
  EXPECT_TRUE(PVTimeRangeContainsTimeRange(range, seconds(1, 2)));
  EXPECT_FALSE(PVTimeRangeContainsTimeRange(range, seconds(3, 3)));
  EXPECT_FALSE(PVTimeRangeContainsTimeRange(range, seconds(-1, 3)));
  EXPECT_FALSE(PVTimeRangeContainsTimeRange(range, seconds(5, 0)));
  EXPECT_FALSE(PVTimeRangeContainsTimeRange({exact(0, 1), kPlusInfinity}, {exact(1, 1, 1), exact(1, 1)}));
  EXPECT_TRUE(PVTimeRangeEqual(range, {rounded(0, 3), exact(3000, 600)}));
  EXPECT_FALSE(PVTimeRangeEqual(range, {exact(0, 1, 1), exact(5, 1)}));
  EXPECT_FALSE(PVTimeRangeEqual(range, seconds(0, 6)));
  EXPECT_FALSE(PVTimeRangeEqual(range, seconds(1, 5)));
}

TEST(TimeRange, ClampTable) {
  struct Case {
    PVTime time;
    PVTimeRange range;
    PVTime expected;
  };
  const PVTimeRange range = seconds(0, 5), endless = {exact(2, 1), kPlusInfinity},
                    open = {exact(2, 1), kIndefinite};
  const Case cases[] = {
      {exact(7, 1), range, exact(5, 1)},
      {exact(5, 1), range, exact(5, 1)},
      {exact(10, 2), range, exact(5, 1)},
      {exact(7, 2), range, exact(7, 2)},
      {exact(-7, 2), range, exact(0, 1)},
      {exact(0, 600), range, exact(0, 1)},
      {kMinusInfinity, range, exact(0, 1)},
      {kPlusInfinity, range, exact(5, 1)},
      {kIndefinite, range, kIndefinite},
      {kInvalid, range, kInvalid},
      {exact(9, 1), endless, exact(9, 1)},
      {kPlusInfinity, endless, kPlusInfinity},
      {exact(9, 1), open, exact(9, 1)},
      {kPlusInfinity, open, kIndefinite},
      {exact(1, 1), seconds(0, 0), kInvalid},
      {exact(1, 1), seconds(0, -1), kInvalid},
      {exact(1, 1), kEpochRange, kInvalid},
      {exact(1, 1), {exact(0, 1), kMinusInfinity}, kInvalid},
      {exact(1, 1), {kMinusInfinity, exact(5, 1)}, kInvalid},
  };
  for (const Case& c : cases) EXPECT_EQ(PVTimeClampToRange(c.time, c.range), c.expected) << c.time << c.range;
}

TEST(TimeRange, MapTable) {
  struct Case {
    PVTime time;
    PVTimeRange from, to;
    PVTime mapped, mappedDuration;
  };
  const PVTimeRange endless = {exact(3, 1), kPlusInfinity}, open = {exact(4, 1), kIndefinite};
  const PVTimeRange epoch7 = {exact(1, 1, 7), exact(2, 1)};
  const Case cases[] = {
      {exact(3, 1), seconds(0, 10), seconds(100, 20), exact(106, 1), exact(6, 1)},
      {exact(3, 1), seconds(1, 10), seconds(100, 10), exact(102, 1), exact(3, 1)},
      {exact(30, 1), seconds(0, 10), seconds(0, 5), exact(15000000000, 1000000000),
       exact(15000000000, 1000000000)},
      {rounded(3, 1), seconds(0, 10), {exact(0, 600), exact(6000, 600)}, rounded(3, 1), rounded(3, 1)},
      {exact(5, 1), endless, {exact(10, 1), kPlusInfinity}, exact(12, 1), exact(5, 1)},
      {exact(5, 1), open, {exact(10, 1), kIndefinite}, exact(11, 1), exact(5, 1)},
      {exact(5, 1), endless, open, rounded(kMin + 4000000000, 1000000000),
       rounded(kMin, 1000000000)},  // a factor that is NaN
      {exact(2, 1, 7), epoch7, seconds(0, 4), exact(2, 1), kInvalid},
      {exact(2, 1), epoch7, seconds(0, 4), kInvalid, exact(4, 1)},
      {kPlusInfinity, seconds(0, 10), seconds(0, 5), kPlusInfinity, kPlusInfinity},
      {kInvalid, seconds(0, 10), seconds(0, 5), kInvalid, kInvalid},
      {exact(1, 1), seconds(0, 10), endless, kInvalid, kInvalid},
      {exact(1, 1), seconds(0, 0), seconds(0, 5), kInvalid, kInvalid},
      {exact(1, 1), seconds(0, 5), seconds(0, -1), kInvalid, kInvalid},
      {exact(1, 1), seconds(0, 5), kEpochRange, kInvalid, kInvalid},
      {exact(1, 1), {kIndefinite, exact(5, 1)}, seconds(0, 5), kInvalid, kInvalid},
      {kPlusInfinity, seconds(0, 5), {kPlusInfinity, exact(5, 1)}, kInvalid, kInvalid},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(PVTimeMapTimeFromRangeToRange(c.time, c.from, c.to), c.mapped) << c.time << c.from << c.to;
    EXPECT_EQ(PVTimeMapDurationFromRangeToRange(c.time, c.from, c.to), c.mappedDuration)
        << c.time << c.from << c.to;
  }
}

TEST(TimeRangeDictionary, RangesAndMappingsGoThereAndBack) {
  const PVTimeMapping mappings[] = {
      {seconds(0, 10), {rounded(1, 600, 7), kPlusInfinity}}, {kInvalidRange, seconds(5, 5)}, kInvalidMapping};
  for (const PVTimeMapping& mapping : mappings) {
    const auto dictionary = DictionaryRef::adopt(PVTimeMappingCopyAsDictionary(mapping, nullptr));
    EXPECT_EQ(BRDictionaryGetCount(dictionary.get()), 2u);
    EXPECT_EQ(PVTimeMappingMakeFromDictionary(dictionary.get()), mapping);
    const auto target = static_cast<BRDictionaryRef>(BRDictionaryGetValue(dictionary.get(), "target"_br));
    EXPECT_EQ(PVTimeRangeMakeFromDictionary(target), mapping.target);
    const auto start = static_cast<BRDictionaryRef>(BRDictionaryGetValue(target, "start"_br));
    EXPECT_EQ(PVTimeMakeFromDictionary(start), mapping.target.start);
  }
}

TEST(TimeRangeDictionary, UnreadableInputGivesInvalid) {
  const auto range = DictionaryRef::adopt(PVTimeRangeCopyAsDictionary(seconds(1, 2), nullptr));
  const auto withEpoch = DictionaryRef::adopt(PVTimeRangeCopyAsDictionary(kEpochRange, nullptr));
  EXPECT_EQ(PVTimeRangeMakeFromDictionary(withEpoch.get()), kInvalidRange);
  EXPECT_EQ(PVTimeRangeMakeFromDictionary(nullptr), kInvalidRange);
  EXPECT_EQ(PVTimeRangeMakeFromDictionary(reinterpret_cast<BRDictionaryRef>("text"_br)), kInvalidRange);
  EXPECT_EQ(PVTimeMappingMakeFromDictionary(nullptr), kInvalidMapping);
  EXPECT_EQ(PVTimeMappingMakeFromDictionary(range.get()), kInvalidMapping);

  auto pair = br::Ref<BRDictionary>::adopt(BRDictionaryCreateMutable(
      nullptr, 0, &kBRTypeDictionaryKeyCallBacks, &kBRTypeDictionaryValueCallBacks));
  const auto set = [&](BRStringRef key, BRTypeRef value) { BRDictionarySetValue(pair.get(), key, value); };
  set(kPVTimeRangeStartKey, "no time"_br);
  EXPECT_EQ(PVTimeRangeMakeFromDictionary(pair.get()), kInvalidRange);  // no duration
  set(kPVTimeRangeDurationKey, BRDictionaryGetValue(range.get(), kPVTimeRangeDurationKey));
  EXPECT_EQ(PVTimeRangeMakeFromDictionary(pair.get()), (PVTimeRange{kInvalid, exact(2, 1)}));

  set(kPVTimeMappingSourceKey, range.get());
  EXPECT_EQ(PVTimeMappingMakeFromDictionary(pair.get()), kInvalidMapping);  // no target
  set(kPVTimeMappingTargetKey, withEpoch.get());
  EXPECT_EQ(PVTimeMappingMakeFromDictionary(pair.get()), kInvalidMapping);
  set(kPVTimeMappingTargetKey, "no range"_br);
  EXPECT_EQ(PVTimeMappingMakeFromDictionary(pair.get()), (PVTimeMapping{seconds(1, 2), kInvalidRange}));
}

TEST(TimeRangeDescription, NestsTheTimes) {
  const PVTimeMapping mapping = {kInvalidRange, {exact(1, 2), kPlusInfinity}};
  const auto text = StringRef::adopt(PVTimeMappingCopyDescription(nullptr, mapping));
  EXPECT_STREQ(BRStringGetUTF8(text.get()), "{{{INVALID}, {INVALID}}, {{1/2 = 0.500}, {+INFINITY}}}");
  testing::internal::CaptureStderr();
  PVTimeRangeShow(mapping.target);
  PVTimeMappingShow(mapping);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "{{1/2 = 0.500}, {+INFINITY}}\n{{{INVALID}, {INVALID}}, {{1/2 = 0.500}, {+INFINITY}}}\n");
}

TEST(TimeRangeMemory, CopiesAreWholeOrNullOrSayThatTheyFailed) {
  const PVTimeMapping mapping = {seconds(0, 10), seconds(1, 5)};
  walkAllocationFailures([&](BRAllocatorRef allocator) {
    const auto dictionary = DictionaryRef::adopt(PVTimeMappingCopyAsDictionary(mapping, allocator));
    if (!dictionary) return Outcome::kOutOfMemory;
    EXPECT_EQ(PVTimeMappingMakeFromDictionary(dictionary.get()), mapping);
    return Outcome::kSucceeded;
  });
  int errors = 0;
  walkAllocationFailures([&](BRAllocatorRef allocator) {
    const auto text = StringRef::adopt(PVTimeMappingCopyDescription(allocator, mapping));
    if (!text) return Outcome::kOutOfMemory;
    const std::string said = BRStringGetUTF8(text.get());
    if (said.find("{ERROR CONSTRUCTING DESCRIPTION}") != said.npos) return ++errors, Outcome::kOutOfMemory;
    EXPECT_EQ(said, "{{{0/1 = 0.000}, {10/1 = 10.000}}, {{1/1 = 1.000}, {5/1 = 5.000}}}");
    return Outcome::kSucceeded;
  });
  EXPECT_GE(errors, 4);
}

}  // namespace
