// Ranges and mappings as dictionaries and as text: pairs of what times are as such.
#include <pevrin/time_range.h>
#include <bedra/literal.hpp>
#include <bedra/ref.hpp>

#include "foundation/time_forms.hpp"
#include "foundation/time_math.hpp"

using namespace br::literals;

extern "C" {
constinit const BRStringRef kPVTimeRangeStartKey = "start"_br;
constinit const BRStringRef kPVTimeRangeDurationKey = "duration"_br;
constinit const BRStringRef kPVTimeMappingSourceKey = "source"_br;
constinit const BRStringRef kPVTimeMappingTargetKey = "target"_br;
}

namespace {

using DictionaryRef = br::Ref<const BRDictionary>;
using StringRef = br::Ref<const BRString>;

// A dictionary of two dictionaries, which it takes over; null when one of them is.
BRDictionaryRef dictionaryOfPair(BRAllocatorRef allocator, BRStringRef key1, BRDictionaryRef value1,
                                 BRStringRef key2, BRDictionaryRef value2) {
  const DictionaryRef owned1 = DictionaryRef::adopt(value1), owned2 = DictionaryRef::adopt(value2);
  if (!owned1 || !owned2) return nullptr;
  const void* keys[] = {key1, key2};
  const void* values[] = {value1, value2};
  return BRDictionaryCreate(allocator, keys, values, 2, &kBRTypeDictionaryKeyCallBacks,
                            &kBRTypeDictionaryValueCallBacks);
}

// The values under both keys. False when one is missing.
bool readPair(BRTypeRef dictionary, BRStringRef key1, BRTypeRef* value1, BRStringRef key2,
              BRTypeRef* value2) {
  *value1 = pv::valueInDictionary(dictionary, key1);
  *value2 = pv::valueInDictionary(dictionary, key2);
  return *value1 && *value2;
}

// The range as it is written, an epoch in its duration included.
PVTimeRange readRange(BRTypeRef dictionary) {
  BRTypeRef start, duration;
  if (!readPair(dictionary, kPVTimeRangeStartKey, &start, kPVTimeRangeDurationKey, &duration))
    return kPVTimeRangeInvalid;
  return {PVTimeMakeFromDictionary(static_cast<BRDictionaryRef>(start)),
          PVTimeMakeFromDictionary(static_cast<BRDictionaryRef>(duration))};
}

bool appendPair(BRMutableStringRef string, BRStringRef first, BRStringRef second) {
  if (!first || !second)
    return BRStringAppendCString(string, "{ERROR CONSTRUCTING DESCRIPTION}", kBRStringEncodingUTF8);
  return BRStringAppendFormat(string, "{%@, %@}", first, second);
}

// "{first, second}"; takes over both.
BRStringRef copyPairDescription(BRAllocatorRef allocator, BRStringRef first, BRStringRef second) {
  const StringRef owned1 = StringRef::adopt(first), owned2 = StringRef::adopt(second);
  br::Ref<BRString> string = br::Ref<BRString>::adopt(BRStringCreateMutable(allocator, 0));
  if (!string || !appendPair(string.get(), first, second)) return nullptr;
  return string.detach();
}

}  // namespace

BRDictionaryRef PVTimeRangeCopyAsDictionary(PVTimeRange range, BRAllocatorRef allocator) {
  return dictionaryOfPair(allocator, kPVTimeRangeStartKey, PVTimeCopyAsDictionary(range.start, allocator),
                          kPVTimeRangeDurationKey, PVTimeCopyAsDictionary(range.duration, allocator));
}

PVTimeRange PVTimeRangeMakeFromDictionary(BRDictionaryRef dictionary) {
  const PVTimeRange range = readRange(dictionary);
  return PVTimeRangeMake(range.start, range.duration);
}

BRDictionaryRef PVTimeMappingCopyAsDictionary(PVTimeMapping mapping, BRAllocatorRef allocator) {
  return dictionaryOfPair(allocator, kPVTimeMappingSourceKey,
                          PVTimeRangeCopyAsDictionary(mapping.source, allocator), kPVTimeMappingTargetKey,
                          PVTimeRangeCopyAsDictionary(mapping.target, allocator));
}

PVTimeMapping PVTimeMappingMakeFromDictionary(BRDictionaryRef dictionary) {
  BRTypeRef source, target;
  if (!readPair(dictionary, kPVTimeMappingSourceKey, &source, kPVTimeMappingTargetKey, &target))
    return kPVTimeMappingInvalid;
  return PVTimeMappingMake(readRange(source), readRange(target));
}

BRStringRef PVTimeRangeCopyDescription(BRAllocatorRef allocator, PVTimeRange range) {
  return copyPairDescription(allocator, PVTimeCopyDescription(allocator, range.start),
                             PVTimeCopyDescription(allocator, range.duration));
}

BRStringRef PVTimeMappingCopyDescription(BRAllocatorRef allocator, PVTimeMapping mapping) {
  return copyPairDescription(allocator, PVTimeRangeCopyDescription(allocator, mapping.source),
                             PVTimeRangeCopyDescription(allocator, mapping.target));
}

void PVTimeRangeShow(PVTimeRange range) { pv::showAndRelease(PVTimeRangeCopyDescription(nullptr, range)); }

void PVTimeMappingShow(PVTimeMapping mapping) {
  pv::showAndRelease(PVTimeMappingCopyDescription(nullptr, mapping));
}
