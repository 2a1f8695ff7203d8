// Sets: a hash table of keys alone in an object.
#include <bedra/set.h>

#include "src/collection_text.hpp"
#include "src/hash_collection.hpp"

struct BRSet : br::HashCollection {
  static constexpr const char* className = "BRSet";
  static constexpr bool kHasValues = false;

  bool equals(const BRSet& other) const { return table.equals(other.table); }
  BRHashCode hash() const { return table.count(); }
  BRStringRef copyDescription() const;
};

namespace {

using br::HashTable;

const void* retainObject(BRAllocatorRef, const void* object) { return BRRetain(object); }
void releaseObject(BRAllocatorRef, const void* object) { BRRelease(object); }

}  // namespace

extern "C" {
constinit const BRSetCallBacks kBRTypeSetCallBacks = {0,       retainObject, releaseObject, BRCopyDescription,
                                                      BREqual, BRHash};
}

BRStringRef BRSet::copyDescription() const {
  br::CollectionText text({'{', '}', ",", ""}, table.count());
  for (uint32_t i = 0; i < table.end(); ++i) {
    if (!table.isLive(i)) continue;
    if (!text.next()) break;
    text.append(table.key(i), table.keyCallbacks().copyDescription);
  }
  return text.finish();
}

BRTypeID BRSetGetTypeID(void) { return br::typeID<BRSet>(); }

BRSetRef BRSetCreate(BRAllocatorRef allocator, const void* const* values, size_t count,
                     const BRSetCallBacks* callbacks) {
  if (count > 0 && !values) return nullptr;
  auto* set = br::createCollection<BRSet>(allocator, count, callbacks, nullptr, false);
  if (!set) return nullptr;
  for (size_t i = 0; i < count; ++i) {
    const uint32_t hash = set->table.hashOf(values[i]);
    if (set->table.findHashed(values[i], hash) != HashTable::kNone) continue;
    if (set->table.add(BRGetAllocator(set), values[i], hash, nullptr)) continue;
    BRRelease(set);
    return nullptr;
  }
  return set;
}

BRSetRef BRSetCreateCopy(BRAllocatorRef allocator, BRSetRef set) {
  if (!set) return nullptr;
  if (!set->isMutable() && br::sameAllocator(set, allocator)) return static_cast<BRSetRef>(BRRetain(set));
  return br::copyCollection(allocator, set, false);
}

BRMutableSetRef BRSetCreateMutable(BRAllocatorRef allocator, size_t capacity,
                                   const BRSetCallBacks* callbacks) {
  return br::createMutableCollection<BRSet>(allocator, capacity, callbacks, nullptr);
}

BRMutableSetRef BRSetCreateMutableCopy(BRAllocatorRef allocator, BRSetRef set) {
  return set ? br::copyCollection(allocator, set, true) : nullptr;
}

size_t BRSetGetCount(BRSetRef set) { return set ? set->table.count() : 0; }

bool BRSetContainsValue(BRSetRef set, const void* value) {
  return set && set->table.find(value) != HashTable::kNone;
}

const void* BRSetGetValue(BRSetRef set, const void* value) {
  const uint32_t index = set ? set->table.find(value) : HashTable::kNone;
  return index != HashTable::kNone ? set->table.key(index) : nullptr;
}

void BRSetGetValues(BRSetRef set, const void** values) {
  if (set && values) set->table.copyOut(values, nullptr);
}

void BRSetApply(BRSetRef set, BRSetApplier applier, void* context) {
  if (!set || !applier) return;
  const HashTable& table = set->table;
  for (uint32_t i = 0; i < table.end(); ++i)
    if (table.isLive(i)) applier(table.key(i), context);
}

bool BRSetAddValue(BRMutableSetRef set, const void* value) {
  if (!set || !set->isMutable()) return false;
  const uint32_t hash = set->table.hashOf(value);
  if (set->table.findHashed(value, hash) != HashTable::kNone) return false;
  return set->table.add(BRGetAllocator(set), value, hash, nullptr);
}

bool BRSetRemoveValue(BRMutableSetRef set, const void* value) {
  if (!set || !set->isMutable()) return false;
  const uint32_t index = set->table.find(value);
  if (index == HashTable::kNone) return false;
  set->table.remove(BRGetAllocator(set), index);
  return true;
}

void BRSetRemoveAllValues(BRMutableSetRef set) {
  if (set && set->isMutable()) set->table.removeAll(BRGetAllocator(set));
}
