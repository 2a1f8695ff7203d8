// The object around a hash table: what dictionaries and sets have in common.
//
// Behind the object stand copies of the callback records that are not known to be constant, then the table's
// first storage. Flag kClassFlag0 marks a mutable collection.
#ifndef BEDRA_SRC_HASH_COLLECTION_HPP
#define BEDRA_SRC_HASH_COLLECTION_HPP

#include "src/hash_table.hpp"
#include "src/internal.hpp"

namespace br {

// The record that spells out a NULL one.
extern const BRDictionaryKeyCallBacks kUnretainedKeyCallBacks;
extern const BRDictionaryValueCallBacks kUnretainedValueCallBacks;

struct HashCollection : BRObject {
  ~HashCollection() { table.close(BRGetAllocator(this)); }
  bool isMutable() const { return hasFlag(kClassFlag0); }

  HashTable table;
};

// The bytes that hold copies of the records behind a collection.
size_t recordBytes(const BRDictionaryKeyCallBacks* keyCallbacks,
                   const BRDictionaryValueCallBacks* valueCallbacks);
// Lays out the room behind a new collection.
void openCollection(HashCollection* collection, void* room, size_t capacity,
                    const BRDictionaryKeyCallBacks* keyCallbacks,
                    const BRDictionaryValueCallBacks* valueCallbacks);

// An empty collection with inline room for `capacity` entries. NULL records are spelled out; valueCallbacks
// are ignored for a set.
template <class T>
T* createCollection(BRAllocatorRef allocator, size_t capacity, const BRDictionaryKeyCallBacks* keyCallbacks,
                    const BRDictionaryValueCallBacks* valueCallbacks, bool isMutable) {
  if (!keyCallbacks) keyCallbacks = &kUnretainedKeyCallBacks;
  if (!T::kHasValues)
    valueCallbacks = nullptr;
  else if (!valueCallbacks)
    valueCallbacks = &kUnretainedValueCallBacks;
  if (keyCallbacks->version != 0 || (valueCallbacks && valueCallbacks->version != 0)) return nullptr;
  if (capacity > HashTable::kMaximumCapacity) return nullptr;
  T* collection = createUnfilled<T>(allocator, recordBytes(keyCallbacks, valueCallbacks) +
                                                   HashTable::storageBytes(capacity, T::kHasValues));
  if (!collection) return nullptr;
  if (isMutable) collection->flags |= kClassFlag0;
  openCollection(collection, collection + 1, capacity, keyCallbacks, valueCallbacks);
  return collection;
}

// A mutable collection starts with inline room for a few entries; a larger wish gets a block of its own.
template <class T>
T* createMutableCollection(BRAllocatorRef allocator, size_t capacity,
                           const BRDictionaryKeyCallBacks* keyCallbacks,
                           const BRDictionaryValueCallBacks* valueCallbacks) {
  constexpr size_t kInlineCapacity = 4;
  const size_t inlineCapacity = capacity <= kInlineCapacity               ? kInlineCapacity
                                : capacity <= HashTable::kScannedCapacity ? HashTable::kScannedCapacity
                                                                          : 0;
  T* collection = createCollection<T>(allocator, inlineCapacity, keyCallbacks, valueCallbacks, true);
  if (collection && !collection->table.reserve(BRGetAllocator(collection), capacity)) {
    BRRelease(collection);
    return nullptr;
  }
  return collection;
}

// A copy with the same callbacks.
template <class T>
T* copyCollection(BRAllocatorRef allocator, const T* source, bool isMutable) {
  const HashTable& from = source->table;
  const BRDictionaryValueCallBacks* valueCallbacks = from.hasValues() ? &from.valueCallbacks() : nullptr;
  T* copy = isMutable
                ? createMutableCollection<T>(allocator, from.count(), &from.keyCallbacks(), valueCallbacks)
                : createCollection<T>(allocator, from.count(), &from.keyCallbacks(), valueCallbacks, false);
  if (copy && !copy->table.addAll(BRGetAllocator(copy), from)) {
    BRRelease(copy);
    return nullptr;
  }
  return copy;
}

}  // namespace br

#endif
