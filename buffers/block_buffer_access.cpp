// Reading and writing the bytes of block buffers.
#include <kiv/block_buffer.h>

#include <algorithm>
#include <cstring>

#include "buffers/block_buffer.hpp"
#include "buffers/block_buffer_walk.hpp"
#include "runtime/error.hpp"

namespace pv::block {

namespace {

// Copies as memmove does. Of the shortest pieces, such as length prefixes, the call would cost more than the
// copy.
void copyBytes(char* to, const char* from, size_t length) {
  if (length > 16 || length < 4) {
    std::memmove(to, from, length);
  } else if (length >= 8) {
    uint64_t head, tail;
    std::memcpy(&head, from, 8);
    std::memcpy(&tail, from + length - 8, 8);
    std::memcpy(to, &head, 8);
    std::memcpy(to + length - 8, &tail, 8);
  } else {
    uint32_t head, tail;
    std::memcpy(&head, from, 4);
    std::memcpy(&tail, from + length - 4, 4);
    std::memcpy(to, &head, 4);
    std::memcpy(to + length - 4, &tail, 4);
  }
}

// The checks that copying, replacing and filling share. A length of 0 passes.
PVStatus checkRange(const PVBlockBuffer& buffer, size_t offset, size_t length) {
  if (buffer.count == 0) return kPVBlockBufferEmptyBBufErr;
  const size_t total = buffer.totalLength();
  if (offset >= total) return kPVBlockBufferBadOffsetParameterErr;
  return length > total - offset ? kPVBlockBufferBadLengthParameterErr : 0;
}

// Hands each piece of the range to write(data, length), in order. Memory that is not there yet is allocated
// for the whole buffer, once.
template <class Write>
PVStatus writePieces(PVBlockBuffer& buffer, size_t offset, size_t length, Write write) {
  size_t done = 0;
  auto writeOn = [&] {
    return PieceWalk(&buffer, offset + done, length - done).run([&](char* data, size_t pieceLength) {
      write(data, pieceLength);
      done += pieceLength;
    });
  };
  PVStatus status = writeOn();
  if (status != kPVBlockBufferUnallocatedBlockErr) return status;
  status = assureBlockMemory(buffer);
  return status ? status : writeOn();
}

}  // namespace

PVStatus assureBlockMemory(PVBlockBuffer& buffer) {
  ReferenceWalk walk(&buffer);
  while (Entry* entry = walk.next())
    if (PVStatus status = assureEntry(*entry)) return status;
  return walk.ranOutOfMemory() ? kPVBlockBufferBlockAllocationFailedErr : 0;
}

PVStatus copyDataBytes(PVBlockBuffer& buffer, size_t offset, size_t length, void* destination) {
  char* to = static_cast<char*>(destination);
  return PieceWalk(&buffer, offset, length).run([&](char* data, size_t pieceLength) {
    copyBytes(to, data, pieceLength);
    to += pieceLength;
  });
}

}  // namespace pv::block

using pv::block::locate;
using pv::block::Location;

PVStatus PVBlockBufferAssureBlockMemory(PVBlockBufferRef buffer) {
  if (!buffer) return pv::signalError(kPVBlockBufferBadPointerParameterErr);
  if (buffer->count == 0) return pv::signalError(kPVBlockBufferEmptyBBufErr);
  const PVStatus status = pv::block::assureBlockMemory(*buffer);
  return status ? pv::signalError(status) : 0;
}

PVStatus KivBlockBufferGetDataPointerAndOrigin(PVBlockBufferRef buffer, size_t offset,
                                               size_t* lengthAtOffsetOut, size_t* totalLengthOut,
                                               char** dataPointerOut, PVBlockBufferRef* originOut,
                                               size_t* originOffsetOut) {
  if (!buffer) return pv::signalError(kPVBlockBufferBadPointerParameterErr);
  const Location found = locate(buffer, offset);
  if (found.status) return pv::signalError(found.status);
  if (lengthAtOffsetOut) *lengthAtOffsetOut = found.length;
  if (totalLengthOut) *totalLengthOut = buffer->totalLength();
  if (dataPointerOut) *dataPointerOut = found.data;
  if (originOut) *originOut = found.origin;
  if (originOffsetOut) *originOffsetOut = found.originOffset;
  return 0;
}

