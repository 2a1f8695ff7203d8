// The cursor over atoms.
//
// All positions inside a level are relative to the level's start and lie in 0 … rangeLength, so that sums of
// a checked position and a checked size cannot overflow. readAtom is the one place that believes a file: what
// it lets pass lies inside the range. A cursor is written only when a move has succeeded.
#define KIV_ATOM_STREAM_NO_INLINES  // their one definition is here
#include <kiv/atom_stream.h>

#include <bedra/ref.hpp>

#include <algorithm>
#include <cstring>
#include <limits>

#include "files/atom_source.hpp"
#include "runtime/byte_reader.hpp"
#include "runtime/error.hpp"

namespace {

using pv::signalError;

constexpr PVFourCharCode kUUIDType = 0x75756964;  // 'uuid'
constexpr int64_t kShortHeaderBytes = 8;
constexpr int64_t kLargeSizeBytes = 8;
constexpr int64_t kExtendedTypeBytes = 16;

// Whether a malformed header is an error to signal, or only the news that these bytes are no atoms.
enum class Signalling { kOff, kOn };

struct AtomHeader {
  PVFourCharCode type;
  int64_t size;
  int64_t headerSize;
  uint8_t extendedType[kExtendedTypeBytes];  // of 'uuid' atoms
};

PVStatus fail(PVStatus status, Signalling signalling, int32_t line = __builtin_LINE()) {
  return signalling == Signalling::kOn ? signalError(status, __FILE__, line, "reading an atom") : status;
}

// Reads length bytes at a global offset, all or nothing.
PVStatus readFully(const KivAtomSource& source, int64_t offset, size_t length, void* destination,
                   Signalling signalling) {
  size_t count = 0;
  const PVStatus status = source.readBytes(&source, offset, length, destination, &count);
  if (status == 0 && count >= length) return 0;
  if (status != 0 && status != kKivAtomStreamError_ShortRead) return status;
  return fail(kKivAtomStreamError_ShortRead, signalling);
}

// The rest of a header whose 32-bit size is 1 or whose type is 'uuid'. remaining counts from the header's
// start.
PVStatus readLongHeader(const KivAtomSource& source, int64_t globalOffset, int64_t remaining,
                        bool hasLargeSize, Signalling signalling, AtomHeader& header) {
  if (hasLargeSize) {
    if (remaining < header.headerSize + kLargeSizeBytes) return kKivAtomStreamError_NotEnoughData;
    uint8_t bytes[kLargeSizeBytes];
    if (PVStatus status =
            readFully(source, globalOffset + header.headerSize, sizeof bytes, bytes, signalling))
      return status;
    header.size = pv::ByteReader(bytes, sizeof bytes).s64();
    header.headerSize += kLargeSizeBytes;
  }
  if (header.type == kUUIDType) {
    if (remaining < header.headerSize + kExtendedTypeBytes) return kKivAtomStreamError_NotEnoughData;
    if (PVStatus status = readFully(source, globalOffset + header.headerSize, kExtendedTypeBytes,
                                    header.extendedType, signalling))
      return status;
    header.headerSize += kExtendedTypeBytes;
  }
  return 0;
}

// The header of the atom at an offset of the stream's level. On success the atom lies inside the level.
PVStatus readAtom(const KivAtomStream& stream, int64_t offset, Signalling signalling, AtomHeader& header) {
  const int64_t remaining = stream.rangeLength - offset;
  if (remaining < kShortHeaderBytes) return kKivAtomStreamError_NotEnoughData;
  const int64_t globalOffset = stream.rangeStart + offset;
  uint8_t bytes[kShortHeaderBytes];
  if (PVStatus status = readFully(stream.source, globalOffset, sizeof bytes, bytes, signalling))
    return status;
  pv::ByteReader reader(bytes, sizeof bytes);
  header.size = reader.u32();
  header.type = reader.u32();
  header.headerSize = kShortHeaderBytes;
  const bool hasLargeSize = header.size == 1;
  if (header.size == 0) [[unlikely]] {
    if ((stream.allowZeroSize & 0xFF) == 0) return fail(kKivAtomStreamError_MalformedAtom, signalling);
    header.size = remaining;
  }
  if (hasLargeSize || header.type == kUUIDType) [[unlikely]]
    if (PVStatus status =
            readLongHeader(stream.source, globalOffset, remaining, hasLargeSize, signalling, header))
      return status;
  if (header.size < header.headerSize || header.size > remaining) [[unlikely]]
    return fail(kKivAtomStreamError_MalformedAtom, signalling);
  return 0;
}

// Puts the cursor on the atom at an offset of its level.
void standOn(KivAtomStream& stream, int64_t offset, const AtomHeader& header) {
  stream.currentAtomDataOffset = offset + header.headerSize;
  stream.currentAtomType = header.type;
  stream.currentAtomSize = header.size;
  stream.currentAtomDataLength = header.size - header.headerSize;
  if (header.type == kUUIDType) [[unlikely]]
    std::memcpy(stream.currentAtomExtendedType, header.extendedType, sizeof header.extendedType);
}

int64_t headerSizeOf(const KivAtomStream& stream) {
  return stream.currentAtomSize - stream.currentAtomDataLength;
}

// Opens a level and stands on its first atom.
PVStatus open(const KivAtomSource& source, int64_t rangeStart, int64_t rangeLength, uint32_t flags,
              KivAtomStream* stream) {
  KivAtomStream opened{};
  opened.allowZeroSize = flags;
  opened.source = source;
  opened.rangeStart = rangeStart;
  opened.rangeLength = rangeLength;
  AtomHeader header;
  if (PVStatus status = readAtom(opened, 0, Signalling::kOff, header)) return status;
  standOn(opened, 0, header);
  *stream = opened;
  return 0;
}

// The step that walks are made of: over memory to an atom with a header of 8 bytes. False, with nothing done,
// for any other, be it good or bad.
inline bool advanceOverMemory(KivAtomStream& stream) {
  if (stream.source.readBytes != pv::readAtomBytesFromMemory) return false;
  // What the last step wrote last, the data length, comes in last: each step waits for the one before only
  // there.
  const int64_t dataLength = stream.currentAtomDataLength;
  const uint8_t* data =
      pv::atomBytesInMemory(stream.source, stream.rangeStart + stream.currentAtomDataOffset);
  const int64_t next = stream.currentAtomDataOffset + dataLength;
  const int64_t remaining = stream.rangeLength - next;
  if (remaining < kShortHeaderBytes) return false;
  const auto header = pv::loadBigEndian<uint64_t>(data + dataLength);
  const auto size = static_cast<int64_t>(header >> 32);
  const auto type = static_cast<PVFourCharCode>(header);
  if (size < kShortHeaderBytes || size > remaining || type == kUUIDType) return false;
  stream.currentAtomDataOffset = next + kShortHeaderBytes;
  stream.currentAtomType = type;
  stream.currentAtomSize = size;
  stream.currentAtomDataLength = size - kShortHeaderBytes;
  return true;
}

// Moves to the next atom for which found(header) holds.
template <class Found>
PVStatus advance(KivAtomStream& stream, Found found) {
  int64_t next = stream.currentAtomDataOffset + stream.currentAtomDataLength;
  AtomHeader header;
  for (;; next += header.size) {
    if (next == stream.rangeLength) return kKivAtomStreamError_NoMoreAtoms;
    if (PVStatus status = readAtom(stream, next, Signalling::kOn, header)) return status;
    if (found(header)) break;
  }
  standOn(stream, next, header);
  return 0;
}

[[gnu::noinline]] PVStatus advanceToAny(KivAtomStream& stream) {
  return advance(stream, [](const AtomHeader&) { return true; });
}

// Each step opens the data of the atom that the last one found.
PVStatus descend(KivAtomStream& stream, size_t count, const PVFourCharCode* types) {
  for (size_t i = 0; i < count; ++i) {
    if (PVStatus status = KivAtomStreamInitWithParent(&stream, 0, &stream)) return status;
    if (PVStatus status = KivAtomStreamPositionAtFirstAtomWithType(&stream, types[i])) return status;
  }
  return 0;
}

// Reads a run of the current level into one contiguous block buffer.
PVStatus createBlockBuffer(const KivAtomStream& stream, int64_t offset, size_t length,
                           PVBlockBufferRef* blockBufferOut) {
  br::Ref<PVBlockBuffer> read;
  if (PVStatus status = stream.source.readAndCreateBlockBuffer(&stream.source, stream.rangeStart + offset,
                                                               length, read.out()))
    return status;
  const size_t lengthRead = PVBlockBufferGetDataLength(read.get());
  if (lengthRead < length) return signalError(kKivAtomStreamError_ShortRead);
  if (lengthRead == length && PVBlockBufferIsRangeContiguous(read.get(), 0, 0)) {
    *blockBufferOut = read.detach();
    return 0;
  }
  return PVBlockBufferCreateContiguous(nullptr, read.get(), nullptr, nullptr, 0, length, 0, blockBufferOut);
}

// Whether [offset, offset + length) lies in the current atom's data; the end itself is no offset to read at.
bool isInData(const KivAtomStream& stream, int64_t offset, size_t length) {
  return offset >= 0 && offset < stream.currentAtomDataLength &&
         length <= static_cast<uint64_t>(stream.currentAtomDataLength - offset);
}

}  // namespace

