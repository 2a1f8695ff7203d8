// Extension dictionaries: building them, and reading numbers out of them.
#ifndef PEVRIN_FORMATS_EXTENSIONS_HPP
#define PEVRIN_FORMATS_EXTENSIONS_HPP

#include <bedra/data.h>
#include <bedra/dictionary.h>
#include <bedra/number.h>
#include <bedra/string.h>

#include <bedra/ref.hpp>

namespace pv {

// The value as a dictionary, number, string or data; null when it is something else, or nothing.
BRDictionaryRef asDictionary(BRTypeRef value);
BRNumberRef asNumber(BRTypeRef value);
BRStringRef asString(BRTypeRef value);
BRDataRef asData(BRTypeRef value);

// The low bits of the whole number under a key, as the machine narrows it: 200 as an int8_t is -56. False,
// with nothing written, when there is no number.
template <class Word>
bool getInteger(BRDictionaryRef dictionary, BRStringRef key, Word* out) {
  BRNumberRef number = asNumber(BRDictionaryGetValue(dictionary, key));
  if (!number) return false;
  int64_t value = 0;
  BRNumberGetValue(number, kBRNumberTypeSInt64, &value);
  *out = static_cast<Word>(value);
  return true;
}

// A dictionary under construction, with strings for keys. Running out of memory is remembered: build straight
// through and ask once.
class DictionaryBuilder {
 public:
  explicit DictionaryBuilder(BRAllocatorRef allocator)
      : allocator_(allocator),
        dictionary_(br::Ref<BRDictionary>::adopt(BRDictionaryCreateMutable(
            allocator, 0, &kBRTypeDictionaryKeyCallBacks, &kBRTypeDictionaryValueCallBacks))),
        ok_(dictionary_.get() != nullptr) {}

  // False once memory ran out.
  bool ok() const { return ok_; }
  BRAllocatorRef allocator() const { return allocator_; }
  // Null when nothing was set, or memory ran out.
  BRDictionaryRef get() const {
    return ok_ && BRDictionaryGetCount(dictionary_.get()) ? dictionary_.get() : nullptr;
  }

  // A null value is one that there was no memory for.
  void set(BRStringRef key, BRTypeRef value) {
    ok_ = ok_ && value && BRDictionarySetValue(dictionary_.get(), key, value);
  }
  template <class T>
  void set(BRStringRef key, const br::Ref<T>& value) {
    set(key, value.get());
  }
  void setInteger(BRStringRef key, int64_t value);  // 32 bits wide when it fits
  void setReal(BRStringRef key, double value);
  void setBoolean(BRStringRef key, bool value) { set(key, value ? kBRBooleanTrue : kBRBooleanFalse); }
  void setData(BRStringRef key, const void* bytes, size_t length);
  // In Western Roman, of which every byte is a character.
  void setText(BRStringRef key, const void* bytes, size_t length);
  // The other dictionary, unless it is empty.
  void setDictionary(BRStringRef key, const DictionaryBuilder& value) {
    ok_ = ok_ && value.ok();
    if (value.get()) set(key, value.get());
  }
  // Fails as if memory had run out.
  void fail() { ok_ = false; }

 private:
  BRAllocatorRef allocator_;
  br::Ref<BRDictionary> dictionary_;
  bool ok_;
};

}  // namespace pv

#endif
