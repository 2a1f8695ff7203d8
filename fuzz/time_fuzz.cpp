// Time arithmetic over arbitrary fields: nothing traps or hangs, and the laws that hold for any fields hold.
#include <bedra/runtime.h>
#include <pevrin/time_range.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

struct Input {
  PVTime a, b, c;
  double factor;
  int32_t multiplier, divisor;
  uint32_t method;
  uint32_t kinds;  // two bits each: a number is likelier than chance would have it
};

PVTime shaped(PVTime time, uint32_t kind) {
  if (kind & 1) time.flags = 1 | (time.flags & 2);
  if (kind & 2) time.timescale = 1 + (time.timescale & 0xFFFFF);
  return time;
}

void require(bool law) { return law ? void() : std::abort(); }

bool isSame(const PVTime& a, const PVTime& b) {
  return a.value == b.value && a.timescale == b.timescale && a.flags == b.flags && a.epoch == b.epoch;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input in;
  if (size < sizeof in) return 0;
  std::memcpy(&in, data, sizeof in);
  const PVTime a = shaped(in.a, in.kinds), b = shaped(in.b, in.kinds >> 2), c = shaped(in.c, in.kinds >> 4);

  const int32_t ab = PVTimeCompare(a, b), bc = PVTimeCompare(b, c);
  require(ab == -PVTimeCompare(b, a) && PVTimeCompare(a, a) == 0);
  if (ab <= 0 && bc <= 0) require(PVTimeCompare(a, c) == (ab == 0 && bc == 0 ? 0 : -1));
  const PVTime sum = PVTimeAdd(a, b), difference = PVTimeSubtract(sum, b);
  require(PVTimeIsNumeric(sum) == PVTimeIsNumeric(PVTimeAdd(b, a)));
  if (a.timescale >= 1 && b.timescale >= 1 && a.epoch == 0 && b.epoch == 0 && PVTimeIsNumeric(difference) &&
      !PVTimeHasBeenRounded(difference))
    require(PVTimeCompare(difference, a) == 0);
  const PVTime converted = PVTimeConvertScale(a, in.multiplier, in.method);
  if (!PVTimeHasBeenRounded(converted) && PVTimeIsNumeric(converted) && a.timescale >= 1)
    require(PVTimeCompare(converted, a) == 0);
  PVTimeMultiplyByRatio(a, in.multiplier, in.divisor);
  PVTimeMultiply(a, in.multiplier);
  PVTimeMultiplyByFloat64(a, in.factor);
  PVTimeAbsoluteValue(a);
  PVTimeMakeWithSeconds(in.factor, in.multiplier);
  PVTimeClampToRange(c, {a, b});
  PVTimeMapTimeFromRangeToRange(c, {a, b}, {sum, difference});
  BRRelease(PVTimeRangeCopyDescription(nullptr, {a, b}));
  const BRDictionaryRef dictionary = PVTimeCopyAsDictionary(a, nullptr);
  require(isSame(PVTimeMakeFromDictionary(dictionary), a));
  BRRelease(dictionary);
  return 0;
}