PVStatus KivAtomStreamInitWithByteStream(KivByteStreamRef byteStream, int64_t startOffset, uint32_t flags,
                                         KivAtomStream* stream) {
  return KivAtomStreamInitWithByteStreamWithSize(byteStream, startOffset, std::numeric_limits<int64_t>::max(),
                                                 flags, stream);
}

PVStatus KivAtomStreamInitWithByteStreamWithSize(KivByteStreamRef byteStream, int64_t startOffset,
                                                 int64_t size, uint32_t flags, KivAtomStream* stream) {
  if (!byteStream || !stream) return signalError(kPVBaseObjectError_ParamErr);
  int64_t totalLength = 0;
  if (PVStatus status = KivByteStreamGetTotalLength(byteStream, &totalLength)) return status;
  if (startOffset < 0 || startOffset >= totalLength) return signalError(kKivAtomStreamError_NotEnoughData);
  return open(pv::atomSourceOverByteStream(byteStream, totalLength), startOffset,
              std::min(size, totalLength - startOffset), flags, stream);
}

PVStatus KivAtomStreamInitWithBBuf(PVBlockBufferRef blockBuffer, int64_t startOffset, uint32_t flags,
                                   KivAtomStream* stream) {
  if (!blockBuffer || !stream) return signalError(kPVBaseObjectError_ParamErr);
  const KivAtomSource source = pv::atomSourceOverBlockBuffer(blockBuffer);
  if (startOffset < 0 || startOffset >= source.totalLength)
    return signalError(kKivAtomStreamError_NotEnoughData);
  return open(source, startOffset, source.totalLength - startOffset, flags, stream);
}

