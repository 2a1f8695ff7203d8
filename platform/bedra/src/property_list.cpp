// Deep copies of property lists.
//
// What cannot change stays what it is: a container is made anew only when it is mutable, of another
// allocator, holds its contents in a way of its own, or holds something that had to be copied. Containers of
// a finished copy are marked with their levels: they hold nothing but marked containers and immutable leaves,
// so that another copy with the same allocator need not look into them. The recursion is bounded by the depth
// limit.
#include <bedra/property_list.h>

#include <bedra/data.h>
#include <bedra/number.h>
#include <bedra/string.h>
#include <bedra/literal.hpp>
#include <bedra/ref.hpp>

#include <algorithm>
#include <atomic>

#include "src/array.hpp"
#include "src/dictionary.hpp"

namespace {

constexpr unsigned kMostLevels = kBRPropertyListMaximumDepth;

// An entry of either container; the key is null in arrays.
struct Entry {
  const void* key;
  const void* value;
};

// The two containers as lists of entries.
struct Arrays {
  static size_t end(const BRArray* array) { return array->count; }
  static bool isLive(const BRArray*, size_t) { return true; }
  static Entry entry(const BRArray* array, size_t i) { return {nullptr, array->values[i]}; }
  static uint16_t& mark(const BRArray* array) { return const_cast<BRArray*>(array)->propertyListLevels; }
  static bool comparesObjects(const BRArray* array) { return array->callbacks->equal == BREqual; }
  static bool keepsObjects(const BRArray* array) {
    return array->callbacks->retain == kBRTypeArrayCallBacks.retain &&
           array->callbacks->release == kBRTypeArrayCallBacks.release;
  }
  static BRArray* create(BRAllocatorRef allocator, const BRArray* like) {
    return BRArray::create(allocator, like->count, &kBRTypeArrayCallBacks, false);
  }
  static void append(BRArray* to, Entry entry, const BRArray*, size_t) { to->append(entry.value); }
};

struct Dictionaries {
  static uint32_t end(const BRDictionary* dictionary) { return dictionary->table.end(); }
  static bool isLive(const BRDictionary* dictionary, uint32_t i) { return dictionary->table.isLive(i); }
  static Entry entry(const BRDictionary* dictionary, uint32_t i) {
    return {dictionary->table.key(i), dictionary->table.value(i)};
  }
  static uint16_t& mark(const BRDictionary* dictionary) {
    return const_cast<BRDictionary*>(dictionary)->table.propertyListLevels;
  }
  static bool comparesObjects(const BRDictionary* dictionary) { return dictionary->table.comparesObjects(); }
  static bool keepsObjects(const BRDictionary* dictionary) {
    const auto& keys = dictionary->table.keyCallbacks();
    const auto& values = dictionary->table.valueCallbacks();
    return (keys.retain == kBRTypeDictionaryKeyCallBacks.retain ||
            keys.retain == kBRCopyStringDictionaryKeyCallBacks.retain) &&
           keys.release == kBRTypeDictionaryKeyCallBacks.release &&
           values.retain == kBRTypeDictionaryValueCallBacks.retain &&
           values.release == kBRTypeDictionaryValueCallBacks.release;
  }
  static BRDictionary* create(BRAllocatorRef allocator, const BRDictionary* like) {
    return br::createCollection<BRDictionary>(allocator, like->table.count(), &kBRTypeDictionaryKeyCallBacks,
                                              &kBRTypeDictionaryValueCallBacks, false);
  }
  static void append(BRDictionary* to, Entry entry, const BRDictionary* from, uint32_t i) {
    to->table.append(entry.key, from->table.hash(i), entry.value);
  }
};

struct Copier {
  BRAllocatorRef allocator;
  BRTypeID numberType = BRNumberGetTypeID();

