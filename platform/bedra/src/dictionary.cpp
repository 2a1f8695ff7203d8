#include "src/dictionary.hpp"

#include <bedra/string.h>

#include "src/collection_text.hpp"

namespace {

using br::HashTable;

const void* copyString(BRAllocatorRef allocator, const void* string) {
  return BRStringCreateCopy(allocator, static_cast<BRStringRef>(string));
}

BRAllocatorRef allocatorOf(BRDictionaryRef dictionary) { return BRGetAllocator(dictionary); }

}  // namespace

const void* br::retainObject(BRAllocatorRef, const void* object) { return BRRetain(object); }
void br::releaseObject(BRAllocatorRef, const void* object) { BRRelease(object); }

extern "C" {
constinit const BRDictionaryKeyCallBacks kBRTypeDictionaryKeyCallBacks = {
    0, br::retainObject, br::releaseObject, BRCopyDescription, BREqual, BRHash};
constinit const BRDictionaryKeyCallBacks kBRCopyStringDictionaryKeyCallBacks = {
    0, copyString, br::releaseObject, BRCopyDescription, BREqual, BRHash};
constinit const BRDictionaryValueCallBacks kBRTypeDictionaryValueCallBacks = {
    0, br::retainObject, br::releaseObject, BRCopyDescription, BREqual};
}

BRStringRef BRDictionary::copyDescription() const {
  br::CollectionText text({'{', '}', ";", ";"}, table.count());
  for (uint32_t i = 0; i < table.end(); ++i) {
    if (!table.isLive(i)) continue;
    if (!text.next()) break;
    text.append(table.key(i), table.keyCallbacks().copyDescription);
    text.append(" = ");
    text.append(table.value(i), table.valueCallbacks().copyDescription);
  }
  return text.finish();
}

BRTypeID BRDictionaryGetTypeID(void) { return br::typeID<BRDictionary>(); }

BRDictionaryRef BRDictionaryCreate(BRAllocatorRef allocator, const void* const* keys,
                                   const void* const* values, size_t count,
                                   const BRDictionaryKeyCallBacks* keyCallbacks,
                                   const BRDictionaryValueCallBacks* valueCallbacks) {
  if (count > 0 && (!keys || !values)) return nullptr;
  auto* dictionary =
      br::createCollection<BRDictionary>(allocator, count, keyCallbacks, valueCallbacks, false);
  if (!dictionary) return nullptr;
  HashTable& table = dictionary->table;
  for (size_t i = 0; i < count; ++i) {
    const uint32_t hash = table.hashOf(keys[i]);
    if (table.findHashed(keys[i], hash) != HashTable::kNone) continue;
    if (table.add(allocatorOf(dictionary), keys[i], hash, values[i])) continue;
    BRRelease(dictionary);
    return nullptr;
  }
  return dictionary;
}

BRDictionaryRef BRDictionaryCreateCopy(BRAllocatorRef allocator, BRDictionaryRef dictionary) {
  if (!dictionary) return nullptr;
  if (!dictionary->isMutable() && br::sameAllocator(dictionary, allocator))
    return static_cast<BRDictionaryRef>(BRRetain(dictionary));
  return br::copyCollection(allocator, dictionary, false);
}

BRMutableDictionaryRef BRDictionaryCreateMutable(BRAllocatorRef allocator, size_t capacity,
                                                 const BRDictionaryKeyCallBacks* keyCallbacks,
                                                 const BRDictionaryValueCallBacks* valueCallbacks) {
  return br::createMutableCollection<BRDictionary>(allocator, capacity, keyCallbacks, valueCallbacks);
}

BRMutableDictionaryRef BRDictionaryCreateMutableCopy(BRAllocatorRef allocator, BRDictionaryRef dictionary) {
  return dictionary ? br::copyCollection(allocator, dictionary, true) : nullptr;
}

size_t BRDictionaryGetCount(BRDictionaryRef dictionary) { return dictionary ? dictionary->table.count() : 0; }

const void* BRDictionaryGetValue(BRDictionaryRef dictionary, const void* key) {
  return dictionary ? dictionary->table.findValue(key) : nullptr;
}

bool BRDictionaryGetValueIfPresent(BRDictionaryRef dictionary, const void* key, const void** value) {
  const uint32_t index = dictionary ? dictionary->table.find(key) : HashTable::kNone;
  if (index == HashTable::kNone) return false;
  if (value) *value = dictionary->table.value(index);
  return true;
}

bool BRDictionaryContainsKey(BRDictionaryRef dictionary, const void* key) {
  return BRDictionaryGetValueIfPresent(dictionary, key, nullptr);
}

void BRDictionaryGetKeysAndValues(BRDictionaryRef dictionary, const void** keys, const void** values) {
  if (dictionary) dictionary->table.copyOut(keys, values);
}

void BRDictionaryApply(BRDictionaryRef dictionary, BRDictionaryApplier applier, void* context) {
  if (!dictionary || !applier) return;
  const HashTable& table = dictionary->table;
  for (uint32_t i = 0; i < table.end(); ++i)
    if (table.isLive(i)) applier(table.key(i), table.value(i), context);
}

bool BRDictionaryAddValue(BRMutableDictionaryRef dictionary, const void* key, const void* value) {
  if (!dictionary || !dictionary->isMutable()) return false;
  HashTable& table = dictionary->table;
  const uint32_t hash = table.hashOf(key);
  if (table.findHashed(key, hash) != HashTable::kNone) return false;
  return table.add(allocatorOf(dictionary), key, hash, value);
}

bool BRDictionarySetValue(BRMutableDictionaryRef dictionary, const void* key, const void* value) {
  if (!dictionary || !dictionary->isMutable()) return false;
  HashTable& table = dictionary->table;
  const uint32_t hash = table.hashOf(key);
  const uint32_t index = table.findHashed(key, hash);
  if (index != HashTable::kNone) return table.replaceValue(allocatorOf(dictionary), index, value);
  return table.add(allocatorOf(dictionary), key, hash, value);
}

bool BRDictionaryReplaceValue(BRMutableDictionaryRef dictionary, const void* key, const void* value) {
  if (!dictionary || !dictionary->isMutable()) return false;
  const uint32_t index = dictionary->table.find(key);
  return index != HashTable::kNone && dictionary->table.replaceValue(allocatorOf(dictionary), index, value);
}

bool BRDictionaryRemoveValue(BRMutableDictionaryRef dictionary, const void* key) {
  if (!dictionary || !dictionary->isMutable()) return false;
  const uint32_t index = dictionary->table.find(key);
  if (index == HashTable::kNone) return false;
  dictionary->table.remove(allocatorOf(dictionary), index);
  return true;
}

void BRDictionaryRemoveAllValues(BRMutableDictionaryRef dictionary) {
  if (dictionary && dictionary->isMutable()) dictionary->table.removeAll(allocatorOf(dictionary));
}
