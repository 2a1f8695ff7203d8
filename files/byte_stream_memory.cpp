// Byte streams over a run of memory.
#include <bedra/string.h>

#include <algorithm>
#include <cstring>

#include "files/byte_stream.hpp"

namespace {

using pv::signalError;

struct MemoryStorage {
  const uint8_t* bytes;
  size_t length;
  br::Ref<const BRAllocator> owner;  // gives the memory back; the null allocator leaves it

  ~MemoryStorage() { BRAllocatorDeallocate(owner.get(), const_cast<uint8_t*>(bytes)); }

  BRStringRef copyDebugDescription() const {
    return BRStringCreateWithFormat(nullptr, "%zu bytes of memory at %p", length,
                                    static_cast<const void*>(bytes));
  }
};

PVStatus read(KivByteStreamRef stream, int64_t offset, size_t length, void* destination,
              size_t* lengthReadOut) {
  const auto& memory = pv::storageOf<MemoryStorage>(stream);
  const size_t from = std::min(static_cast<size_t>(offset), memory.length);
  *lengthReadOut = std::min(length, memory.length - from);
  if (*lengthReadOut != 0) std::memcpy(destination, memory.bytes + from, *lengthReadOut);
  return 0;
}

PVStatus getTotalLength(KivByteStreamRef stream, int64_t* lengthOut) {
  *lengthOut = static_cast<int64_t>(pv::storageOf<MemoryStorage>(stream).length);
  return 0;
}

constexpr PVBaseClass kBaseClass = pv::byteStreamBaseClass<MemoryStorage>();
constexpr KivByteStreamClass kByteStreamClass = {0,       read,   pv::readIntoNewBlock, getTotalLength,
                                                 nullptr, nullptr};
constexpr KivByteStreamVTable kVTable = {{nullptr, &kBaseClass}, &kByteStreamClass};

}  // namespace

PVStatus KivByteStreamCreateForMemory(BRAllocatorRef allocator, const void* bytes, size_t length,
                                      BRAllocatorRef memoryAllocator, KivByteStreamRef* streamOut) {
  if (!streamOut) return signalError(kKivByteStreamError_ParamErr);
  *streamOut = nullptr;
  if ((!bytes && length != 0) || length > INT64_MAX) return signalError(kKivByteStreamError_ParamErr);
  return pv::createByteStream<MemoryStorage>(allocator, kVTable, streamOut,
                                             static_cast<const uint8_t*>(bytes), length,
                                             br::Ref<const BRAllocator>::retain(memoryAllocator));
}