PVStatus PVBlockBufferGetDataPointer(PVBlockBufferRef buffer, size_t offset, size_t* lengthAtOffsetOut,
                                     size_t* totalLengthOut, char** dataPointerOut) {
  return KivBlockBufferGetDataPointerAndOrigin(buffer, offset, lengthAtOffsetOut, totalLengthOut,
                                               dataPointerOut, nullptr, nullptr);
}

PVStatus PVBlockBufferCopyDataBytes(PVBlockBufferRef buffer, size_t offsetToData, size_t dataLength,
                                    void* destination) {
  if (!buffer || !destination) return pv::signalError(kPVBlockBufferBadPointerParameterErr);
  if (dataLength == 0) return pv::signalError(kPVBlockBufferBadLengthParameterErr);
  PVStatus status = pv::block::checkRange(*buffer, offsetToData, dataLength);
  if (!status) status = pv::block::copyDataBytes(*buffer, offsetToData, dataLength, destination);
  return status ? pv::signalError(status) : 0;
}

PVStatus PVBlockBufferReplaceDataBytes(const void* sourceBytes, PVBlockBufferRef buffer,
                                       size_t offsetIntoBuffer, size_t dataLength) {
  if (!buffer || !sourceBytes) return pv::signalError(kPVBlockBufferBadPointerParameterErr);
  if (dataLength == 0) return pv::signalError(kPVBlockBufferBadLengthParameterErr);
  PVStatus status = pv::block::checkRange(*buffer, offsetIntoBuffer, dataLength);
  const char* from = static_cast<const char*>(sourceBytes);
  if (!status)
    status = pv::block::writePieces(*buffer, offsetIntoBuffer, dataLength, [&](char* data, size_t length) {
      pv::block::copyBytes(data, from, length);
      from += length;
    });
  return status ? pv::signalError(status) : 0;
}

PVStatus PVBlockBufferFillDataBytes(char fillByte, PVBlockBufferRef buffer, size_t offsetIntoBuffer,
                                    size_t dataLength) {
  if (!buffer) return pv::signalError(kPVBlockBufferBadPointerParameterErr);
  if (dataLength > SIZE_MAX / 2) return pv::signalError(kPVBlockBufferBadLengthParameterErr);
  if (PVStatus status = pv::block::checkRange(*buffer, offsetIntoBuffer, dataLength))
    return pv::signalError(status);
  if (dataLength == 0) dataLength = buffer->totalLength() - offsetIntoBuffer;
  const PVStatus status =
      pv::block::writePieces(*buffer, offsetIntoBuffer, dataLength,
                             [&](char* data, size_t length) { std::memset(data, fillByte, length); });
  return status ? pv::signalError(status) : 0;
}

PVStatus PVBlockBufferAccessDataBytes(PVBlockBufferRef buffer, size_t offset, size_t length,
                                      void* temporaryBlock, char** pointerOut) {
  if (!buffer || !temporaryBlock || !pointerOut) return pv::signalError(kPVBlockBufferBadPointerParameterErr);
  *pointerOut = nullptr;
  if (length == 0) return pv::signalError(kPVBlockBufferBadLengthParameterErr);
  const Location first = locate(buffer, offset);
  if (first.status) return pv::signalError(first.status);
  if (first.length >= length) {
    *pointerOut = first.data;
    return 0;
  }
  if (length > buffer->totalLength() - offset) return pv::signalError(kPVBlockBufferBadLengthParameterErr);
  PVStatus status = pv::block::copyDataBytes(*buffer, offset, length, temporaryBlock);
  // Past the first byte an end of data is a length too long, also inside a reference that promises more.
  if (status == kPVBlockBufferBadOffsetParameterErr) status = kPVBlockBufferBadLengthParameterErr;
  if (status) return pv::signalError(status);
  *pointerOut = static_cast<char*>(temporaryBlock);
  return 0;
}
