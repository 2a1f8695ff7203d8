#include "src/hash_table.hpp"

#include <bedra/literal.hpp>

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

#include "src/internal.hpp"

namespace br {

namespace {

size_t slotCount(size_t capacity) {
  return capacity <= HashTable::kScannedCapacity ? 0 : std::bit_ceil(capacity + capacity / 3 + 1);
}

constexpr uint64_t kEveryByte = 0x0101010101010101u;

// Seven bits of the hash, and one that no empty place has.
uint64_t tagOf(uint32_t hash) { return 0x80 | hash >> 25; }

// Spreads any hash over 32 bits, all of which depend on all of its bits; never 0.
uint32_t mixHash(uint64_t code) {
  const unsigned __int128 product =
      static_cast<unsigned __int128>(code ^ 0x2545F4914F6CDD1Du) * 0x9E3779B97F4A7C15u;
  const uint64_t folded = static_cast<uint64_t>(product) ^ static_cast<uint64_t>(product >> 64);
  const uint32_t hash = static_cast<uint32_t>(folded ^ (folded >> 32));
  return hash ? hash : 1;
}

bool isString(const void* object) {
  return object && static_cast<const BRObject*>(object)->typeID == kStringTypeID;
}

uint32_t cachedHashOf(const BRObject* object) {
  return std::atomic_ref(const_cast<uint32_t&>(object->cachedHash)).load(std::memory_order_relaxed);
}

// A string's hash is well mixed and never 0.
uint32_t objectHash(const void* key) {
  if (!isString(key)) return mixHash(BRHash(key));
  const uint32_t cached = cachedHashOf(static_cast<const BRObject*>(key));
  return cached ? cached : static_cast<uint32_t>(BRHash(key));
}

// What a comparison with a candidate says; kAsk: only callbacks can tell.
enum class Match : uint8_t { kNo, kYes, kAsk };

uint64_t loadWord(const char* from) {
  uint64_t word;
  std::memcpy(&word, from, sizeof word);
  return word;
}

// An immutable string's text starts 8 bytes before the end of its struct, so that many can always be read.
static_assert(sizeof(BRString) - kStringTextOffset == 8);

// memcmp for texts at places where 8 bytes can be read; no call, so that a search saves no registers.
inline bool sameText(const char* a, const char* b, size_t length) {
  uint64_t difference = loadWord(a) ^ loadWord(b);
  if (length < 8) {
    const unsigned beyond = 64 - 8 * static_cast<unsigned>(length);
    return length == 0 ||
           (std::endian::native == std::endian::little ? difference << beyond : difference >> beyond) == 0;
  }
  const size_t last = length - 8;
  for (size_t at = 8; at < last; at += 8) difference |= loadWord(a + at) ^ loadWord(b + at);
  return (difference | (loadWord(a + last) ^ loadWord(b + last))) == 0;
}

// Compares an immutable string with any other object.
inline Match matchString(BRStringRef string, const void* other) {
  if (!isString(other)) return Match::kNo;
  auto* candidate = static_cast<BRStringRef>(other);
  if (candidate->isMutable()) return Match::kAsk;
  auto textOf = [](BRStringRef s) { return reinterpret_cast<const char*>(s) + kStringTextOffset; };
  const size_t length = string->lengthBytes;
  return length == candidate->lengthBytes && sameText(textOf(string), textOf(candidate), length) ? Match::kYes
                                                                                                 : Match::kNo;
}

// Retains through a callback. False when the callback had to make something and could not.
template <class CallBacks>
bool retainValue(const CallBacks& callbacks, BRAllocatorRef allocator, const void*& value) {
  if (!callbacks.retain || !value) return true;
  if (callbacks.retain == retainObject) {
    if (!isImmortal(value)) countOf(value).fetch_add(1, std::memory_order_relaxed);
    return true;
  }
  value = callbacks.retain(allocator, value);
  return value != nullptr;
}

template <class CallBacks>
void releaseValue(const CallBacks& callbacks, BRAllocatorRef allocator, const void* value) {
  if (!callbacks.release || !value) return;
  if (callbacks.release != releaseObject)
    callbacks.release(allocator, value);
  else if (!isImmortal(value))
    BRRelease(value);
}

}  // namespace

size_t HashTable::storageBytes(size_t capacity, bool hasValues) {
  return capacity * ((hasValues ? 2 : 1) * sizeof(void*) + sizeof(uint32_t)) +
         slotCount(capacity) * sizeof(uint32_t);
}

void HashTable::open(void* storage, size_t capacity, const BRDictionaryKeyCallBacks* keyCallbacks,
                     const BRDictionaryValueCallBacks* valueCallbacks) {
  keyCallbacks_ = keyCallbacks;
  valueCallbacks_ = valueCallbacks;
  if (keyCallbacks->equal == BREqual && keyCallbacks->hash == BRHash)
    keyKind_ = KeyKind::kObjects;
  else if (keyCallbacks->equal || keyCallbacks->hash)
    keyKind_ = KeyKind::kCustom;
  moveTo(storage, capacity);
}

void HashTable::close(BRAllocatorRef allocator) {
  releaseAll(allocator);
  if (ownsStorage_) BRAllocatorDeallocate(allocator, keys_);
}

uint32_t HashTable::hashOf(const void* key) const {
  switch (keyKind_) {
    case KeyKind::kObjects:
      return objectHash(key);
    case KeyKind::kIdentity:
      return mixHash(reinterpret_cast<uintptr_t>(key));
    case KeyKind::kCustom:
      break;
  }
  if (keyCallbacks_->hash) return mixHash(keyCallbacks_->hash(key));
  return 1;  // equality that nothing is known about: every key must be compared
}

// The search, inlined into its callers with the comparison that they need.
template <class Compare>
[[gnu::always_inline]] inline uint32_t HashTable::search(const void* key, uint32_t hash,
                                                         Compare compare) const {
  if (!hasSlots()) {
    // Bytes that match are 0 in `unlike`. Above a match, others may be taken for one; the hash tells them
    // apart.
    const uint64_t unlike = tags_ ^ (kEveryByte * tagOf(hash));
    for (uint64_t like = (unlike - kEveryByte) & ~unlike & (kEveryByte << 7); like; like &= like - 1) {
      const uint32_t index = static_cast<uint32_t>(std::countr_zero(like)) / 8;
      if (hashes_[index] != hash) continue;
      if (keys_[index] == key) return index;
      const Match match = compare(keys_[index]);
      if (match == Match::kYes) return index;
      if (match == Match::kAsk) return kUndecided;
    }
    return kNone;
  }
  for (uint32_t at = hash & slotMask_;; at = (at + 1) & slotMask_) {
    const uint32_t slot = slots_[at];
    if (slot == 0) return kNone;
    if (((slot ^ hash) & ~slotMask_) != 0) continue;
    const uint32_t index = (slot & slotMask_) - 1;
    if (keys_[index] == key) return index;
    const Match match = compare(keys_[index]);
    if (match == Match::kYes) return index;
    if (match == Match::kAsk) return kUndecided;
  }
}

uint32_t HashTable::findHashed(const void* key, uint32_t hash) const {
  auto match = [](bool isEqual) { return isEqual ? Match::kYes : Match::kNo; };
  switch (keyKind_) {
    case KeyKind::kObjects:
      return search(key, hash, [=](const void* other) { return match(BREqual(other, key)); });
    case KeyKind::kIdentity:
      return search(key, hash, [](const void*) { return Match::kNo; });
    case KeyKind::kCustom:
      break;
  }
  auto equal = keyCallbacks_->equal;
  return search(key, hash, [=](const void* other) { return match(equal && equal(other, key)); });
}

// Made for immutable strings that know their hash: those are searched for without a call. Others are
// undecided.
[[gnu::always_inline]] inline uint32_t HashTable::findString(const void* key) const {
  if (keyKind_ != KeyKind::kObjects || !isString(key)) return kUndecided;
  auto* string = static_cast<BRStringRef>(key);
  const uint32_t hash = cachedHashOf(string);
  if (hash == 0 || string->isMutable()) return kUndecided;
  return search(key, hash, [string](const void* other) { return matchString(string, other); });
}

uint32_t HashTable::find(const void* key) const {
  const uint32_t index = findString(key);
  return index != kUndecided ? index : findHashed(key, hashOf(key));
}

const void* HashTable::findValue(const void* key) const {
  const uint32_t index = findString(key);
  if (index < kUndecided) return value(index);
  return index == kNone ? nullptr : findValueSlowly(key);
}

// Apart, so that the way above needs no stack.
[[gnu::noinline]] const void* HashTable::findValueSlowly(const void* key) const {
  const uint32_t index = findHashed(key, hashOf(key));
  return index != kNone ? value(index) : nullptr;
}

void HashTable::enter(uint32_t index) {
  const uint32_t hash = hashes_[index];
  if (!hasSlots()) {
    tags_ |= tagOf(hash) << (8 * index);
    return;
  }
  uint32_t at = hash & slotMask_;
  while (slots_[at]) at = (at + 1) & slotMask_;
  slots_[at] = (hash & ~slotMask_) | (index + 1);
}

// Empties the slot of an entry and draws later ones of the run back, so that no probe stops short of them.
void HashTable::leave(uint32_t index) {
  if (!hasSlots()) {
    tags_ &= ~(uint64_t{0xFF} << (8 * index));
    return;
  }
  uint32_t hole = hashes_[index] & slotMask_;
  while ((slots_[hole] & slotMask_) != index + 1) hole = (hole + 1) & slotMask_;
  for (uint32_t at = (hole + 1) & slotMask_; slots_[at]; at = (at + 1) & slotMask_) {
    const uint32_t home = hashes_[(slots_[at] & slotMask_) - 1] & slotMask_;
    if (((at - home) & slotMask_) < ((at - hole) & slotMask_)) continue;
    slots_[hole] = slots_[at];
    hole = at;
  }
  slots_[hole] = 0;
}

void HashTable::useStorage(void* storage, size_t capacity) {
  capacity_ = static_cast<uint32_t>(capacity);
  keys_ = static_cast<const void**>(storage);
  hashes_ = reinterpret_cast<uint32_t*>(keys_ + capacity * (hasValues() ? 2 : 1));
  const size_t slots = slotCount(capacity);
  slotMask_ = slots ? static_cast<uint32_t>(slots - 1) : 0;
  if (hasSlots())
    slots_ = hashes_ + capacity;
  else
    tags_ = 0;
}

// Moves the entries without their holes; the storage may be the present one.
void HashTable::moveTo(void* storage, size_t capacity) {
  const HashTable from = *this;
  useStorage(storage, capacity);
  if (hasSlots()) std::memset(slots_, 0, (size_t{slotMask_} + 1) * sizeof *slots_);
  end_ = 0;
  for (uint32_t i = 0; i < from.end_; ++i) {
    if (!from.isLive(i)) continue;
    keys_[end_] = from.keys_[i];
    if (hasValues()) values()[end_] = from.value(i);
    hashes_[end_] = from.hashes_[i];
    enter(end_);
    ++end_;
  }
}

bool HashTable::reserve(BRAllocatorRef allocator, size_t capacity) {
  if (capacity <= capacity_) return true;
  if (capacity > kMaximumCapacity) return false;
  void* storage = BRAllocatorAllocate(allocator, storageBytes(capacity, hasValues()));
  if (!storage) return false;
  void* old = ownsStorage_ ? keys_ : nullptr;
  moveTo(storage, capacity);
  ownsStorage_ = true;
  BRAllocatorDeallocate(allocator, old);
  return true;
}

bool HashTable::makeRoom(BRAllocatorRef allocator) {
  if (end_ < capacity_) return true;
  const uint32_t holes = end_ - count_;
  if (holes == 0 || (hasSlots() && holes < capacity_ / 4))
    return reserve(allocator, std::max<size_t>(kScannedCapacity, size_t{capacity_} * 2));
  moveTo(keys_, capacity_);
  return true;
}

bool HashTable::add(BRAllocatorRef allocator, const void* key, uint32_t hash, const void* value) {
  if (!makeRoom(allocator) || !retainValue(*keyCallbacks_, allocator, key)) return false;
  if (hasValues() && !retainValue(*valueCallbacks_, allocator, value)) {
    releaseValue(*keyCallbacks_, allocator, key);
    return false;
  }
  append(key, hash, value);
  return true;
}

void HashTable::append(const void* key, uint32_t hash, const void* value) {
  keys_[end_] = key;
  if (hasValues()) values()[end_] = value;
  hashes_[end_] = hash;
  enter(end_);
  ++end_;
  ++count_;
}

bool HashTable::replaceValue(BRAllocatorRef allocator, uint32_t index, const void* value) {
  if (!retainValue(*valueCallbacks_, allocator, value)) return false;
  releaseValue(*valueCallbacks_, allocator, std::exchange(values()[index], value));
  return true;
}

void HashTable::remove(BRAllocatorRef allocator, uint32_t index) {
  const void* oldKey = keys_[index];
  const void* oldValue = hasValues() ? values()[index] : nullptr;
  leave(index);
  hashes_[index] = 0;
  --count_;
  while (end_ > 0 && !isLive(end_ - 1)) --end_;
  if (hasValues()) releaseValue(*valueCallbacks_, allocator, oldValue);
  releaseValue(*keyCallbacks_, allocator, oldKey);
}

void HashTable::removeAll(BRAllocatorRef allocator) {
  const HashTable old = *this;
  useStorage(nullptr, 0);
  ownsStorage_ = false;
  end_ = count_ = 0;
  old.releaseAll(allocator);
  if (capacity_ == 0) {
    moveTo(old.keys_, old.capacity_);
    ownsStorage_ = old.ownsStorage_;
  } else if (old.ownsStorage_) {
    BRAllocatorDeallocate(allocator, old.keys_);  // a release callback has filled the table anew
  }
}

void HashTable::releaseAll(BRAllocatorRef allocator) const {
  const bool releasesValues = hasValues() && valueCallbacks_->release;
  if (!keyCallbacks_->release && !releasesValues) return;
  for (uint32_t i = 0; i < end_; ++i) {
    if (!isLive(i)) continue;
    if (releasesValues) releaseValue(*valueCallbacks_, allocator, value(i));
    releaseValue(*keyCallbacks_, allocator, key(i));
  }
}

bool HashTable::addAll(BRAllocatorRef allocator, const HashTable& other) {
  for (uint32_t i = 0; i < other.end_; ++i)
    if (other.isLive(i) &&
        !add(allocator, other.key(i), other.hash(i), hasValues() ? other.value(i) : nullptr))
      return false;
  return true;
}

bool HashTable::equals(const HashTable& other) const {
  if (count_ != other.count_) return false;
  if (count_ == 0) return true;
  if (keyCallbacks_->equal != other.keyCallbacks_->equal || keyCallbacks_->hash != other.keyCallbacks_->hash)
    return false;
  if (hasValues() && valueCallbacks_->equal != other.valueCallbacks_->equal) return false;
  for (uint32_t i = 0; i < end_; ++i) {
    if (!isLive(i)) continue;
    const uint32_t at = other.findHashed(key(i), hash(i));
    if (at == kNone) return false;
    if (!hasValues() || value(i) == other.value(at)) continue;
    if (!valueCallbacks_->equal || !valueCallbacks_->equal(value(i), other.value(at))) return false;
  }
  return true;
}

void HashTable::copyOut(const void** keys, const void** values) const {
  for (uint32_t i = 0, n = 0; i < end_; ++i) {
    if (!isLive(i)) continue;
    if (keys) keys[n] = key(i);
    if (values) values[n] = value(i);
    ++n;
  }
}

}  // namespace br
