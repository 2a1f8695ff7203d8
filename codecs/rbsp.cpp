#include "codecs/rbsp.hpp"

#include <bedra/allocator.h>
#include <bedra/data.h>

#include <algorithm>
#include <cstring>

#include "runtime/error.hpp"

namespace pv::nal {

namespace {

// At most every third byte of a unit is there for emulation prevention: so many bytes hold that much payload.
size_t bytesForPayload(size_t length, size_t payload) {
  return payload < length - length / 3 ? payload + payload / 2 + 1 : length;
}

// True when a word read at the last byte would reach over the end of its page.
bool endsShortOfPage(const uint8_t* bytes, size_t length) {
  return ((reinterpret_cast<uintptr_t>(bytes + length) + 3) & 0xFFC) < 4;
}

BRDataRef createCopy(BRAllocatorRef allocator, const uint8_t* bytes, size_t length) {
  if (length == 0) return BRDataCreate(allocator, nullptr, 0);
  auto* block = static_cast<uint8_t*>(BRAllocatorAllocate(allocator, length));
  if (!block) return nullptr;
  const size_t kept = removeEmulationBytes(bytes, length, block);
  BRDataRef copy = BRDataCreateWithBytesNoCopy(allocator, block, kept, allocator);
  if (!copy) BRAllocatorDeallocate(allocator, block);
  return copy;
}

}  // namespace

size_t findEmulationByte(const uint8_t* bytes, size_t length, size_t from) {
  // Every third byte is looked at: one above 3 cannot belong to a pattern that ends on it or up to two bytes
  // behind it.
  for (size_t i = from + 2; i < length;) {
    if (bytes[i] > 3)
      i += 3;
    else if (bytes[i] == 3 && bytes[i - 1] == 0 && bytes[i - 2] == 0)
      return i;
    else
      ++i;
  }
  return length;
}

size_t removeEmulationBytes(const uint8_t* bytes, size_t length, uint8_t* out, size_t stopAt) {
  size_t written = 0;
  for (size_t from = 0; from < length && written < stopAt;) {
    const size_t hit = findEmulationByte(bytes, length, from);
    const size_t count = hit - from < stopAt - written ? hit - from : stopAt - written;
    std::memcpy(out + written, bytes + from, count);
    written += count;
    from = hit + 1;
  }
  return written;
}

size_t offsetInUnit(const uint8_t* bytes, size_t length, size_t payloadOffset) {
  const size_t end = bytesForPayload(length, payloadOffset);
  size_t from = 0;
  for (;;) {
    const size_t hit = findEmulationByte(bytes, end, from);
    if (hit - from > payloadOffset || hit == end) return std::min(from + payloadOffset, length);
    payloadOffset -= hit - from;
    from = hit + 1;
  }
}

BRDataRef copyWithoutEmulationBytes(BRAllocatorRef allocator, BRDataRef data) {
  const PVStatus status = data ? kKivBridgeError_NoMemoryForCopy : kKivBridgeError_InvalidParameter;
  BRDataRef copy = data ? createCopy(allocator, BRDataGetBytePtr(data), BRDataGetLength(data)) : nullptr;
  if (!copy) signalError(status);
  return copy;
}

Rbsp::Rbsp(const uint8_t* bytes, size_t length, size_t limit) : bytes_(bytes) {
  length_ = length = bytesForPayload(length, limit);
  const bool escaped = length >= 3 && findEmulationByte(bytes, length, 0) != length;
  if (!escaped && !endsShortOfPage(bytes, length)) return;
  const size_t room = length < limit ? length : limit;
  uint8_t* copy = stack_;
  if (room > kStackBytes) copy = heap_ = static_cast<uint8_t*>(BRAllocatorAllocate(nullptr, room));
  bytes_ = copy;
  length_ = copy ? removeEmulationBytes(bytes, length, copy, room) : 0;
}

Rbsp::~Rbsp() { BRAllocatorDeallocate(nullptr, heap_); }

}  // namespace pv::nal
