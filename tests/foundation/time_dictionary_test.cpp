// Times as dictionaries and as text.
#include <imlay/buffer_time.h>

#include "tests/foundation/time_support.hpp"

namespace {

using namespace test;
using namespace br::literals;
using DictionaryRef = br::Ref<const BRDictionary>;
using MutableDictionaryRef = br::Ref<BRDictionary>;

int64_t numberIn(BRDictionaryRef dictionary, BRStringRef key, BRNumberType type) {
  const auto number = static_cast<BRNumberRef>(BRDictionaryGetValue(dictionary, key));
  EXPECT_EQ(BRNumberGetType(number), type);
  int64_t value = -77;
  EXPECT_TRUE(BRNumberGetValue(number, kBRNumberTypeSInt64, &value));
  return value;
}

TEST(TimeDictionary, HoldsFourNumbers) {
  const PVTime time = {kMin, -5, 0x80000003u, kMax};
  const auto dictionary = DictionaryRef::adopt(PVTimeCopyAsDictionary(time, nullptr));
  EXPECT_EQ(BRDictionaryGetCount(dictionary.get()), 4u);
  EXPECT_EQ(numberIn(dictionary.get(), "value"_br, kBRNumberTypeSInt64), kMin);
  EXPECT_EQ(numberIn(dictionary.get(), "timescale"_br, kBRNumberTypeSInt32), -5);
  EXPECT_EQ(numberIn(dictionary.get(), "epoch"_br, kBRNumberTypeSInt64), kMax);
  EXPECT_EQ(numberIn(dictionary.get(), "flags"_br, kBRNumberTypeSInt32), static_cast<int32_t>(0x80000003u));
}

TEST(TimeDictionary, AnyFieldsGoThere_AndBack) {
  for (const PVTime& time : hostileTimes()) {
    const auto dictionary = DictionaryRef::adopt(PVTimeCopyAsDictionary(time, nullptr));
    ASSERT_EQ(PVTimeMakeFromDictionary(dictionary.get()), time);
  }
}

// The dictionary of {1/600}, one entry changed or (with no value) removed.
MutableDictionaryRef changed(BRDictionaryRef dictionary, BRStringRef key, BRTypeRef value) {
  auto copy = MutableDictionaryRef::adopt(BRDictionaryCreateMutableCopy(nullptr, dictionary));
  if (value) {
    BRDictionarySetValue(copy.get(), key, value);
  } else {
    BRDictionaryRemoveValue(copy.get(), key);
  }
  return copy;
}

br::Ref<const BRNumber> numberOf(double value) {
  return br::Ref<const BRNumber>::adopt(BRNumberCreate(nullptr, kBRNumberTypeFloat64, &value));
}

TEST(TimeDictionary, MissingAndIllTypedEntriesGiveInvalid) {
  const auto good = DictionaryRef::adopt(PVTimeCopyAsDictionary(exact(1, 600), nullptr));
  const auto half = numberOf(0.5), seven = numberOf(7), tooLarge = numberOf(0x1p31),
             farTooLarge = numberOf(0x1p63);
  for (BRStringRef key : {kPVTimeValueKey, kPVTimeScaleKey, kPVTimeEpochKey, kPVTimeFlagsKey}) {
    const bool isWide = key == kPVTimeValueKey || key == kPVTimeEpochKey;
    for (BRTypeRef bad : {BRTypeRef{nullptr}, BRTypeRef{"1"_br}, BRTypeRef{kBRBooleanTrue},
                          BRTypeRef{half.get()}, BRTypeRef{(isWide ? farTooLarge : tooLarge).get()}})
      EXPECT_EQ(PVTimeMakeFromDictionary(changed(good.get(), key, bad).get()), kInvalid)
          << BRStringGetUTF8(key);
  }
  EXPECT_EQ(PVTimeMakeFromDictionary(changed(good.get(), kPVTimeValueKey, seven.get()).get()), exact(7, 600));
  EXPECT_EQ(PVTimeMakeFromDictionary(nullptr), kInvalid);
  EXPECT_EQ(PVTimeMakeFromDictionary(reinterpret_cast<BRDictionaryRef>("text"_br)), kInvalid);
}

TEST(TimeDictionary, ImageBufferFormDropsFlagsAndEpoch) {
  const auto dictionary =
      DictionaryRef::adopt(PVTimeCopyAsIMBufferTimeDictionary(rounded(kMin, 600, 7), nullptr));
  EXPECT_EQ(BRDictionaryGetCount(dictionary.get()), 2u);
  EXPECT_EQ(numberIn(dictionary.get(), kIMBufferTimeValueKey, kBRNumberTypeSInt64), kMin);
  EXPECT_EQ(numberIn(dictionary.get(), kIMBufferTimeScaleKey, kBRNumberTypeSInt32), 600);
  EXPECT_EQ(PVTimeMakeFromIMBufferTimeDictionary(dictionary.get()), exact(kMin, 600));
  for (BRStringRef key : {kIMBufferTimeValueKey, kIMBufferTimeScaleKey})
    EXPECT_EQ(PVTimeMakeFromIMBufferTimeDictionary(changed(dictionary.get(), key, nullptr).get()), kInvalid);
  EXPECT_EQ(PVTimeMakeFromIMBufferTimeDictionary(nullptr), kInvalid);
  for (const PVTime& time : {kInvalid, kIndefinite, kPlusInfinity, kMinusInfinity})
    EXPECT_EQ(PVTimeCopyAsIMBufferTimeDictionary(time, nullptr), nullptr);
}

TEST(TimeDescription, Table) {
  struct Case {
    PVTime time;
    const char* text;
  };
  const Case cases[] = {
      {kInvalid, "{INVALID}"},
      {{1, 1, 2, 0}, "{INVALID}"},
      {kIndefinite, "{INDEFINITE}"},
      {{0, 0, 21, 0}, "{INDEFINITE}"},
      {kPlusInfinity, "{+INFINITY}"},
      {{0, 0, 13, 0}, "{+INFINITY}"},
      {kMinusInfinity, "{-INFINITY}"},
      {exact(1, 2), "{1/2 = 0.500}"},
      {rounded(1, 2, 4), "{1/2 = 0.500, epoch=4, rounded}"},
      {exact(-1001, 30000, -1), "{-1001/30000 = -0.033, epoch=-1}"},
      {exact(kMin, 1), "{-9223372036854775808/1 = -9223372036854775808.000}"},
      {{1, 2, 33, 0}, "{1/2 = 0.500, flags=0x00000021}"},
      {{1, 2, 35, 0}, "{1/2 = 0.500, rounded, flags=0x00000023}"},
      {exact(1, 0), "{1/0 = inf}"},
  };
  for (const Case& c : cases) {
    const auto text = br::Ref<const BRString>::adopt(PVTimeCopyDescription(nullptr, c.time));
    EXPECT_STREQ(BRStringGetUTF8(text.get()), c.text);
    testing::internal::CaptureStderr();
    PVTimeShow(c.time);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), std::string(c.text) + "\n");
  }
}

