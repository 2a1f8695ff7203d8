// Sample buffers as objects: room, the end of their lives, what they hold.
#include "buffers/samples/sample_buffer.hpp"

#include <kiv/sample_buffer.h>
#include <pevrin/audio_format_description.h>

#include <new>

#include "runtime/twin.hpp"

using pv::sample::refused;
using pv::sample::Shape;

PVSampleBuffer::~PVSampleBuffer() {
  if (!rare) return;
  if (rare->handler.dispose) rare->handler.dispose(rare->handler.context);
  BRAllocatorDeallocate(BRGetAllocator(this), rare);
}

pv::sample::RarePart* PVSampleBuffer::makeRare() {
  if (!rare)
    if (void* block = BRAllocatorAllocate(BRGetAllocator(this), sizeof *rare))
      rare = new (block) pv::sample::RarePart;
  return rare;
}

namespace pv::sample {

PVSampleBuffer* allocate(BRAllocatorRef allocator, const Shape& shape) {
  const __int128 timing = __int128{shape.timing} + (shape.timing > 1);
  const __int128 bytes = timing * static_cast<int64_t>(sizeof(PVSampleTimingInfo)) +
                         __int128{shape.sizes} * static_cast<int64_t>(sizeof(size_t)) +
                         (shape.packets ? __int128{shape.samples} * 16 : 0);
  static_assert(sizeof(AudioStreamPacketDescription) == 16);
  if (bytes > PTRDIFF_MAX) return nullptr;
  return br::createUnfilled<PVSampleBuffer>(allocator, static_cast<size_t>(bytes), shape);
}

size_t totalSize(const PVSampleBuffer& buffer) {
  if (buffer.sizeForm == Form::kOne) return buffer.sizes()[0] * static_cast<size_t>(buffer.numSamples);
  size_t total = 0;
  for (size_t size : buffer.sizes()) total += size;
  return total;
}

void checkDataSize(const PVSampleBuffer& buffer) {
  if (!buffer.dataReady || !buffer.block()) return;
  const size_t total = totalSize(buffer);
  if (total != 0 && total != PVBlockBufferGetDataLength(buffer.block()))
    signalError(kPVSampleBufferError_RequiredParameterMissing);
}

const AudioStreamBasicDescription* streamOf(PVFormatDescriptionRef format) {
  const AudioStreamBasicDescription* stream = nullptr;
  if (format && PVFormatDescriptionGetMediaType(format) == kPVMediaType_Audio)
    stream = PVAudioFormatDescriptionGetStreamBasicDescription(format);
  if (!stream) signalError(kPVFormatDescriptionError_InvalidParameter);
  return stream;
}

}  // namespace pv::sample

int64_t PVSampleBufferGetNumSamples(PVSampleBufferRef buffer) {
  return refused(buffer) ? 0 : buffer->numSamples;
}

PVFormatDescriptionRef PVSampleBufferGetFormatDescription(PVSampleBufferRef buffer) {
  return refused(buffer) ? nullptr : buffer->format.get();
}

PVBlockBufferRef PVSampleBufferGetDataBuffer(PVSampleBufferRef buffer) {
  return refused(buffer) ? nullptr : buffer->block();
}

IMImageBufferRef PVSampleBufferGetImageBuffer(PVSampleBufferRef buffer) {
  if (refused(buffer) || !buffer->isImage) return nullptr;
  return static_cast<IMImageBufferRef>(const_cast<void*>(buffer->data.get()));
}

BRTypeID PVSampleBufferGetTypeID(void) { return br::typeID<PVSampleBuffer>(); }

PVSampleBufferRef KivSampleBufferRetain(PVSampleBufferRef buffer) {
  BRRetain(buffer);
  return buffer;
}

void KivSampleBufferRelease(PVSampleBufferRef buffer) { BRRelease(buffer); }
