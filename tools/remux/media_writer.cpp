#include "media_writer.hpp"

#include <pevrin/sample_buffer_data.h>

#include "failure.hpp"
#include "movie/media_map.hpp"

namespace {

// Small samples are written together.
constexpr size_t kPendingBytes = size_t{1} << 20;
// What is read of the input is in memory; after so many bytes it is given back.
constexpr uint64_t kMappedBytes = uint64_t{32} << 20;

}  // namespace

MediaWriter::MediaWriter(SampleMaker create, PVBlockBufferRef media, uint64_t totalBytes, Progress& progress)
    : create_(std::move(create)), media_(media), totalBytes_(totalBytes), progress_(progress) {
  check(PVBufferQueueCreate(nullptr, 0, PVBufferQueueGetCallbacksForUnsortedSampleBuffers(), queue_.out()),
        "memory ran out");
  pending_.reserve(kPendingBytes);
}

void MediaWriter::append(KivAtomWriter& mdat, size_t track, const std::vector<MovieSample>& samples) {
  for (const MovieSample& place : samples) {
    br::Ref<PVSampleBuffer> sample;
    check(create_(track, place, sample.out()), "a sample could not be read");
    check(PVBufferQueueEnqueue(queue_.get(), sample.get()), "memory ran out");
  }
  while (PVBufferRef head = PVBufferQueueDequeueIfDataReadyAndRetain(queue_.get())) {
    const auto sample =
        br::Ref<PVSampleBuffer>::adopt(static_cast<PVSampleBufferRef>(const_cast<void*>(head)));
    appendData(mdat, sample.get());
    if (mappedBytes_ > kMappedBytes) {
      releasePages(media_);
      mappedBytes_ = 0;
    }
  }
  if (!PVBufferQueueIsEmpty(queue_.get()))
    throw RemuxFailure(fmt::format("a sample of track {} is not, or not all, in the file", track + 1));
  progress_.show("Media", static_cast<int64_t>(doneBytes_), static_cast<int64_t>(totalBytes_));
}

void MediaWriter::appendData(KivAtomWriter& mdat, PVSampleBufferRef sample) {
  PVBlockBufferRef data = PVSampleBufferGetDataBuffer(sample);
  const size_t length = PVBlockBufferGetDataLength(data);
  if (length == 0) return;
  doneBytes_ += length;
  mappedBytes_ += length;
  if (pending_.size() + length > kPendingBytes) flush(mdat);
  if (length > kPendingBytes)
    return check(KivAtomWriterAppendBlockBufferData(&mdat, data), "the output cannot be written");
  const size_t before = pending_.size();
  pending_.resize(before + length);
  check(PVBlockBufferCopyDataBytes(data, 0, length, pending_.data() + before), "a sample could not be read");
}

void MediaWriter::flush(KivAtomWriter& mdat) {
  check(KivAtomWriterAppendData(&mdat, pending_.data(), pending_.size()), "the output cannot be written");
  pending_.clear();
}
