// Block buffers whose bytes stand in one piece.
#include "buffers/block_buffer.hpp"
#include "buffers/block_buffer_walk.hpp"
#include "runtime/error.hpp"

namespace {

// The status of a range: 0 when it lies inside the buffer. A length of 0 becomes what remains.
PVStatus resolveRange(const PVBlockBuffer& buffer, size_t offset, size_t& length) {
  const size_t total = buffer.totalLength();
  if (offset >= total) return kPVBlockBufferBadOffsetParameterErr;
  if (length > total - offset) return kPVBlockBufferBadLengthParameterErr;
  if (length == 0) length = total - offset;
  return 0;
}

}  // namespace

bool PVBlockBufferIsRangeContiguous(PVBlockBufferRef buffer, size_t offset, size_t length) {
  PVStatus status = buffer ? resolveRange(*buffer, offset, length) : kPVBlockBufferBadPointerParameterErr;
  if (!status) {
    const pv::block::Location found = pv::block::locate(buffer, offset);
    if (!found.status) return found.length >= length;
    status = found.status;
  }
  pv::signalError(status);
  return false;
}

PVStatus PVBlockBufferCreateContiguous(BRAllocatorRef structureAllocator, PVBlockBufferRef sourceBuffer,
                                       BRAllocatorRef blockAllocator,
                                       const PVBlockBufferCustomBlockSource* customBlockSource,
                                       size_t offsetToData, size_t dataLength, PVBlockBufferFlags flags,
                                       PVBlockBufferRef* bufferOut) {
  if (bufferOut) *bufferOut = nullptr;
  if (!sourceBuffer || !bufferOut) return pv::signalError(kPVBlockBufferBadPointerParameterErr);
  if (sourceBuffer->count == 0) return pv::signalError(kPVBlockBufferEmptyBBufErr);
  if (PVStatus status = resolveRange(*sourceBuffer, offsetToData, dataLength)) return pv::signalError(status);
  if (!(flags & kPVBlockBufferAlwaysCopyDataFlag)) {
    const pv::block::Location found = pv::block::locate(sourceBuffer, offsetToData);
    if (!found.status && found.length >= dataLength)
      return PVBlockBufferCreateWithBufferReference(structureAllocator, sourceBuffer, offsetToData,
                                                    dataLength, flags, bufferOut);
  }
  PVBlockBufferRef copy;
  if (PVStatus status = PVBlockBufferCreateWithMemoryBlock(structureAllocator, nullptr, dataLength,
                                                           blockAllocator, customBlockSource, 0, dataLength,
                                                           flags | kPVBlockBufferAssureMemoryNowFlag, &copy))
    return status;
  const PVStatus status =
      pv::block::copyDataBytes(*sourceBuffer, offsetToData, dataLength, copy->entries()[0].bytes());
  if (status) {
    BRRelease(copy);
    return pv::signalError(status);
  }
  *bufferOut = copy;
  return 0;
}
