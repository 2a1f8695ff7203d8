#include "formats/extensions.hpp"

#include <cstdint>

namespace pv {

namespace {

template <class Ref>
Ref as(BRTypeRef value, BRTypeID type) {
  return value && BRGetTypeID(value) == type ? static_cast<Ref>(const_cast<void*>(value)) : nullptr;
}

}  // namespace

BRDictionaryRef asDictionary(BRTypeRef value) { return as<BRDictionaryRef>(value, BRDictionaryGetTypeID()); }

BRNumberRef asNumber(BRTypeRef value) { return as<BRNumberRef>(value, BRNumberGetTypeID()); }

BRStringRef asString(BRTypeRef value) { return as<BRStringRef>(value, BRStringGetTypeID()); }

BRDataRef asData(BRTypeRef value) { return as<BRDataRef>(value, BRDataGetTypeID()); }

void DictionaryBuilder::setInteger(BRStringRef key, int64_t value) {
  const auto narrow = static_cast<int32_t>(value);
  const auto number = br::Ref<const BRNumber>::adopt(
      narrow == value ? BRNumberCreate(allocator_, kBRNumberTypeSInt32, &narrow)
                      : BRNumberCreate(allocator_, kBRNumberTypeSInt64, &value));
  set(key, number);
}

void DictionaryBuilder::setReal(BRStringRef key, double value) {
  set(key, br::Ref<const BRNumber>::adopt(BRNumberCreate(allocator_, kBRNumberTypeFloat64, &value)));
}

void DictionaryBuilder::setData(BRStringRef key, const void* bytes, size_t length) {
  set(key, br::Ref<const BRData>::adopt(BRDataCreate(allocator_, bytes, length)));
}

void DictionaryBuilder::setText(BRStringRef key, const void* bytes, size_t length) {
  set(key, br::Ref<const BRString>::adopt(
               BRStringCreateWithBytes(allocator_, bytes, length, kBRStringEncodingWesternRoman)));
}

}  // namespace pv