PVStatus KivAtomStreamInitWithMemoryBlock(const void* bytes, size_t length, int64_t globalOffset,
                                          uint32_t flags, KivAtomStream* stream) {
  if (!stream) return signalError(kPVBaseObjectError_ParamErr);
  if (!bytes || length == 0) return signalError(kKivAtomStreamError_ShortRead);
  int64_t end;
  if (__builtin_add_overflow(globalOffset, length, &end))
    return signalError(kKivAtomStreamError_NotEnoughData);
  return open(pv::atomSourceOverMemory(bytes, length, globalOffset), globalOffset,
              static_cast<int64_t>(length), flags, stream);
}

PVStatus KivAtomStreamInitWithParent(const KivAtomStream* parent, int64_t offsetInParentData,
                                     KivAtomStream* child) {
  if (!parent || !child) return signalError(kPVBaseObjectError_ParamErr);
  if (offsetInParentData < 0 || offsetInParentData > parent->currentAtomDataLength)
    return signalError(kKivAtomStreamError_NotEnoughData);
  KivAtomStream opened = *parent;
  opened.rangeStart = parent->rangeStart + parent->currentAtomDataOffset;
  opened.rangeLength = parent->currentAtomDataLength;
  AtomHeader header;
  if (PVStatus status = readAtom(opened, offsetInParentData, Signalling::kOn, header)) return status;
  standOn(opened, offsetInParentData, header);
  *child = opened;
  return 0;
}

PVStatus KivAtomStreamGetCurrentAtomTypeAndDataLength(const KivAtomStream* stream, PVFourCharCode* typeOut,
                                                      int64_t* dataLengthOut) {
  if (!stream) return signalError(kPVBaseObjectError_ParamErr);
  if (typeOut) *typeOut = stream->currentAtomType;
  if (dataLengthOut) *dataLengthOut = stream->currentAtomDataLength;
  return 0;
}