  // The copy, owned by the caller, or null. `room` is how many levels of containers it may have; *levels
  // receives how many it has.
  BRTypeRef copy(BRTypeRef object, unsigned room, unsigned* levels) const;
  template <class Kind, class T>
  const T* copyContainer(const T* container, unsigned room, unsigned* levels) const;
  template <class Kind, class T>
  const T* copyContents(const T* container, unsigned room, unsigned* levels) const;
  template <class Kind, class T>
  T* startOver(const T* container, size_t count) const;
  bool copyEntry(Entry from, Entry& copied, unsigned room, unsigned* levels) const;
  bool staysAsItIs(Entry entry) const;
  bool staysAsItIs(BRTypeRef leaf) const;
};

// Leaves that the copy shares for certain; of others only the copy itself tells.
bool Copier::staysAsItIs(BRTypeRef leaf) const {
  if (!leaf) return false;
  const BRTypeID type = static_cast<const BRObject*>(leaf)->typeID;
  if (type == br::kStringTypeID)
    return br::isImmortal(leaf) ||
           (!static_cast<BRStringRef>(leaf)->isMutable() && br::sameAllocator(leaf, allocator));
  return type == numberType || type == br::kBooleanTypeID || type == br::kNullTypeID;
}

bool Copier::staysAsItIs(Entry entry) const {
  const auto* key = static_cast<const BRObject*>(entry.key);
  return (!key || (key->typeID == br::kStringTypeID && staysAsItIs(key))) && staysAsItIs(entry.value);
}

bool Copier::copyEntry(Entry from, Entry& copied, unsigned room, unsigned* levels) const {
  copied = {nullptr, nullptr};
  if (from.key) {
    if (BRGetTypeID(from.key) != br::kStringTypeID) return false;
    copied.key = BRStringCreateCopy(allocator, static_cast<BRStringRef>(from.key));
    if (!copied.key) return false;
  }
  copied.value = copy(from.value, room, levels);
  if (!copied.value) BRRelease(copied.key);
  return copied.value != nullptr;
}

// A new container with the first entries of another, which are shared.
template <class Kind, class T>
T* Copier::startOver(const T* container, size_t count) const {
  T* made = Kind::create(allocator, container);
  for (size_t i = 0; made && i < count; ++i) {
    if (!Kind::isLive(container, i)) continue;
    const Entry entry = Kind::entry(container, i);
    Kind::append(made, {BRRetain(entry.key), BRRetain(entry.value)}, container, i);
  }
  return made;
}

template <class Kind, class T>
const T* Copier::copyContents(const T* container, unsigned room, unsigned* levels) const {
  const bool mayStay =
      !container->isMutable() && br::sameAllocator(container, allocator) && Kind::keepsObjects(container);
  br::Ref<T> made;  // none as long as the container itself will do
  if (!mayStay && !(made = br::Ref<T>::adopt(startOver<Kind>(container, 0)))) return nullptr;
  for (size_t i = 0; i < Kind::end(container); ++i) {
    if (!Kind::isLive(container, i)) continue;
    const Entry from = Kind::entry(container, i);
    if (!made && staysAsItIs(from)) continue;
    Entry copied;
    if (!copyEntry(from, copied, room, levels)) return nullptr;
    if (!made && (copied.key != from.key || copied.value != from.value))
      if (!(made = br::Ref<T>::adopt(startOver<Kind>(container, i)))) {
        BRRelease(copied.key);
        BRRelease(copied.value);
        return nullptr;
      }
    if (made) {
      Kind::append(made.get(), copied, container, i);
    } else {
      BRRelease(copied.key);
      BRRelease(copied.value);
    }
  }
  return made ? made.detach() : static_cast<const T*>(BRRetain(container));
}

template <class Kind, class T>
const T* Copier::copyContainer(const T* container, unsigned room, unsigned* levels) const {
  // Marks are set on containers that others may be copying at the same time.
  auto mark = [](const T* of) { return std::atomic_ref(Kind::mark(of)); };
  if (const uint16_t known = mark(container).load(std::memory_order_relaxed);
      known && br::sameAllocator(container, allocator)) {
    if (known > room) return nullptr;
    *levels = std::max<unsigned>(*levels, known);
    return static_cast<const T*>(BRRetain(container));
  }
  if (room == 0 || !Kind::comparesObjects(container)) return nullptr;
  unsigned inner = 0;
  const T* result = copyContents<Kind>(container, room - 1, &inner);
  if (!result) return nullptr;
  mark(result).store(static_cast<uint16_t>(inner + 1), std::memory_order_relaxed);
  *levels = std::max(*levels, inner + 1);
  return result;
}

BRTypeRef Copier::copy(BRTypeRef object, unsigned room, unsigned* levels) const {
  const BRTypeID type = BRGetTypeID(object);
  if (type == br::kStringTypeID) return BRStringCreateCopy(allocator, static_cast<BRStringRef>(object));
  if (type == BRNumberGetTypeID() || type == br::kBooleanTypeID || type == br::kNullTypeID)
    return BRRetain(object);
  if (type == BRDataGetTypeID()) return BRDataCreateCopy(allocator, static_cast<BRDataRef>(object));
  if (type == br::typeID<BRArray>())
    return copyContainer<Arrays>(static_cast<BRArrayRef>(object), room, levels);
  if (type == br::typeID<BRDictionary>())
    return copyContainer<Dictionaries>(static_cast<BRDictionaryRef>(object), room, levels);
  return nullptr;
}

bool isLeaf(BRTypeID type) {
  return type == br::kStringTypeID || type == BRNumberGetTypeID() || type == br::kBooleanTypeID ||
         type == br::kNullTypeID || type == BRDataGetTypeID();
}

bool isPropertyList(BRTypeRef object, unsigned room) {
  const BRTypeID type = BRGetTypeID(object);
  if (isLeaf(type)) return true;
  if (room == 0) return false;
  if (auto* array = static_cast<BRArrayRef>(object); type == br::typeID<BRArray>())
    return array->callbacks->equal == BREqual &&
           std::all_of(array->values, array->values + array->count,
                       [&](const void* value) { return isPropertyList(value, room - 1); });
  if (type != br::typeID<BRDictionary>()) return false;
  const br::HashTable& table = static_cast<BRDictionaryRef>(object)->table;
  if (!table.comparesObjects()) return false;
  for (uint32_t i = 0; i < table.end(); ++i)
    if (table.isLive(i) &&
        !(BRGetTypeID(table.key(i)) == br::kStringTypeID && isPropertyList(table.value(i), room - 1)))
      return false;
  return true;
}

}  // namespace

bool BRPropertyListIsValid(BRTypeRef propertyList) { return isPropertyList(propertyList, kMostLevels); }

BRTypeRef BRPropertyListCreateDeepCopy(BRAllocatorRef allocator, BRTypeRef propertyList) {
  unsigned levels = 0;
  return Copier{allocator}.copy(propertyList, kMostLevels, &levels);
}
