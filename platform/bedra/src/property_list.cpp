// Deep copies of property lists.
//
// Containers that a copy made are marked with their levels: they hold nothing but marked containers and
// immutable leaves, so another copy with the same allocator may share them. The recursion is bounded by the
// depth limit.
#include <bedra/property_list.h>

#include <bedra/data.h>
#include <bedra/number.h>
#include <bedra/string.h>
#include <bedra/ref.hpp>

#include <algorithm>

#include "src/array.hpp"
#include "src/dictionary.hpp"

namespace {

constexpr unsigned kMostLevels = kBRPropertyListMaximumDepth;

struct Copier {
  BRAllocatorRef allocator;

  // The copy, owned by the caller, or null. `room` is how many levels of containers it may have; *levels
  // receives how many it has.
  BRTypeRef copy(BRTypeRef object, unsigned room, unsigned* levels) const;
  template <class T>
  BRTypeRef copyContainer(const T* container, uint16_t known, unsigned room, unsigned* levels) const;
  BRArray* copyOf(const BRArray* array, unsigned room, unsigned* levels) const;
  BRDictionary* copyOf(const BRDictionary* dictionary, unsigned room, unsigned* levels) const;
};

uint16_t& markOf(BRArray* array) { return array->propertyListLevels; }
uint16_t& markOf(BRDictionary* dictionary) { return dictionary->table.propertyListLevels; }

BRArray* Copier::copyOf(const BRArray* array, unsigned room, unsigned* levels) const {
  if (array->callbacks->equal != BREqual) return nullptr;
  auto result =
      br::Ref<BRArray>::adopt(BRArray::create(allocator, array->count, &kBRTypeArrayCallBacks, false));
  for (size_t i = 0; result && i < array->count; ++i) {
    BRTypeRef value = copy(array->values[i], room, levels);
    if (!value) return nullptr;
    result->append(value);
  }
  return result.detach();
}

BRDictionary* Copier::copyOf(const BRDictionary* dictionary, unsigned room, unsigned* levels) const {
  const br::HashTable& table = dictionary->table;
  if (!table.comparesObjects()) return nullptr;
  auto result = br::Ref<BRDictionary>::adopt(br::createCollection<BRDictionary>(
      allocator, table.count(), &kBRTypeDictionaryKeyCallBacks, &kBRTypeDictionaryValueCallBacks, false));
  for (uint32_t i = 0; result && i < table.end(); ++i) {
    if (!table.isLive(i)) continue;
    if (BRGetTypeID(table.key(i)) != br::kStringTypeID) return nullptr;
    BRStringRef key = BRStringCreateCopy(allocator, static_cast<BRStringRef>(table.key(i)));
    BRTypeRef value = key ? copy(table.value(i), room, levels) : nullptr;
    if (!value) {
      BRRelease(key);
      return nullptr;
    }
    result->table.append(key, table.hash(i), value);
  }
  return result.detach();
}

template <class T>
BRTypeRef Copier::copyContainer(const T* container, uint16_t known, unsigned room, unsigned* levels) const {
  if (known && br::sameAllocator(container, allocator)) {
    if (known > room) return nullptr;
    *levels = std::max<unsigned>(*levels, known);
    return BRRetain(container);
  }
  if (room == 0) return nullptr;
  unsigned inner = 0;
  T* result = copyOf(container, room - 1, &inner);
  if (!result) return nullptr;
  markOf(result) = static_cast<uint16_t>(inner + 1);
  *levels = std::max(*levels, inner + 1);
  return result;
}

BRTypeRef Copier::copy(BRTypeRef object, unsigned room, unsigned* levels) const {
  const BRTypeID type = BRGetTypeID(object);
  if (type == br::kStringTypeID) return BRStringCreateCopy(allocator, static_cast<BRStringRef>(object));
  if (type == BRNumberGetTypeID() || type == br::kBooleanTypeID || type == br::kNullTypeID)
    return BRRetain(object);
  if (type == BRDataGetTypeID()) return BRDataCreateCopy(allocator, static_cast<BRDataRef>(object));
  if (auto* array = static_cast<BRArrayRef>(object); type == br::typeID<BRArray>())
    return copyContainer(array, array->propertyListLevels, room, levels);
  if (auto* dictionary = static_cast<BRDictionaryRef>(object); type == br::typeID<BRDictionary>())
    return copyContainer(dictionary, dictionary->table.propertyListLevels, room, levels);
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
