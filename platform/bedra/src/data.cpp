// Data.
//
// Representation: an immutable object's bytes stand behind the struct. A no-copy object (kClassFlag1) has
// there the allocator that gives its bytes back, a mutable one (kClassFlag0) the size of its block, which
// comes from the object's own allocator.
#include "src/data.hpp"

#include <bedra/object.hpp>
#include <bedra/ref.hpp>

#include <algorithm>
#include <cstring>

#include "src/byte_buffer.hpp"
#include "src/internal.hpp"
#include "src/string.hpp"

struct BRData : BRObject {
  static constexpr const char* className = "BRData";

  BRData(const void* content, size_t length)
      : bytes(static_cast<uint8_t*>(const_cast<void*>(content))), lengthBytes(length) {}
  ~BRData();
  bool equals(const BRData& other) const {
    return lengthBytes == other.lengthBytes &&
           (lengthBytes == 0 || std::memcmp(bytes, other.bytes, lengthBytes) == 0);
  }
  BRHashCode hash() const;
  BRStringRef copyDescription() const;

  bool isMutable() const { return hasFlag(br::kClassFlag0); }
  bool isNoCopy() const { return hasFlag(br::kClassFlag1); }

  uint8_t* bytes;
  size_t lengthBytes;
};

namespace {

size_t& capacityOf(BRMutableDataRef data) { return *br::extra<size_t>(data); }
BRAllocatorRef& bytesDeallocatorOf(BRData* data) { return *br::extra<BRAllocatorRef>(data); }

bool isMutableData(BRMutableDataRef data) { return data && data->isMutable(); }

bool reserve(BRMutableDataRef data, size_t neededBytes) {
  br::ByteBlock block{reinterpret_cast<char*>(data->bytes), capacityOf(data)};
  if (!br::growBlock(block, BRGetAllocator(data), data->lengthBytes, neededBytes)) return false;
  data->bytes = reinterpret_cast<uint8_t*>(block.bytes);
  capacityOf(data) = block.capacityBytes;
  return true;
}

}  // namespace

BRData::~BRData() {
  if (isMutable()) BRAllocatorDeallocate(BRGetAllocator(this), bytes);
  if (isNoCopy()) {
    BRAllocatorDeallocate(bytesDeallocatorOf(this), bytes);
    BRRelease(bytesDeallocatorOf(this));
  }
}

// Long data often differs in its length, its first or its last bytes; the middle is left unread.
BRHashCode BRData::hash() const {
  constexpr size_t kEndBytes = 256;
  const char* text = reinterpret_cast<const char*>(bytes);
  if (lengthBytes == 0) text = "";
  if (lengthBytes <= 2 * kEndBytes) return br::hashStringBytes(text, lengthBytes);
  const uint64_t head = br::hashStringBytes(text, kEndBytes);
  const uint64_t tail = br::hashStringBytes(text + lengthBytes - kEndBytes, kEndBytes);
  return (head << 32 | tail) ^ lengthBytes;
}

BRStringRef BRData::copyDescription() const {
  constexpr size_t kShownBytes = 32;
  char hex[2 * kShownBytes + 1];
  const size_t shown = std::min(lengthBytes, kShownBytes);
  for (size_t i = 0; i < shown; ++i) {
    hex[2 * i] = "0123456789abcdef"[bytes[i] >> 4];
    hex[2 * i + 1] = "0123456789abcdef"[bytes[i] & 0xF];
  }
  hex[2 * shown] = '\0';
  return BRStringCreateWithFormat(nullptr, "<%zu bytes: %s%s>", lengthBytes, hex,
                                  shown < lengthBytes ? "…" : "");
}

BRDataRef br::createDataToFill(BRAllocatorRef allocator, size_t lengthBytes, char** bytes) {
  BRData* data = createUnfilled<BRData>(allocator, lengthBytes, nullptr, lengthBytes);
  if (!data) return nullptr;
  data->bytes = extra<uint8_t>(data);
  *bytes = reinterpret_cast<char*>(data->bytes);
  return data;
}