TEST(TimeMemory, CopiesAreWholeOrNull) {
  const PVTime time = {kMin, INT32_MAX, 0xFFFFFFE3u, kMin};
  EXPECT_GE(walkAllocationFailures([&](BRAllocatorRef allocator) {
              const auto dictionary = DictionaryRef::adopt(PVTimeCopyAsDictionary(time, allocator));
              if (!dictionary) return Outcome::kOutOfMemory;
              EXPECT_EQ(PVTimeMakeFromDictionary(dictionary.get()), time);
              return Outcome::kSucceeded;
            }),
            5);
  EXPECT_GE(walkAllocationFailures([&](BRAllocatorRef allocator) {
              const auto dictionary =
                  DictionaryRef::adopt(PVTimeCopyAsIMBufferTimeDictionary(exact(1, 2), allocator));
              return dictionary ? Outcome::kSucceeded : Outcome::kOutOfMemory;
            }),
            3);
  EXPECT_GE(walkAllocationFailures([&](BRAllocatorRef allocator) {
              const auto text = br::Ref<const BRString>::adopt(PVTimeCopyDescription(allocator, time));
              if (!text) return Outcome::kOutOfMemory;
              EXPECT_STREQ(
                  BRStringGetUTF8(text.get()),
                  "{-9223372036854775808/2147483647 = -4294967298.000, epoch=-9223372036854775808, rounded, "
                  "flags=0xffffffe3}");
              return Outcome::kSucceeded;
            }),
            2);
}

}  // namespace
