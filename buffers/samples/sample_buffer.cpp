// Sample buffers as objects: room, the end of their lives, what they hold.
#include "buffers/samples/sample_buffer.hpp"

#include <kiv/sample_buffer.h>
#include <pevrin/audio_format_description.h>

#include <new>

#include "runtime/twin.hpp"

using pv::sample::refused;
using pv::sample::Shape;

static_assert(sizeof(PVSampleBuffer) + sizeof(PVSampleTimingInfo) + sizeof(size_t) <= 192,
              "one frame, and a second of PCM, stay small");

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
  // Counts up to 2^63 each: no product or sum below can wrap unnoticed.
  const auto timing = static_cast<size_t>(shape.timing) + (shape.timing > 1);
  const size_t packets = shape.packets ? static_cast<size_t>(shape.samples) : 0;
  size_t bytes, sizes, room;
  if (__builtin_mul_overflow(timing, sizeof(PVSampleTimingInfo), &bytes) ||
      __builtin_mul_overflow(static_cast<size_t>(shape.sizes), sizeof(size_t), &sizes) ||
      __builtin_mul_overflow(packets, sizeof(AudioStreamPacketDescription), &room) ||
      __builtin_add_overflow(bytes, sizes, &bytes) || __builtin_add_overflow(bytes, room, &bytes))
    return nullptr;
  return br::createUnfilled<PVSampleBuffer>(allocator, bytes, shape);
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
