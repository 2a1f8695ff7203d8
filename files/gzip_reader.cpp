// Byte streams that read what is compressed in another.
//
// The decoder goes forward a block at a time; reads are served from the block that was decoded last. On the
// way it leaves access points, copies of its state. A read of what lies behind, or far ahead, goes on from
// the last one before it.
#include <bedra/string.h>

#include <algorithm>
#include <cstring>
#include <mutex>

#include "files/byte_stream.hpp"
#include "files/gzip.hpp"

namespace {

using pv::signalError;

constexpr size_t kMostPoints = 256;
constexpr int64_t kFirstInterval = int64_t{1} << 20;

// Where in the data, and in the compressed bytes, the decoder stands.
struct Place {
  int64_t output = 0, input = 0;
};

struct AccessPoint {
  z_stream codec;
  Place place;
};

struct Reader {
  Reader(BRAllocatorRef allocator_, KivByteStreamRef compressed_, bool endsAtDamage_)
      : allocator(br::Ref<const BRAllocator>::retain(allocator_)),
        compressed(br::Ref<PVBaseObject>::retain(compressed_)),
        endsAtDamage(endsAtDamage_) {}
  ~Reader() {
    if (hasCodec) inflateEnd(&codec);
    for (size_t i = 0; i < pointCount; ++i) remove(points[i]);
  }

  PVStatus read(int64_t offset, size_t length, uint8_t* destination, size_t& count);
  // Until everything is decoded that can be, and tells how much that is.
  PVStatus decodeToEnd(int64_t& readableLength);
  // What a read that reaches the end answers.
  PVStatus statusAtEnd() const {
    return endStatus && !endsAtDamage ? signalError(endStatus) : kPVStatus_Success;
  }
  PVStatus damage() const { return endStatus ? signalError(endStatus) : kPVStatus_Success; }
  BRStringRef copyDebugDescription() const {
    return BRStringCreateWithFormat(nullptr, "what is compressed in %@", compressed.get());
  }

 private:
  bool isAtEnd() const { return end >= 0 && blockStart + static_cast<int64_t>(blockLength) >= end; }
  // Goes on before the offset, as near to it as is known.
  PVStatus approach(int64_t offset);
  PVStatus restart(const AccessPoint* point);
  PVStatus decodeBlock();
  PVStatus fillInput();
  // Behind a member: another one, padding, or the end. Answers with the status that the end has.
  PVStatus endMember(bool& isOver);
  void leavePoint();
  void remove(AccessPoint* point) {
    inflateEnd(&point->codec);
    BRAllocatorDeallocate(allocator.get(), point);
  }

 public:
  br::Ref<const BRAllocator> allocator;
  br::Ref<PVBaseObject> compressed;
  const bool endsAtDamage;
  std::mutex lock;

