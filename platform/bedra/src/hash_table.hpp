// The table under dictionaries and sets.
//
// Representation: one block of storage holds, for `capacity` entries,
//
//   keys[capacity] | values[capacity] (dictionaries only) | hashes[capacity] | slots[slotMask + 1]
//
// Entries stand in order of insertion; a removed one leaves a hole (its hash is 0, a live hash never is) that
// is closed when room is needed. Up to 8 entries there are no slots: a word of tags, one byte of hash for
// each entry, is searched at once. Above that, slots are an open-addressing index with linear probing. A slot
// is 0 when empty; else its low bits (slotMask) are an entry's index + 1 and the bits above are those of the
// entry's hash, so that a probe rarely touches an entry in vain. At most three quarters of the slots are
// taken, so an index + 1 always fits below slotMask.
//
// Callbacks are the program's: a table is in its new state, whole, before a release callback runs, since that
// may lead back here. Growth doubles and depends on nothing but the order of calls.
#ifndef BEDRA_SRC_HASH_TABLE_HPP
#define BEDRA_SRC_HASH_TABLE_HPP

#include <bedra/allocator.h>
#include <bedra/dictionary.h>
#include <bedra/object.hpp>

namespace br {

class HashTable {
 public:
  static constexpr uint32_t kNone = UINT32_MAX;
  static constexpr uint32_t kScannedCapacity = 8;
  static constexpr size_t kMaximumCapacity = size_t{1} << 30;

  static size_t storageBytes(size_t capacity, bool hasValues);

  // Storage is room for `capacity` entries that lives as long as the table. The records outlive
  // the table. valueCallbacks are NULL for a set.
  void open(void* storage, size_t capacity, const BRDictionaryKeyCallBacks* keyCallbacks,
            const BRDictionaryValueCallBacks* valueCallbacks);
  void close(BRAllocatorRef allocator);

  uint32_t count() const { return count_; }
  bool hasValues() const { return valueCallbacks_ != nullptr; }
  const BRDictionaryKeyCallBacks& keyCallbacks() const { return *keyCallbacks_; }
  const BRDictionaryValueCallBacks& valueCallbacks() const { return *valueCallbacks_; }

  // Keys and values are objects, compared as such.
  bool comparesObjects() const {
    return keyKind_ == KeyKind::kObjects && (!hasValues() || valueCallbacks_->equal == BREqual);
  }

  // Entries are walked as `for (i = 0; i < end(); ++i) if (isLive(i)) …`.
  uint32_t end() const { return end_; }
  bool isLive(uint32_t index) const { return hashes_[index] != 0; }
  const void* key(uint32_t index) const { return keys_[index]; }
  const void* value(uint32_t index) const { return values()[index]; }
  uint32_t hash(uint32_t index) const { return hashes_[index]; }

  uint32_t hashOf(const void* key) const;
  // The index of the key's entry, or kNone.
  uint32_t find(const void* key) const;
  // The key's value, or null.
  const void* findValue(const void* key) const;
  uint32_t findHashed(const void* key, uint32_t hash) const;

  // Retains and appends an entry that is known to be missing; false, and nothing changed, when memory runs
  // out.
  bool add(BRAllocatorRef allocator, const void* key, uint32_t hash, const void* value);
  // As add, but takes over the caller's references; there must be room.
  void append(const void* key, uint32_t hash, const void* value);
  bool replaceValue(BRAllocatorRef allocator, uint32_t index, const void* value);
  void remove(BRAllocatorRef allocator, uint32_t index);
  void removeAll(BRAllocatorRef allocator);
  // Makes sure that `capacity` entries fit without another allocation.
  bool reserve(BRAllocatorRef allocator, size_t capacity);
  // Adds every entry of another table whose keys are compared as here, to this empty one.
  bool addAll(BRAllocatorRef allocator, const HashTable& other);

  // Same count, and each key of one is in the other, with an equal value.
  bool equals(const HashTable& other) const;
  // Writes the entries in order; either array may be null.
  void copyOut(const void** keys, const void** values) const;

 private:
  static constexpr uint32_t kUndecided = kNone - 1;
  enum class KeyKind : uint8_t { kIdentity, kObjects, kCustom };

  const void** values() const { return keys_ + capacity_; }
  uint32_t findString(const void* key) const;
  const void* findValueSlowly(const void* key) const;
  template <class Compare>
  uint32_t search(const void* key, uint32_t hash, Compare compare) const;
  bool makeRoom(BRAllocatorRef allocator);
  void useStorage(void* storage, size_t capacity);
  void moveTo(void* storage, size_t capacity);
  bool hasSlots() const { return slotMask_ != 0; }
  void enter(uint32_t index);
  void leave(uint32_t index);
  void releaseAll(BRAllocatorRef allocator) const;

  const void** keys_ = nullptr;
  uint32_t* hashes_ = nullptr;
  union {
    uint32_t* slots_;
    uint64_t tags_ = 0;
  };
  uint32_t slotMask_ = 0;
  uint32_t capacity_ = 0;
  uint32_t end_ = 0;  // entries, holes included
  uint32_t count_ = 0;
  KeyKind keyKind_ = KeyKind::kIdentity;
  bool ownsStorage_ = false;

 public:
  // Levels of containers when a property-list copy made the collection, else 0. Stands here where it costs no
  // room.
  uint16_t propertyListLevels = 0;

 private:
  const BRDictionaryKeyCallBacks* keyCallbacks_ = nullptr;
  const BRDictionaryValueCallBacks* valueCallbacks_ = nullptr;
};

}  // namespace br

#endif
