// Times as dictionaries and as text.
#include <bedra/number.h>
#include <imlay/buffer_time.h>
#include <pevrin/time.h>
#include <bedra/literal.hpp>
#include <bedra/ref.hpp>

#include <cstdio>

#include "foundation/time_forms.hpp"
#include "foundation/time_math.hpp"

using namespace br::literals;

extern "C" {
constinit const BRStringRef kPVTimeValueKey = "value"_br;
constinit const BRStringRef kPVTimeScaleKey = "timescale"_br;
constinit const BRStringRef kPVTimeEpochKey = "epoch"_br;
constinit const BRStringRef kPVTimeFlagsKey = "flags"_br;
}

namespace {

using StringRef = br::Ref<BRString>;
using NumberRef = br::Ref<const BRNumber>;

constexpr size_t kShownBytes = 512;

NumberRef number(BRAllocatorRef allocator, const int64_t& value) {
  return NumberRef::adopt(BRNumberCreate(allocator, kBRNumberTypeSInt64, &value));
}
NumberRef number(BRAllocatorRef allocator, const int32_t& value) {
  return NumberRef::adopt(BRNumberCreate(allocator, kBRNumberTypeSInt32, &value));
}

// A dictionary of the numbers under the keys; null when it or one of them could not be made.
template <size_t N>
BRDictionaryRef dictionaryOf(BRAllocatorRef allocator, const BRStringRef (&keys)[N],
                             const NumberRef (&numbers)[N]) {
  const void* keyPointers[N];
  const void* values[N];
  for (size_t i = 0; i < N; ++i) {
    if (!numbers[i]) return nullptr;
    keyPointers[i] = keys[i];
    values[i] = numbers[i].get();
  }
  return BRDictionaryCreate(allocator, keyPointers, values, N, &kBRTypeDictionaryKeyCallBacks,
                            &kBRTypeDictionaryValueCallBacks);
}

bool read(BRDictionaryRef dictionary, BRStringRef key, BRNumberType type, void* value) {
  const BRTypeRef found = pv::valueInDictionary(dictionary, key);
  return found && BRGetTypeID(found) == BRNumberGetTypeID() &&
         BRNumberGetValue(static_cast<BRNumberRef>(found), type, value);
}
bool read(BRDictionaryRef dictionary, BRStringRef key, int64_t* value) {
  return read(dictionary, key, kBRNumberTypeSInt64, value);
}
bool read(BRDictionaryRef dictionary, BRStringRef key, int32_t* value) {
  return read(dictionary, key, kBRNumberTypeSInt32, value);
}

bool append(BRMutableStringRef string, const char* text) {
  return BRStringAppendCString(string, text, kBRStringEncodingUTF8);
}

bool appendNumeric(BRMutableStringRef string, const PVTime& time) {
  if (!BRStringAppendFormat(string, "{%lld/%d = %1.3f", static_cast<long long>(time.value), time.timescale,
                            PVTimeGetSeconds(time)))
    return false;
  if (time.epoch != 0 && !BRStringAppendFormat(string, ", epoch=%lld", static_cast<long long>(time.epoch)))
    return false;
  if ((time.flags & 31) == 3 && !append(string, ", rounded")) return false;
  if (time.flags > 3 && !BRStringAppendFormat(string, ", flags=0x%08x", time.flags)) return false;
  return append(string, "}");
}

bool appendDescription(BRMutableStringRef string, const PVTime& time) {
  if (pv::isInvalid(time)) return append(string, "{INVALID}");
  if (pv::isIndefinite(time)) return append(string, "{INDEFINITE}");
  if (pv::isPositiveInfinity(time)) return append(string, "{+INFINITY}");
  if (pv::isNegativeInfinity(time)) return append(string, "{-INFINITY}");
  if (pv::isNumeric(time)) return appendNumeric(string, time);
  return append(string, "{UNKNOWN}");
}

}  // namespace

BRTypeRef pv::valueInDictionary(BRTypeRef dictionary, BRStringRef key) {
  if (!dictionary || BRGetTypeID(dictionary) != BRDictionaryGetTypeID()) return nullptr;
  return BRDictionaryGetValue(static_cast<BRDictionaryRef>(dictionary), key);
}

void pv::showAndRelease(BRStringRef description) {
  char line[kShownBytes];
  if (description && BRStringGetCString(description, line, sizeof line, kBRStringEncodingWesternRoman))
    std::fprintf(stderr, "%s\n", line);
  BRRelease(description);
}

BRDictionaryRef PVTimeCopyAsDictionary(PVTime time, BRAllocatorRef allocator) {
  const BRStringRef keys[] = {kPVTimeValueKey, kPVTimeScaleKey, kPVTimeEpochKey, kPVTimeFlagsKey};
  const NumberRef numbers[] = {number(allocator, time.value), number(allocator, time.timescale),
                               number(allocator, time.epoch),
                               number(allocator, static_cast<int32_t>(time.flags))};
  return dictionaryOf(allocator, keys, numbers);
}

PVTime PVTimeMakeFromDictionary(BRDictionaryRef dictionary) {
  PVTime time;
  int32_t flags;
  if (!read(dictionary, kPVTimeValueKey, &time.value) ||
      !read(dictionary, kPVTimeScaleKey, &time.timescale) ||
      !read(dictionary, kPVTimeEpochKey, &time.epoch) || !read(dictionary, kPVTimeFlagsKey, &flags))
    return pv::kInvalid;
  time.flags = static_cast<uint32_t>(flags);
  return time;
}

BRDictionaryRef PVTimeCopyAsIMBufferTimeDictionary(PVTime time, BRAllocatorRef allocator) {
  if (!pv::isNumeric(time)) return nullptr;
  const BRStringRef keys[] = {kIMBufferTimeValueKey, kIMBufferTimeScaleKey};
  const NumberRef numbers[] = {number(allocator, time.value), number(allocator, time.timescale)};
  return dictionaryOf(allocator, keys, numbers);
}

PVTime PVTimeMakeFromIMBufferTimeDictionary(BRDictionaryRef dictionary) {
  PVTime time = {0, 0, kPVTimeFlags_Valid, 0};
  if (!read(dictionary, kIMBufferTimeValueKey, &time.value) ||
      !read(dictionary, kIMBufferTimeScaleKey, &time.timescale))
    return pv::kInvalid;
  return time;
}

BRStringRef PVTimeCopyDescription(BRAllocatorRef allocator, PVTime time) {
  StringRef string = StringRef::adopt(BRStringCreateMutable(allocator, 0));
  if (!string || !appendDescription(string.get(), time)) return nullptr;
  return string.detach();
}

void PVTimeShow(PVTime time) { pv::showAndRelease(PVTimeCopyDescription(nullptr, time)); }
