#include "src/array.hpp"

#include <bedra/allocator.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "src/collection_text.hpp"
#include "src/internal.hpp"

namespace {

constexpr size_t kMaximumCapacity = SIZE_MAX / sizeof(void*) / 4;
constexpr size_t kFewestInline = 4;
constexpr size_t kMostInline = 64;

constinit const BRArrayCallBacks kUnretainedCallBacks{};

const void* retainObject(BRAllocatorRef, const void* object) { return BRRetain(object); }
void releaseObject(BRAllocatorRef, const void* object) { BRRelease(object); }

bool isConstantRecord(const BRArrayCallBacks* record) {
  return record == &kUnretainedCallBacks || record == &kBRTypeArrayCallBacks;
}

// False when the callback had to make something and could not.
bool retainValue(BRArrayRef array, const void*& value) {
  if (!array->callbacks->retain || !value) return true;
  value = array->callbacks->retain(BRGetAllocator(array), value);
  return value != nullptr;
}

void releaseValue(BRArrayRef array, const void* value) {
  if (array->callbacks->release && value) array->callbacks->release(BRGetAllocator(array), value);
}

bool valuesEqual(const BRArrayCallBacks* callbacks, const void* a, const void* b) {
  return a == b || (callbacks->equal && callbacks->equal(a, b));
}

bool canChange(BRArrayRef array) { return array && array->isMutable(); }

// Fills a new array with another's values; releases it when that fails.
BRArray* fill(BRArray* array, const void* const* values, size_t count) {
  for (size_t i = 0; array && i < count; ++i) {
    if (array->insert(i, values[i])) continue;
    BRRelease(std::exchange(array, nullptr));
  }
  return array;
}

}  // namespace

extern "C" {
constinit const BRArrayCallBacks kBRTypeArrayCallBacks = {0, retainObject, releaseObject, BRCopyDescription,
                                                          BREqual};
}

BRArray* BRArray::create(BRAllocatorRef allocator, size_t capacity, const BRArrayCallBacks* callbacks,
                         bool isMutable) {
  if (!callbacks) callbacks = &kUnretainedCallBacks;
  if (callbacks->version != 0 || capacity > kMaximumCapacity) return nullptr;
  const size_t recordBytes = isConstantRecord(callbacks) ? 0 : sizeof *callbacks;
  BRArray* array = br::createUnfilled<BRArray>(allocator, recordBytes + capacity * sizeof(void*));
  if (!array) return nullptr;
  char* room = br::extra<char>(array);
  if (recordBytes) callbacks = static_cast<BRArrayCallBacks*>(std::memcpy(room, callbacks, recordBytes));
  array->callbacks = callbacks;
  array->values = reinterpret_cast<const void**>(room + recordBytes);
  array->capacity = capacity;
  if (isMutable) array->flags |= br::kClassFlag0;
  return array;
}

BRArray::~BRArray() {
  if (callbacks->release)
    for (size_t i = 0; i < count; ++i) releaseValue(this, values[i]);
  if (ownsStorage) BRAllocatorDeallocate(BRGetAllocator(this), values);
}

bool BRArray::equals(const BRArray& other) const {
  if (count != other.count) return false;
  if (count == 0) return true;
  if (callbacks->equal != other.callbacks->equal) return false;
  for (size_t i = 0; i < count; ++i)
    if (!valuesEqual(callbacks, values[i], other.values[i])) return false;
  return true;
}

bool BRArray::makeRoom(size_t wanted) {
  if (wanted <= capacity) return true;
  if (wanted > kMaximumCapacity) return false;
  BRAllocatorRef allocator = BRGetAllocator(this);
  auto* storage = static_cast<const void**>(BRAllocatorAllocate(allocator, wanted * sizeof(void*)));
  if (!storage) return false;
  std::copy_n(values, count, storage);
  if (ownsStorage) BRAllocatorDeallocate(allocator, values);
  values = storage;
  capacity = wanted;
  ownsStorage = true;
  return true;
}

bool BRArray::insert(size_t index, const void* value) {
  if (!retainValue(this, value)) return false;
  std::memmove(values + index + 1, values + index, (count - index) * sizeof(void*));
  values[index] = value;
  ++count;
  return true;
}

