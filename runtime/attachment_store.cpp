// The two dictionaries of an attachment bearer.
#include "runtime/attachment_store.hpp"

#include <bedra/dictionary.h>

#include "runtime/error.hpp"

namespace pv {

bool AttachmentStore::set(BRAllocatorRef allocator, BRStringRef key, BRTypeRef value, uint32_t mode) {
  if (!value) {
    remove(key);
    return true;
  }
  if (mode >= kModes) {
    signalError(0);
    return false;
  }
  br::Ref<BRDictionary>& wanted = modes_[mode];
  if (!wanted)
    wanted = br::Ref<BRDictionary>::adopt(BRDictionaryCreateMutable(
        allocator, 0, &kBRCopyStringDictionaryKeyCallBacks, &kBRTypeDictionaryValueCallBacks));
  // Into the one before out of the other: when memory runs out the key stays as it was.
  if (!BRDictionarySetValue(wanted.get(), key, value)) {
    signalError(0);
    return false;
  }
  BRDictionaryRemoveValue(modes_[1 - mode].get(), key);
  return true;
}

BRTypeRef AttachmentStore::get(BRStringRef key, uint32_t* modeOut) const {
  for (uint32_t mode = 0; mode < kModes; ++mode)
    if (BRTypeRef value = BRDictionaryGetValue(modes_[mode].get(), key)) {
      if (modeOut) *modeOut = mode;
      return value;
    }
  return nullptr;
}

void AttachmentStore::remove(BRStringRef key) {
  // A key is in one mode only, and may have lived by that entry: it is not looked at again.
  for (auto& attachments : modes_)
    if (BRDictionaryRemoveValue(attachments.get(), key)) return;
}

void AttachmentStore::removeAll() {
  for (auto& attachments : modes_) attachments = nullptr;
}

bool AttachmentStore::copyMode(BRAllocatorRef allocator, const AttachmentStore& other, uint32_t mode) {
  BRDictionaryRef theirs = other.modes_[mode].get();
  modes_[mode] =
      br::Ref<BRDictionary>::adopt(theirs ? BRDictionaryCreateMutableCopy(allocator, theirs) : nullptr);
  return !theirs || modes_[mode];
}

BRDictionaryRef AttachmentStore::copy(BRAllocatorRef allocator, uint32_t mode) const {
  if (mode >= kModes || BRDictionaryGetCount(modes_[mode].get()) == 0) return nullptr;
  return BRDictionaryCreateCopy(allocator, modes_[mode].get());
}

}  // namespace pv