BRTypeID BRDataGetTypeID(void) { return br::typeID<BRData>(); }

BRDataRef BRDataCreate(BRAllocatorRef allocator, const void* bytes, size_t lengthBytes) {
  if (!bytes && lengthBytes) return nullptr;
  char* room;
  BRDataRef data = br::createDataToFill(allocator, lengthBytes, &room);
  if (data && lengthBytes) std::memcpy(room, bytes, lengthBytes);
  return data;
}

BRDataRef BRDataCreateWithBytesNoCopy(BRAllocatorRef allocator, const void* bytes, size_t lengthBytes,
                                      BRAllocatorRef bytesDeallocator) {
  if (!bytes && lengthBytes) return nullptr;
  BRData* data = br::create<BRData>(allocator, sizeof(BRAllocatorRef), bytes, lengthBytes);
  if (!data) return nullptr;
  data->flags |= br::kClassFlag1;
  bytesDeallocatorOf(data) = static_cast<BRAllocatorRef>(BRRetain(bytesDeallocator));
  return data;
}

BRDataRef BRDataCreateCopy(BRAllocatorRef allocator, BRDataRef data) {
  if (!data) return nullptr;
  if (!data->isMutable() && !data->isNoCopy() && br::sameAllocator(data, allocator))
    return static_cast<BRDataRef>(BRRetain(data));
  return BRDataCreate(allocator, data->bytes, data->lengthBytes);
}

BRMutableDataRef BRDataCreateMutable(BRAllocatorRef allocator, size_t capacityBytes) {
  auto data = br::Ref<BRData>::adopt(br::create<BRData>(allocator, sizeof(size_t), nullptr, 0));
  if (!data) return nullptr;
  data->flags |= br::kClassFlag0;
  return reserve(data.get(), capacityBytes) ? data.detach() : nullptr;
}

BRMutableDataRef BRDataCreateMutableCopy(BRAllocatorRef allocator, BRDataRef source) {
  if (!source) return nullptr;
  auto data = br::Ref<BRData>::adopt(BRDataCreateMutable(allocator, source->lengthBytes));
  return data && BRDataAppendBytes(data.get(), source->bytes, source->lengthBytes) ? data.detach() : nullptr;
}

size_t BRDataGetLength(BRDataRef data) { return data ? data->lengthBytes : 0; }

const uint8_t* BRDataGetBytePtr(BRDataRef data) { return data ? data->bytes : nullptr; }

uint8_t* BRDataGetMutableBytePtr(BRMutableDataRef data) {
  return isMutableData(data) ? data->bytes : nullptr;
}

bool BRDataAppendBytes(BRMutableDataRef data, const void* bytes, size_t lengthBytes) {
  if (!isMutableData(data) || (!bytes && lengthBytes) || lengthBytes > SIZE_MAX - data->lengthBytes)
    return false;
  if (lengthBytes == 0) return true;
  // the bytes may lie in the data's own block, which may move
  const size_t offset = reinterpret_cast<uintptr_t>(bytes) - reinterpret_cast<uintptr_t>(data->bytes);
  const bool isOwn = data->bytes && offset < data->lengthBytes;
  if (!reserve(data, data->lengthBytes + lengthBytes)) return false;
  std::memmove(data->bytes + data->lengthBytes, isOwn ? data->bytes + offset : bytes, lengthBytes);
  data->lengthBytes += lengthBytes;
  return true;
}

bool BRDataSetLength(BRMutableDataRef data, size_t lengthBytes) {
  if (!isMutableData(data) || !reserve(data, lengthBytes)) return false;
  if (lengthBytes > data->lengthBytes)
    std::memset(data->bytes + data->lengthBytes, 0, lengthBytes - data->lengthBytes);
  data->lengthBytes = lengthBytes;
  return true;
}
