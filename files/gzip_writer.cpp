// Byte streams that compress what is appended to them.
#include <bedra/string.h>

#include <algorithm>

#include "files/byte_stream.hpp"
#include "files/gzip.hpp"

namespace {

using pv::signalError;

struct Writer {
  Writer(BRAllocatorRef allocator_, KivByteStreamRef compressed_)
      : allocator(br::Ref<const BRAllocator>::retain(allocator_)),
        compressed(br::Ref<PVBaseObject>::retain(compressed_)),
        codec(pv::gzip::codecState(allocator_)) {}
  ~Writer() {
    if (!hasCodec) return;
    finish();
    deflateEnd(&codec);
  }

  PVStatus begin(int level) {
    constexpr int kMemoryLevel = 8;
    hasCodec = deflateInit2(&codec, level, Z_DEFLATED, pv::gzip::kWindowBits, kMemoryLevel,
                            Z_DEFAULT_STRATEGY) == Z_OK;
    if (!hasCodec) return signalError(kPVStatus_OutOfMemory);
    codec.next_out = output;
    codec.avail_out = sizeof output;
    return kPVStatus_Success;
  }
  // Compresses the input that the codec was given; at the end also what it still holds.
  PVStatus compress(int flush);
  PVStatus writeOut() {
    const size_t count = sizeof output - codec.avail_out;
    codec.next_out = output;
    codec.avail_out = sizeof output;
    return KivByteStreamAppend(compressed.get(), output, count);
  }
  PVStatus append(const void* bytes, size_t count);
  PVStatus finish();

  BRStringRef copyDebugDescription() const {
    return BRStringCreateWithFormat(nullptr, "%lld bytes compressed into %@", static_cast<long long>(length),
                                    compressed.get());
  }

  br::Ref<const BRAllocator> allocator;
  br::Ref<PVBaseObject> compressed;
  z_stream codec;
  bool hasCodec = false, isFinished = false;
  PVStatus failure = kPVStatus_Success;  // after the first one nothing that follows would make sense
  int64_t length = 0;
  uint8_t output[64 * 1024];
};

PVStatus Writer::compress(int flush) {
  for (;;) {
    const int result = deflate(&codec, flush);
    const bool isDone =
        flush == Z_FINISH ? result == Z_STREAM_END : codec.avail_in == 0 && codec.avail_out > 0;
    if (isDone && flush != Z_FINISH) return kPVStatus_Success;
    if (PVStatus status = writeOut()) return status;
    if (isDone) return kPVStatus_Success;
  }
}

PVStatus Writer::append(const void* bytes, size_t count) {
  if (failure != kPVStatus_Success) return signalError(failure);
  if (isFinished || count > static_cast<uint64_t>(INT64_MAX - length))
    return signalError(kKivByteStreamError_OutOfRange);
  const auto* from = static_cast<const uint8_t*>(bytes);
  for (size_t done = 0; done < count;) {
    const size_t piece = std::min(count - done, size_t{1} << 30);
    codec.next_in = const_cast<Bytef*>(from + done);
    codec.avail_in = static_cast<uInt>(piece);
    if ((failure = compress(Z_NO_FLUSH))) return failure;
    done += piece;
  }
  length += static_cast<int64_t>(count);
  return kPVStatus_Success;
}

PVStatus Writer::finish() {
  if (failure != kPVStatus_Success) return signalError(failure);
  if (isFinished) return kPVStatus_Success;
  codec.avail_in = 0;
  failure = compress(Z_FINISH);
  isFinished = failure == kPVStatus_Success;
  return failure;
}

constexpr PVBaseClass kBaseClass = pv::byteStreamBaseClass<Writer>();
constexpr KivByteStreamClass kByteStreamClass = {
    0,
    nullptr,
    nullptr,
    [](KivByteStreamRef stream, int64_t* lengthOut) {
      *lengthOut = pv::storageOf<Writer>(stream).length;
      return PVStatus{kPVStatus_Success};
    },
    [](KivByteStreamRef stream, const void* bytes, size_t length) {
      return pv::storageOf<Writer>(stream).append(bytes, length);
    },
    nullptr};
constexpr KivByteStreamVTable kVTable = {{nullptr, &kBaseClass}, &kByteStreamClass};

}  // namespace

PVStatus KivByteStreamCreateWritableForGzip(BRAllocatorRef allocator, KivByteStreamRef compressed,
                                            int32_t level, KivByteStreamRef* streamOut) {
  if (streamOut) *streamOut = nullptr;
  if (!compressed || !streamOut || level < -1 || level > 9) return signalError(kKivByteStreamError_ParamErr);
  br::Ref<PVBaseObject> stream;
  if (PVStatus status = pv::createByteStream<Writer>(allocator, kVTable, stream.out(), allocator, compressed))
    return status;
  if (PVStatus status = pv::storageOf<Writer>(stream.get()).begin(level)) return status;
  *streamOut = stream.detach();
  return kPVStatus_Success;
}

PVStatus KivGzipByteStreamFinish(KivByteStreamRef stream) {
  if (!stream || PVBaseObjectGetVTable(stream) != &kVTable.base)
    return signalError(kKivByteStreamError_ParamErr);
  return pv::storageOf<Writer>(stream).finish();
}
