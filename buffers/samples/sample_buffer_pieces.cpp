// Parts of a sample buffer.
#include <pevrin/sample_buffer_pieces.h>

#include <algorithm>

#include "buffers/samples/output_times.hpp"

using namespace pv::sample;
using pv::signalError;

namespace {

// Where a run of samples lies in the whole.
struct Run {
  int64_t location, length;
  size_t offset, bytes;      // in the data
  PVTime elapsed, duration;  // of the samples before it, and its own; with timing
  int64_t end() const { return location + length; }
};

// Walks over the samples of a buffer in runs, one behind the other: each costs what is in it. At most one
// run, the last, may end with the last sample.
class RunWalk {
 public:
  explicit RunWalk(const PVSampleBuffer& buffer) : buffer_(buffer), packets_(buffer.packets()) {}

  Run next(int64_t length) {
    const Run run{location_, length, offset(), bytesOf(length), elapsed_, durationOf(length)};
    location_ += length;
    bytesBefore_ += run.bytes;
    elapsed_ = PVTimeAdd(elapsed_, run.duration);
    return run;
  }

 private:
  size_t offset() const {
    return packets_.empty() ? bytesBefore_
                            : static_cast<size_t>(packets_[static_cast<size_t>(location_)].startOffset);
  }

  size_t bytesOf(int64_t length) const {
    const auto first = static_cast<size_t>(location_), count = static_cast<size_t>(length);
    if (!packets_.empty()) {
      size_t end = offset();
      for (const auto& packet : packets_.subspan(first, count))
        end = std::max(end, static_cast<size_t>(packet.startOffset) + packet.dataByteSize);
      return end - offset();
    }
    if (buffer_.sizeForm == Form::kOne) return buffer_.sizes()[0] * count;
    size_t bytes = 0;
    for (size_t size : buffer_.sizes().subspan(first, count)) bytes += size;
    return bytes;
  }

  PVTime durationOf(int64_t length) const {
    if (buffer_.timingForm == Form::kNone) return kPVTimeZero;
    if (buffer_.timingForm == Form::kOne) return multiplied(buffer_.timing()[0].duration, length);
    PVTime duration = kPVTimeZero;
    for (const auto& entry :
         buffer_.timing().subspan(static_cast<size_t>(location_), static_cast<size_t>(length)))
      duration = PVTimeAdd(duration, entry.duration);
    return duration;
  }

  const PVSampleBuffer& buffer_;
  const std::span<const AudioStreamPacketDescription> packets_;
  int64_t location_ = 0;
  size_t bytesBefore_ = 0;
  PVTime elapsed_ = kPVTimeZero;
};

void fillEntries(const PVSampleBuffer& whole, const Run& run, PVSampleBuffer& piece) {
  const auto first = static_cast<size_t>(run.location), count = static_cast<size_t>(run.length);
  if (whole.sizeForm == Form::kEach)
    std::ranges::copy(whole.sizes().subspan(first, count), piece.sizes().data());
  else if (piece.sizeForm != Form::kNone)
    piece.sizes()[0] = whole.sizes()[0];
  if (!whole.packets().empty()) {
    std::ranges::transform(whole.packets().subspan(first, count), piece.packetRoom().data(),
                           [&](auto packet) {
                             packet.startOffset -= static_cast<int64_t>(run.offset);
                             return packet;
                           });
    piece.packetsFilled = true;
  }
  if (whole.timingForm == Form::kEach) return setTiming(piece, whole.timing().subspan(first, count));
  if (whole.timingForm == Form::kNone) return;
  PVSampleTimingInfo entry = whole.timing()[0];
  entry.presentationTimeStamp = PVTimeAdd(entry.presentationTimeStamp, run.elapsed);
  entry.decodeTimeStamp = PVTimeAdd(entry.decodeTimeStamp, run.elapsed);
  piece.timing()[0] = entry;
}

// Gives a piece the edits of the whole, with its share of the trims. False when memory runs out.
bool setEdits(const PVSampleBuffer& whole, const Run& run, PVSampleBuffer& piece) {
  if (!whole.edits()) return true;
  for (BRStringRef key :
       {kPVSampleBufferAttachmentKey_SpeedMultiplier, kPVSampleBufferAttachmentKey_Reverse}) {
    uint32_t mode;
    BRTypeRef value = whole.attachments.get(key, &mode);
    if (value && !setAttachment(piece, key, value, mode)) return false;
  }
  if (whole.timingForm == Form::kNone || piece.timingForm == Form::kNone) return true;
  const OutputTimes output(whole);
  const Trimmed trims = output.trimmed(run.elapsed, run.duration);
  const auto setTrim = [&](BRStringRef key, PVTime trim) {
    uint32_t mode;
    if (!whole.attachments.get(key, &mode)) return true;
    if (PVTimeCompare(trim, kPVTimeZero) == 0) return setAttachment(piece, key, nullptr, mode);
    auto value = br::Ref<const BRDictionary>::adopt(PVTimeCopyAsDictionary(trim, BRGetAllocator(&piece)));
    return value && setAttachment(piece, key, value.get(), mode);
  };
  if (!setTrim(kPVSampleBufferAttachmentKey_TrimDurationAtStart, trims.atStart) ||
      !setTrim(kPVSampleBufferAttachmentKey_TrimDurationAtEnd, trims.atEnd))
    return false;
  return !output.movesPieces() ||
         setClientPresentation(
             piece, output.place(PVSampleBufferGetPresentationTimeStamp(&piece), run.duration, trims));
}

PVStatus referToData(BRAllocatorRef allocator, const PVSampleBuffer& whole, const Run& run,
                     PVSampleBuffer& piece) {
  if (run.length == 0 || !whole.block()) return 0;
  PVBlockBufferRef data;
  // A length of 0 would mean all that follows.
  PVStatus status = run.bytes == 0 ? PVBlockBufferCreateEmpty(allocator, 1, 0, &data)
                                   : PVBlockBufferCreateWithBufferReference(allocator, whole.block(),
                                                                            run.offset, run.bytes, 0, &data);
  if (status == 0) piece.data = br::Ref<const void>::adopt(data);
  return status;
}

PVStatus makePiece(BRAllocatorRef allocator, const PVSampleBuffer& whole, const Run& run,
                   PVSampleBufferRef* pieceOut) {
  Shape shape{run.length, std::ssize(whole.timing()), std::ssize(whole.sizes()), !whole.packets().empty()};
  if (whole.timingForm == Form::kEach) shape.timing = run.length;
  if (whole.sizeForm == Form::kEach || run.length == 0) shape.sizes = run.length;
  auto piece = br::Ref<PVSampleBuffer>::adopt(allocate(allocator, shape));
  if (!piece) return signalError(kPVSampleBufferError_AllocationFailed);
  piece->format = whole.format;
  piece->dataReady = whole.dataReady;
  if (!whole.dataReady) piece->tracked = br::Ref<PVSampleBuffer>::retain(whole.ref());
  if (PVStatus status = referToData(allocator, whole, run, *piece)) return status;
  fillEntries(whole, run, *piece);
  if (!copySampleAttachments(whole, run.location, *piece) || !copyPropagatingAttachments(whole, *piece) ||
      !setEdits(whole, run, *piece))
    return signalError(kPVSampleBufferError_AllocationFailed);
  *pieceOut = piece.detach();
  return 0;
}

PVStatus checkDivisible(const PVSampleBuffer& buffer) {
  const bool located = buffer.sizeForm != Form::kNone || !buffer.packets().empty();
  return located ? 0 : signalError(kPVSampleBufferError_NoSampleSizes);
}

PVStatus checkHasData(const PVSampleBuffer& buffer) {
  return buffer.dataReady || buffer.data ? 0 : signalError(kPVSampleBufferError_DataNotReady);
}

}  // namespace

