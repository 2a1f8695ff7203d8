// Byte streams over a block buffer, for reading and for appending. The block buffer holds all the state.
#include <bedra/string.h>
#include <kiv/block_buffer.h>

#include <algorithm>

#include "files/byte_stream.hpp"

namespace {

using pv::signalError;

struct BlockBufferStorage {
  br::Ref<PVBlockBuffer> buffer;

  size_t length() const { return PVBlockBufferGetDataLength(buffer.get()); }
  // How many of the bytes asked for are there.
  size_t available(int64_t offset, size_t length_) const {
    return std::min(length_, length() - std::min(static_cast<size_t>(offset), length()));
  }
  BRStringRef copyDebugDescription() const {
    return BRStringCreateWithFormat(nullptr, "block buffer %p of %zu bytes",
                                    static_cast<const void*>(buffer.get()), length());
  }
};

PVStatus read(KivByteStreamRef stream, int64_t offset, size_t length, void* destination,
              size_t* lengthReadOut) {
  const auto& storage = pv::storageOf<BlockBufferStorage>(stream);
  const size_t count = storage.available(offset, length);
  if (count != 0)
    if (PVStatus status =
            PVBlockBufferCopyDataBytes(storage.buffer.get(), static_cast<size_t>(offset), count, destination))
      return status;
  *lengthReadOut = count;
  return 0;
}

PVStatus readAndCreateBlockBuffer(KivByteStreamRef stream, int64_t offset, size_t length,
                                  PVBlockBufferRef* blockBufferOut) {
  const auto& storage = pv::storageOf<BlockBufferStorage>(stream);
  const size_t count = storage.available(offset, length);
  if (count == 0) return PVBlockBufferCreateEmpty(nullptr, 0, 0, blockBufferOut);
  return PVBlockBufferCreateWithBufferReference(nullptr, storage.buffer.get(), static_cast<size_t>(offset),
                                                count, 0, blockBufferOut);
}

PVStatus getTotalLength(KivByteStreamRef stream, int64_t* lengthOut) {
  *lengthOut = static_cast<int64_t>(pv::storageOf<BlockBufferStorage>(stream).length());
  return 0;
}

PVStatus append(KivByteStreamRef stream, const void* bytes, size_t length) {
  return KivBlockBufferAppendBytes(pv::storageOf<BlockBufferStorage>(stream).buffer.get(), bytes, length);
}

PVStatus writeAtOffset(KivByteStreamRef stream, int64_t offset, const void* bytes, size_t length) {
  const auto& storage = pv::storageOf<BlockBufferStorage>(stream);
  if (storage.available(offset, length) != length) return signalError(kKivByteStreamError_OutOfRange);
  return PVBlockBufferReplaceDataBytes(bytes, storage.buffer.get(), static_cast<size_t>(offset), length);
}

constexpr PVBaseClass kBaseClass = pv::byteStreamBaseClass<BlockBufferStorage>();
constexpr KivByteStreamClass kReadingClass = {0,       read,   readAndCreateBlockBuffer, getTotalLength,
                                              nullptr, nullptr};
constexpr KivByteStreamClass kWritingClass = {0,      read,         readAndCreateBlockBuffer, getTotalLength,
                                              append, writeAtOffset};
constexpr KivByteStreamVTable kReadingVTable = {{nullptr, &kBaseClass}, &kReadingClass};
constexpr KivByteStreamVTable kWritingVTable = {{nullptr, &kBaseClass}, &kWritingClass};

PVStatus create(BRAllocatorRef allocator, PVBlockBufferRef blockBuffer, const KivByteStreamVTable& vtable,
                KivByteStreamRef* streamOut) {
  if (!streamOut) return signalError(kKivByteStreamError_ParamErr);
  *streamOut = nullptr;
  if (!blockBuffer) return signalError(kKivByteStreamError_ParamErr);
  return pv::createByteStream<BlockBufferStorage>(allocator, vtable, streamOut,
                                                  br::Ref<PVBlockBuffer>::retain(blockBuffer));
}

}  // namespace

PVStatus KivByteStreamCreateForBlockBuffer(BRAllocatorRef allocator, PVBlockBufferRef blockBuffer,
                                           KivByteStreamRef* streamOut) {
  return create(allocator, blockBuffer, kReadingVTable, streamOut);
}

PVStatus KivByteStreamCreateWritableForBlockBuffer(BRAllocatorRef allocator, PVBlockBufferRef blockBuffer,
                                                   KivByteStreamRef* streamOut) {
  return create(allocator, blockBuffer, kWritingVTable, streamOut);
}