 private:
  z_stream codec{};
  bool hasCodec = false;
  int64_t nextInput = 0;  // of the first compressed byte that is not in the input yet
  int64_t blockStart = 0;
  size_t blockLength = 0;
  int64_t end = -1;  // of what can be read, once it is known
  PVStatus endStatus = kPVStatus_Success;
  AccessPoint* points[kMostPoints];
  size_t pointCount = 0;
  int64_t interval = kFirstInterval;
  uint8_t input[32 * 1024];
  uint8_t block[64 * 1024];
};

PVStatus Reader::restart(const AccessPoint* point) {
  if (hasCodec) inflateEnd(&codec);
  codec = pv::gzip::codecState(allocator.get());
  const int result = point ? inflateCopy(&codec, const_cast<z_streamp>(&point->codec))
                           : inflateInit2(&codec, pv::gzip::kWindowBits);
  hasCodec = result == Z_OK;
  codec.avail_in = 0;
  nextInput = point ? point->place.input : 0;
  blockStart = point ? point->place.output : 0;
  blockLength = 0;
  return hasCodec ? kPVStatus_Success : signalError(kPVStatus_OutOfMemory);
}

PVStatus Reader::approach(int64_t offset) {
  const AccessPoint* best = nullptr;
  for (size_t i = 0; i < pointCount && points[i]->place.output <= offset; ++i) best = points[i];
  const int64_t standing = blockStart + static_cast<int64_t>(blockLength);
  const bool isBehind = offset < blockStart;
  if (hasCodec && !isBehind && (!best || best->place.output <= standing)) return kPVStatus_Success;
  return restart(best);
}

PVStatus Reader::fillInput() {
  if (codec.avail_in > 0) return kPVStatus_Success;
  size_t count = 0;
  if (PVStatus status = KivByteStreamRead(compressed.get(), nextInput, sizeof input, input, &count))
    return status;
  nextInput += static_cast<int64_t>(count);
  codec.next_in = input;
  codec.avail_in = static_cast<uInt>(count);
  return kPVStatus_Success;
}

PVStatus Reader::endMember(bool& isOver) {
  bool hasPadding = false;
  for (;;) {
    if (PVStatus status = fillInput()) return status;
    isOver = codec.avail_in == 0;
    if (isOver) return kPVStatus_Success;
    if (*codec.next_in != 0) break;
    ++codec.next_in;
    --codec.avail_in;
    hasPadding = true;
  }
  isOver = hasPadding || inflateReset(&codec) != Z_OK;
  return isOver ? PVStatus{kKivByteStreamError_MalformedGzip} : kPVStatus_Success;
}

// Failures of the stream below, and of memory, may pass; damage stays where it is, and is the end of what can
// be read.
PVStatus Reader::decodeBlock() {
  blockStart += static_cast<int64_t>(blockLength);
  blockLength = 0;
  leavePoint();
  codec.next_out = block;
  codec.avail_out = sizeof block;
  bool isOver = false;
  PVStatus damage = kPVStatus_Success, failure = kPVStatus_Success;
  while (!isOver && codec.avail_out > 0) {
    if ((failure = fillInput())) break;
    const int result = inflate(&codec, Z_NO_FLUSH);
    if (result == Z_STREAM_END) {
      const PVStatus status = endMember(isOver);
      (isOver ? damage : failure) = status;
      if (failure) break;
    } else if (result == Z_MEM_ERROR) {
      failure = signalError(kPVStatus_OutOfMemory);
      break;
    } else if (result != Z_OK) {
      isOver = true;
      damage = result == Z_BUF_ERROR ? kKivByteStreamError_TruncatedGzip : kKivByteStreamError_MalformedGzip;
    }
  }
  blockLength = sizeof block - codec.avail_out;
  if (failure) {
    // what the decoder holds is of no use any more
    inflateEnd(&codec);
    hasCodec = false;
    return failure;
  }
  if (isOver) {
    end = blockStart + static_cast<int64_t>(blockLength);
    endStatus = damage;
  }
  return kPVStatus_Success;
}

// A point that there is no memory for is left out.
void Reader::leavePoint() {
  const int64_t last = pointCount ? points[pointCount - 1]->place.output : 0;
  if (blockStart - last < interval) return;
  if (pointCount == kMostPoints) {
    for (size_t i = 0; i < kMostPoints; i += 2) {
      remove(points[i]);
      points[i / 2] = points[i + 1];
    }
    pointCount /= 2;
    interval *= 2;
  }
  auto* point = static_cast<AccessPoint*>(BRAllocatorAllocate(allocator.get(), sizeof(AccessPoint)));
  if (!point) return;
  if (inflateCopy(&point->codec, &codec) != Z_OK) return BRAllocatorDeallocate(allocator.get(), point);
  point->place = {blockStart, nextInput - codec.avail_in};
  points[pointCount++] = point;
}

PVStatus Reader::read(int64_t offset, size_t length, uint8_t* destination, size_t& count) {
  count = 0;
  if (PVStatus status = approach(offset)) return status;
  while (count < length) {
    const int64_t at = offset + static_cast<int64_t>(count);
    const int64_t standing = blockStart + static_cast<int64_t>(blockLength);
    if (at < standing) {
      const auto skipped = static_cast<size_t>(at - blockStart);
      const size_t piece = std::min(length - count, blockLength - skipped);
      std::memcpy(destination + count, block + skipped, piece);
      count += piece;
    } else if (isAtEnd()) {
      return statusAtEnd();
    } else if (PVStatus status = decodeBlock()) {
      return status;
    }
  }
  return kPVStatus_Success;
}

PVStatus Reader::decodeToEnd(int64_t& readableLength) {
  if (end < 0) {
    if (PVStatus status = approach(INT64_MAX)) return status;
    while (end < 0)
      if (PVStatus status = decodeBlock()) return status;
  }
  readableLength = end;
  return kPVStatus_Success;
}

PVStatus read(KivByteStreamRef stream, int64_t offset, size_t length, void* destination,
              size_t* lengthReadOut) {
  auto& reader = pv::storageOf<Reader>(stream);
  const std::lock_guard guard(reader.lock);
  size_t count = 0;
  const PVStatus status = reader.read(offset, length, static_cast<uint8_t*>(destination), count);
  if (status == kPVStatus_Success) *lengthReadOut = count;
  return status;
}

PVStatus readIntoNewBlock(KivByteStreamRef stream, int64_t offset, size_t length,
                          PVBlockBufferRef* blockBufferOut) {
  // How much there is need not be known for what is short, and damage behind what is read does not matter.
  constexpr size_t kShort = 64 * 1024;
  if (length > kShort) {
    auto& reader = pv::storageOf<Reader>(stream);
    const std::lock_guard guard(reader.lock);
    int64_t readable = 0;
    if (PVStatus status = reader.decodeToEnd(readable)) return status;
    const auto there = static_cast<size_t>(std::max<int64_t>(readable - offset, 0));
    if (length > there)
      if (PVStatus status = reader.statusAtEnd()) return status;
    length = std::min(length, there);
  }
  return pv::readIntoNewBlockOf(stream, offset, length, blockBufferOut);
}

PVStatus getTotalLength(KivByteStreamRef stream, int64_t* lengthOut) {
  auto& reader = pv::storageOf<Reader>(stream);
  const std::lock_guard guard(reader.lock);
  int64_t length = 0;
  if (PVStatus status = reader.decodeToEnd(length)) return status;
  if (PVStatus status = reader.statusAtEnd()) return status;
  *lengthOut = length;
  return kPVStatus_Success;
}

constexpr PVBaseClass kBaseClass = pv::byteStreamBaseClass<Reader>();
constexpr KivByteStreamClass kByteStreamClass = {0, read, readIntoNewBlock, getTotalLength, nullptr, nullptr};
constexpr KivByteStreamVTable kVTable = {{nullptr, &kBaseClass}, &kByteStreamClass};

}  // namespace

PVStatus KivByteStreamCreateForGzip(BRAllocatorRef allocator, KivByteStreamRef compressed, uint32_t flags,
                                    KivByteStreamRef* streamOut) {
  if (streamOut) *streamOut = nullptr;
  if (!compressed || !streamOut || (flags & ~uint32_t{kKivGzipByteStream_EndsAtDamage}) != 0)
    return signalError(kKivByteStreamError_ParamErr);
  return pv::createByteStream<Reader>(allocator, kVTable, streamOut, allocator, compressed,
                                      (flags & kKivGzipByteStream_EndsAtDamage) != 0);
}

PVStatus KivGzipByteStreamVerify(KivByteStreamRef stream, int64_t* readableLengthOut) {
  if (!stream || PVBaseObjectGetVTable(stream) != &kVTable.base)
    return signalError(kKivByteStreamError_ParamErr);
  auto& reader = pv::storageOf<Reader>(stream);
  const std::lock_guard guard(reader.lock);
  int64_t length = 0;
  if (PVStatus status = reader.decodeToEnd(length)) return status;
  if (readableLengthOut) *readableLengthOut = length;
  return reader.damage();
}