PVStatus PVSampleBufferCopySampleBufferForRange(BRAllocatorRef allocator, PVSampleBufferRef buffer,
                                                PVSampleRange range, PVSampleBufferRef* pieceOut) {
  if (pieceOut) *pieceOut = nullptr;
  if (!buffer || !pieceOut) return signalError(kPVSampleBufferError_RequiredParameterMissing);
  if (PVStatus status = refused(buffer)) return status;
  if (PVStatus status = checkDivisible(*buffer)) return status;
  if (range.location < 0 || range.location >= buffer->numSamples || range.length < 0 ||
      range.length > buffer->numSamples - range.location)
    return signalError(kPVSampleBufferError_SampleIndexOutOfRange);
  if (PVStatus status = checkHasData(*buffer)) return status;
  RunWalk walk(*buffer);
  walk.next(range.location);
  return makePiece(allocator, *buffer, walk.next(range.length), pieceOut);
}

namespace {

template <class Call>
PVStatus forEachSample(PVSampleBufferRef buffer, Call call) {
  const auto whole = br::Ref<PVSampleBuffer>::retain(buffer);
  if (whole->numSamples == 1) return call(buffer, 0);
  if (whole->numSamples == 0) return 0;
  if (PVStatus status = checkDivisible(*whole)) return status;
  if (PVStatus status = checkHasData(*whole)) return status;
  RunWalk walk(*whole);
  for (int64_t i = 0; i < whole->numSamples; ++i) {
    if (PVStatus status = refused(buffer)) return status;
    br::Ref<PVSampleBuffer> piece;
    if (PVStatus status = makePiece(BRGetAllocator(buffer), *whole, walk.next(1), piece.out())) return status;
    if (PVStatus status = call(piece.get(), i)) return status;
  }
  return 0;
}

}  // namespace

PVStatus PVSampleBufferCallForEachSample(PVSampleBufferRef buffer, PVSampleBufferEachSampleCallback callback,
                                         void* refCon) {
  if (PVStatus status = refused(buffer)) return status;
  if (!callback) return signalError(kPVSampleBufferError_RequiredParameterMissing);
  return forEachSample(
      buffer, [=](PVSampleBufferRef sample, int64_t index) { return callback(sample, index, refCon); });
}

PVStatus PVSampleBufferCallBlockForEachSample(PVSampleBufferRef buffer,
                                              const PVSampleBufferEachSampleHandler* handler) {
  if (PVStatus status = refused(buffer)) return status;
  if (!handler || !handler->invoke) return signalError(kPVSampleBufferError_RequiredParameterMissing);
  return forEachSample(buffer, [=](PVSampleBufferRef sample, int64_t index) {
    return handler->invoke(handler->context, sample, index);
  });
}
