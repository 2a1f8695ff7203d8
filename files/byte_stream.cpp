// The class of byte streams, and the calls through its operations.
#include "files/byte_stream.hpp"

#include <kiv/base_object.h>

#include <algorithm>
#include <limits>

namespace {

using pv::signalError;

constexpr PVClassDescription kDescription = {0, "KivByteStream", nullptr, nullptr};

const KivByteStreamClass& classOf(KivByteStreamRef stream) {
  return *reinterpret_cast<const KivByteStreamVTable*>(PVBaseObjectGetVTable(stream))->byteStream;
}

constexpr bool isRange(int64_t offset, size_t length) {
  return offset >= 0 && length <= static_cast<uint64_t>(std::numeric_limits<int64_t>::max() - offset);
}

}  // namespace

PVStatus pv::readIntoNewBlock(KivByteStreamRef stream, int64_t offset, size_t length,
                              PVBlockBufferRef* blockBufferOut) {
  // the length is a wish: no more is allocated than the stream has
  int64_t totalLength = 0;
  if (PVStatus status = KivByteStreamGetTotalLength(stream, &totalLength)) return status;
  length = std::min(length, static_cast<size_t>(std::max<int64_t>(totalLength - offset, 0)));
  return readIntoNewBlockOf(stream, offset, length, blockBufferOut);
}

PVStatus pv::readIntoNewBlockOf(KivByteStreamRef stream, int64_t offset, size_t length,
                                PVBlockBufferRef* blockBufferOut) {
  if (length == 0) return PVBlockBufferCreateEmpty(nullptr, 0, 0, blockBufferOut);
  br::Ref<PVBlockBuffer> block;
  if (PVStatus status =
          PVBlockBufferCreateWithMemoryBlock(nullptr, nullptr, length, nullptr, nullptr, 0, length,
                                             kPVBlockBufferAssureMemoryNowFlag, block.out()))
    return status;
  char* bytes = nullptr;
  if (PVStatus status = PVBlockBufferGetDataPointer(block.get(), 0, nullptr, nullptr, &bytes)) return status;
  size_t count = 0;
  if (PVStatus status = KivByteStreamRead(stream, offset, length, bytes, &count)) return status;
  if (count == 0) return PVBlockBufferCreateEmpty(nullptr, 0, 0, blockBufferOut);
  if (count < length)
    return PVBlockBufferCreateWithBufferReference(nullptr, block.get(), 0, count, 0, blockBufferOut);
  *blockBufferOut = block.detach();
  return 0;
}

PVBaseClassID KivByteStreamGetClassID(void) {
  static const PVBaseClassID classID = [] {
    PVBaseClassID registered = nullptr;
    KivBaseClassRegisterClass(&kDescription, kKivBaseClassID, kKivBaseClassFlag_OwnRuntimeType, &registered);
    return registered;
  }();
  return classID;
}

BRTypeID KivByteStreamGetTypeID(void) { return PVBaseClassGetBRTypeID(KivByteStreamGetClassID()); }

PVStatus KivByteStreamRead(KivByteStreamRef stream, int64_t offset, size_t length, void* destination,
                           size_t* lengthReadOut) {
  if (!stream || offset < 0 || (!destination && length != 0))
    return signalError(kKivByteStreamError_ParamErr);
  const auto read = classOf(stream).read;
  if (!read) return signalError(kPVBaseObjectError_ValueNotAvailable);
  if (!isRange(offset, length)) length = static_cast<size_t>(std::numeric_limits<int64_t>::max() - offset);
  size_t count = 0;
  if (length != 0)
    if (PVStatus status = read(stream, offset, length, destination, &count)) return status;
  if (lengthReadOut) *lengthReadOut = count;
  return 0;
}

PVStatus KivByteStreamReadAndCreateBlockBuffer(KivByteStreamRef stream, int64_t offset, size_t length,
                                               PVBlockBufferRef* blockBufferOut) {
  if (!blockBufferOut) return signalError(kKivByteStreamError_ParamErr);
  *blockBufferOut = nullptr;
  if (!stream || offset < 0) return signalError(kKivByteStreamError_ParamErr);
  const auto create = classOf(stream).readAndCreateBlockBuffer;
  if (!create) return signalError(kPVBaseObjectError_ValueNotAvailable);
  if (!isRange(offset, length)) length = static_cast<size_t>(std::numeric_limits<int64_t>::max() - offset);
  if (length == 0) return PVBlockBufferCreateEmpty(nullptr, 0, 0, blockBufferOut);
  return create(stream, offset, length, blockBufferOut);
}

PVStatus KivByteStreamGetTotalLength(KivByteStreamRef stream, int64_t* lengthOut) {
  if (!stream || !lengthOut) return signalError(kKivByteStreamError_ParamErr);
  const auto getTotalLength = classOf(stream).getTotalLength;
  if (!getTotalLength) return signalError(kPVBaseObjectError_ValueNotAvailable);
  return getTotalLength(stream, lengthOut);
}

PVStatus KivByteStreamAppend(KivByteStreamRef stream, const void* bytes, size_t length) {
  if (!stream || (!bytes && length != 0)) return signalError(kKivByteStreamError_ParamErr);
  const auto append = classOf(stream).append;
  if (!append) return signalError(kPVBaseObjectError_ValueNotAvailable);
  if (!isRange(0, length)) return signalError(kKivByteStreamError_OutOfRange);
  return length != 0 ? append(stream, bytes, length) : 0;
}

PVStatus KivByteStreamWriteAtOffset(KivByteStreamRef stream, int64_t offset, const void* bytes,
                                    size_t length) {
  if (!stream || offset < 0 || (!bytes && length != 0)) return signalError(kKivByteStreamError_ParamErr);
  const auto writeAtOffset = classOf(stream).writeAtOffset;
  if (!writeAtOffset) return kPVBaseObjectError_ValueNotAvailable;
  if (!isRange(offset, length)) return signalError(kKivByteStreamError_OutOfRange);
  return length != 0 ? writeAtOffset(stream, offset, bytes, length) : 0;
}