BRStringRef BRArray::copyDescription() const {
  br::CollectionText text({'[', ']', ",", ""}, count);
  for (size_t i = 0; i < count && text.next(); ++i) text.append(values[i], callbacks->copyDescription);
  return text.finish();
}

BRTypeID BRArrayGetTypeID(void) { return br::typeID<BRArray>(); }

BRArrayRef BRArrayCreate(BRAllocatorRef allocator, const void* const* values, size_t count,
                         const BRArrayCallBacks* callbacks) {
  if (count > 0 && !values) return nullptr;
  return fill(BRArray::create(allocator, count, callbacks, false), values, count);
}

BRArrayRef BRArrayCreateCopy(BRAllocatorRef allocator, BRArrayRef array) {
  if (!array) return nullptr;
  if (!array->isMutable() && br::sameAllocator(array, allocator))
    return static_cast<BRArrayRef>(BRRetain(array));
  return BRArrayCreate(allocator, array->values, array->count, array->callbacks);
}

BRMutableArrayRef BRArrayCreateMutable(BRAllocatorRef allocator, size_t capacity,
                                       const BRArrayCallBacks* callbacks) {
  const size_t inlineCapacity = capacity <= kMostInline ? std::max(capacity, kFewestInline) : 0;
  BRArray* array = BRArray::create(allocator, inlineCapacity, callbacks, true);
  if (array && !array->makeRoom(capacity)) BRRelease(std::exchange(array, nullptr));
  return array;
}

BRMutableArrayRef BRArrayCreateMutableCopy(BRAllocatorRef allocator, BRArrayRef array) {
  if (!array) return nullptr;
  return fill(BRArrayCreateMutable(allocator, array->count, array->callbacks), array->values, array->count);
}

size_t BRArrayGetCount(BRArrayRef array) { return array ? array->count : 0; }

const void* BRArrayGetValueAtIndex(BRArrayRef array, size_t index) {
  return array && index < array->count ? array->values[index] : nullptr;
}

void BRArrayGetValues(BRArrayRef array, const void** values) {
  if (array && values) std::copy_n(array->values, array->count, values);
}

bool BRArrayContainsValue(BRArrayRef array, const void* value) {
  return BRArrayGetFirstIndexOfValue(array, value) != SIZE_MAX;
}

size_t BRArrayGetFirstIndexOfValue(BRArrayRef array, const void* value) {
  for (size_t i = 0; array && i < array->count; ++i)
    if (valuesEqual(array->callbacks, array->values[i], value)) return i;
  return SIZE_MAX;
}

void BRArrayApply(BRArrayRef array, BRArrayApplier applier, void* context) {
  for (size_t i = 0; array && applier && i < array->count; ++i) applier(array->values[i], context);
}

bool BRArrayAppendValue(BRMutableArrayRef array, const void* value) {
  return array && BRArrayInsertValueAtIndex(array, array->count, value);
}

bool BRArrayInsertValueAtIndex(BRMutableArrayRef array, size_t index, const void* value) {
  if (!canChange(array) || index > array->count) return false;
  if (array->count == array->capacity && !array->makeRoom(std::max(kFewestInline, array->capacity * 2)))
    return false;
  return array->insert(index, value);
}

bool BRArraySetValueAtIndex(BRMutableArrayRef array, size_t index, const void* value) {
  if (!canChange(array) || index > array->count) return false;
  if (index == array->count) return BRArrayAppendValue(array, value);
  if (!retainValue(array, value)) return false;
  releaseValue(array, std::exchange(array->values[index], value));
  return true;
}

bool BRArrayRemoveValueAtIndex(BRMutableArrayRef array, size_t index) {
  if (!canChange(array) || index >= array->count) return false;
  const void* old = array->values[index];
  --array->count;
  std::memmove(array->values + index, array->values + index + 1, (array->count - index) * sizeof(void*));
  releaseValue(array, old);
  return true;
}

void BRArrayRemoveAllValues(BRMutableArrayRef array) {
  if (!canChange(array)) return;
  // From the end, each out of the array before its release runs: a release callback may lead back here.
  while (array->count > 0) releaseValue(array, array->values[--array->count]);
}
