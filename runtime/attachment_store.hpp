// Where an object of this library keeps its attachments: one dictionary per mode, made when first needed. A
// key is in at most one of them. The object's own header says which threads may come here.
#ifndef PEVRIN_RUNTIME_ATTACHMENT_STORE_HPP
#define PEVRIN_RUNTIME_ATTACHMENT_STORE_HPP

#include <bedra/base.h>

#include <bedra/ref.hpp>

namespace pv {

class AttachmentStore {
 public:
  // Modes are 0 and 1, as the interface of attachments numbers them.
  static constexpr uint32_t kModes = 2;

  // Sets a key's value and mode; a null value removes the key. An unknown mode and running out of memory
  // change nothing and are signalled.
  // False when it was not set.
  bool set(BRAllocatorRef allocator, BRStringRef key, BRTypeRef value, uint32_t mode);
  // Borrowed, or null; the mode is written only with a value.
  BRTypeRef get(BRStringRef key, uint32_t* modeOut) const;
  void remove(BRStringRef key);
  void removeAll();
  // An immutable copy, or null when there is nothing of that mode.
  BRDictionaryRef copy(BRAllocatorRef allocator, uint32_t mode) const;
  // Takes copies of the other store's attachments of a mode, in place of its own. False when memory runs out.
  bool copyMode(BRAllocatorRef allocator, const AttachmentStore& other, uint32_t mode);
  bool isEmpty() const { return !modes_[0] && !modes_[1]; }
  // Borrowed, may be null.
  BRDictionaryRef dictionary(uint32_t mode) const { return modes_[mode].get(); }

 private:
  br::Ref<BRDictionary> modes_[kModes];
};

}  // namespace pv

#endif