PVStatus KivAtomStreamGetCurrentAtomUUIDType(const KivAtomStream* stream, uint8_t uuidOut[16]) {
  if (!stream || !uuidOut) return signalError(kPVBaseObjectError_ParamErr);
  if (stream->currentAtomType != kUUIDType) return kKivAtomStreamError_NotUUIDAtom;
  std::memcpy(uuidOut, stream->currentAtomExtendedType, sizeof stream->currentAtomExtendedType);
  return 0;
}

PVStatus KivAtomStreamGetCurrentAtomVersionAndFlags(const KivAtomStream* stream, uint8_t* versionOut,
                                                    uint32_t* flagsOut) {
  uint8_t bytes[4];
  if (PVStatus status = KivAtomStreamReadCurrentAtomData(stream, 0, sizeof bytes, bytes)) return status;
  pv::ByteReader reader(bytes, sizeof bytes);
  const uint8_t version = reader.u8();
  if (versionOut) *versionOut = version;
  if (flagsOut) *flagsOut = reader.u24();
  return 0;
}

PVStatus KivAtomStreamGetCurrentAtomGlobalOffset(const KivAtomStream* stream, int64_t* offsetOut,
                                                 int64_t* sizeOut) {
  if (!stream) return signalError(kPVBaseObjectError_ParamErr);
  if (offsetOut) *offsetOut = stream->rangeStart + stream->currentAtomDataOffset - headerSizeOf(*stream);
  if (sizeOut) *sizeOut = stream->currentAtomSize;
  return 0;
}

PVStatus KivAtomStreamGetCurrentAtomOffsetInParent(const KivAtomStream* stream, int64_t* offsetOut) {
  if (!stream || !offsetOut) return signalError(kPVBaseObjectError_ParamErr);
  *offsetOut = stream->currentAtomDataOffset - headerSizeOf(*stream);
  return 0;
}

PVStatus KivAtomStreamGetCurrentAtomDataGlobalOffset(const KivAtomStream* stream, int64_t offsetInData,
                                                     int64_t* offsetOut) {
  if (!stream || !offsetOut) return signalError(kPVBaseObjectError_ParamErr);
  if (offsetInData < 0 || offsetInData > stream->currentAtomDataLength)
    return signalError(kKivAtomStreamError_OutOfBounds);
  *offsetOut = stream->rangeStart + stream->currentAtomDataOffset + offsetInData;
  return 0;
}

PVStatus KivAtomStreamGetCurrentAtomHeaderSize(const KivAtomStream* stream, int64_t* headerSizeOut) {
  if (!stream || !headerSizeOut) return signalError(kPVBaseObjectError_ParamErr);
  *headerSizeOut = headerSizeOf(*stream);
  return 0;
}

PVStatus KivAtomStreamReadCurrentAtomData(const KivAtomStream* stream, int64_t offsetInData, size_t length,
                                          void* destination) {
  if (!stream || (!destination && length != 0)) return signalError(kPVBaseObjectError_ParamErr);
  if (!isInData(*stream, offsetInData, length)) return signalError(kKivAtomStreamError_OutOfBounds);
  if (length == 0) return 0;
  return readFully(stream->source, stream->rangeStart + stream->currentAtomDataOffset + offsetInData, length,
                   destination, Signalling::kOn);
}

PVStatus KivAtomStreamReadCurrentAtomDataAndCreateBBuf(const KivAtomStream* stream, int64_t offsetInData,
                                                       size_t length, PVBlockBufferRef* blockBufferOut) {
  if (!blockBufferOut) return signalError(kPVBaseObjectError_ParamErr);
  *blockBufferOut = nullptr;
  if (!stream) return signalError(kPVBaseObjectError_ParamErr);
  if (!isInData(*stream, offsetInData, length)) return signalError(kKivAtomStreamError_OutOfBounds);
  if (length == 0) length = static_cast<size_t>(stream->currentAtomDataLength - offsetInData);
  return createBlockBuffer(*stream, stream->currentAtomDataOffset + offsetInData, length, blockBufferOut);
}

PVStatus KivAtomStreamReadCurrentAtomAndCreateBBuf(const KivAtomStream* stream,
                                                   PVBlockBufferRef* blockBufferOut) {
  if (!blockBufferOut) return signalError(kPVBaseObjectError_ParamErr);
  *blockBufferOut = nullptr;
  if (!stream) return signalError(kPVBaseObjectError_ParamErr);
  if (stream->currentAtomSize == 0)
    return signalError(kKivAtomStreamError_OutOfBounds);  // a stream over nothing
  return createBlockBuffer(*stream, stream->currentAtomDataOffset - headerSizeOf(*stream),
                           static_cast<size_t>(stream->currentAtomSize), blockBufferOut);
}

PVStatus KivAtomStreamAdvanceToNextAtom(KivAtomStream* stream) {
  if (!stream) return signalError(kPVBaseObjectError_ParamErr);
  if (advanceOverMemory(*stream)) return 0;
  return advanceToAny(*stream);
}

PVStatus KivAtomStreamAdvanceToNextAtomWithType(KivAtomStream* stream, PVFourCharCode type) {
  if (!stream) return signalError(kPVBaseObjectError_ParamErr);
  return advance(*stream, [type](const AtomHeader& header) { return header.type == type; });
}

PVStatus KivAtomStreamPositionAtFirstAtomWithType(KivAtomStream* stream, PVFourCharCode type) {
  if (stream && stream->currentAtomType == type) return 0;
  return KivAtomStreamAdvanceToNextAtomWithType(stream, type);
}

PVStatus KivAtomStreamAdvanceViaAtomPath(KivAtomStream* stream, size_t count, const PVFourCharCode* types) {
  if (!stream || count == 0 || !types) return signalError(kPVBaseObjectError_ParamErr);
  KivAtomStream deepest = *stream;
  if (PVStatus status = descend(deepest, count, types)) return status;
  *stream = deepest;
  return 0;
}

PVStatus KivAtomStreamPositionViaAtomPath(KivAtomStream* stream, size_t count, const PVFourCharCode* types) {
  if (!stream || count == 0 || !types) return signalError(kPVBaseObjectError_ParamErr);
  KivAtomStream deepest = *stream;
  if (PVStatus status = KivAtomStreamPositionAtFirstAtomWithType(&deepest, types[0])) return status;
  if (PVStatus status = descend(deepest, count - 1, types + 1)) return status;
  *stream = deepest;
  return 0;
}

namespace {

PVStatus typeAndLengthOf(PVStatus status, const KivAtomStream& stream, PVFourCharCode* typeOut,
                         int64_t* lengthOut) {
  if (status != 0) return status;
  if (typeOut) *typeOut = stream.currentAtomType;
  if (lengthOut) *lengthOut = stream.currentAtomSize;
  return 0;
}

}  // namespace

PVStatus KivAtomUtilityGetAtomTypeAndLengthInByteStream(KivByteStreamRef byteStream, int64_t startOffset,
                                                        uint32_t flags, PVFourCharCode* typeOut,
                                                        int64_t* lengthOut) {
  KivAtomStream stream;
  const PVStatus status = KivAtomStreamInitWithByteStream(byteStream, startOffset, flags, &stream);
  return typeAndLengthOf(status, stream, typeOut, lengthOut);
}

PVStatus KivAtomUtilityGetAtomTypeAndLengthInByteStreamWithSize(KivByteStreamRef byteStream,
                                                                int64_t startOffset, int64_t size,
                                                                uint32_t flags, PVFourCharCode* typeOut,
                                                                int64_t* lengthOut) {
  KivAtomStream stream;
  const PVStatus status =
      KivAtomStreamInitWithByteStreamWithSize(byteStream, startOffset, size, flags, &stream);
  return typeAndLengthOf(status, stream, typeOut, lengthOut);
}

PVStatus KivAtomUtilityGetAtomTypeAndLengthInBBuf(PVBlockBufferRef blockBuffer, int64_t startOffset,
                                                  uint32_t flags, PVFourCharCode* typeOut,
                                                  int64_t* lengthOut) {
  KivAtomStream stream;
  const PVStatus status = KivAtomStreamInitWithBBuf(blockBuffer, startOffset, flags, &stream);
  return typeAndLengthOf(status, stream, typeOut, lengthOut);
}
