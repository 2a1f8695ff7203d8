// Making sample buffers, and copies of them.
#include <kiv/sample_buffer.h>
#include <pevrin/video_format_description.h>

#include <algorithm>

#include "buffers/samples/sample_buffer.hpp"

using namespace pv::sample;
using pv::signalError;

namespace {

// Whether packets of a format differ in bytes or frames, and so have descriptions.
bool packetsVary(const AudioStreamBasicDescription& stream) {
  return stream.framesPerPacket == 0 || stream.bytesPerPacket == 0;
}

}  // namespace

PVStatus PVSampleBufferCreate(BRAllocatorRef allocator, PVBlockBufferRef dataBuffer, bool dataReady,
                              PVSampleBufferMakeDataReadyCallback makeDataReadyCallback,
                              void* makeDataReadyRefCon, PVFormatDescriptionRef formatDescription,
                              int64_t numSamples, int64_t numSampleTimingEntries,
                              const PVSampleTimingInfo* sampleTimingArray, int64_t numSampleSizeEntries,
                              const size_t* sampleSizeArray, PVSampleBufferRef* bufferOut) {
  if (!bufferOut) return signalError(kPVSampleBufferError_RequiredParameterMissing);
  *bufferOut = nullptr;
  if (!isConsistent(numSamples, numSampleTimingEntries, 1) ||
      !isConsistent(numSamples, numSampleSizeEntries, 0))
    return signalError(kPVSampleBufferError_InvalidEntryCount);
  if ((numSampleTimingEntries && !sampleTimingArray) || (numSampleSizeEntries && !sampleSizeArray))
    return signalError(kPVSampleBufferError_RequiredParameterMissing);
  Shape shape{numSamples, numSampleTimingEntries, numSampleSizeEntries, false};
  if (formatDescription && PVFormatDescriptionGetMediaType(formatDescription) == kPVMediaType_Audio) {
    const AudioStreamBasicDescription* stream = streamOf(formatDescription);
    if (!stream) return kPVFormatDescriptionError_InvalidParameter;
    shape.packets = packetsVary(*stream);
  }
  PVSampleBuffer* buffer = allocate(allocator, shape);
  if (!buffer) return signalError(kPVSampleBufferError_AllocationFailed);
  buffer->data = br::Ref<const void>::retain(dataBuffer);
  buffer->format = br::Ref<PVFormatDescription>::retain(formatDescription);
  buffer->dataReady = dataReady;
  buffer->makeDataReady = makeDataReadyCallback;
  buffer->makeDataReadyRefCon = makeDataReadyRefCon;
  setTiming(*buffer, {sampleTimingArray, static_cast<size_t>(numSampleTimingEntries)});
  std::copy_n(sampleSizeArray, numSampleSizeEntries, buffer->sizes().data());
  checkDataSize(*buffer);
  *bufferOut = buffer;
  return 0;
}

PVStatus PVSampleBufferCreateReady(BRAllocatorRef allocator, PVBlockBufferRef dataBuffer,
                                   PVFormatDescriptionRef formatDescription, int64_t numSamples,
                                   int64_t numSampleTimingEntries,
                                   const PVSampleTimingInfo* sampleTimingArray, int64_t numSampleSizeEntries,
                                   const size_t* sampleSizeArray, PVSampleBufferRef* bufferOut) {
  return PVSampleBufferCreate(allocator, dataBuffer, true, nullptr, nullptr, formatDescription, numSamples,
                              numSampleTimingEntries, sampleTimingArray, numSampleSizeEntries,
                              sampleSizeArray, bufferOut);
}

PVStatus PVSampleBufferCreateForImageBuffer(BRAllocatorRef allocator, IMImageBufferRef imageBuffer,
                                            bool dataReady,
                                            PVSampleBufferMakeDataReadyCallback makeDataReadyCallback,
                                            void* makeDataReadyRefCon,
                                            PVFormatDescriptionRef formatDescription,
                                            const PVSampleTimingInfo* sampleTiming,
                                            PVSampleBufferRef* bufferOut) {
  if (bufferOut) *bufferOut = nullptr;
  if (!bufferOut || !imageBuffer || !formatDescription)
    return signalError(kPVSampleBufferError_RequiredParameterMissing);
  if (PVFormatDescriptionGetMediaType(formatDescription) != kPVMediaType_Video)
    return signalError(kPVSampleBufferError_InvalidMediaType);
  if (!sampleTiming) return signalError(kPVSampleBufferError_RequiredParameterMissing);
  if (!PVVideoFormatDescriptionMatchesImageBuffer(formatDescription, imageBuffer))
    return signalError(kPVSampleBufferError_FormatMismatch);
  PVSampleBuffer* buffer = allocate(allocator, {.samples = 1, .timing = 1});
  if (!buffer) return signalError(kPVSampleBufferError_AllocationFailed);
  buffer->isImage = true;
  buffer->data = br::Ref<const void>::retain(imageBuffer);
  buffer->format = br::Ref<PVFormatDescription>::retain(formatDescription);
  buffer->dataReady = dataReady;
  buffer->makeDataReady = makeDataReadyCallback;
  buffer->makeDataReadyRefCon = makeDataReadyRefCon;
  setTiming(*buffer, {sampleTiming, 1});
  *bufferOut = buffer;
  return 0;
}

PVStatus PVSampleBufferCreateReadyWithImageBuffer(BRAllocatorRef allocator, IMImageBufferRef imageBuffer,
                                                  PVFormatDescriptionRef formatDescription,
                                                  const PVSampleTimingInfo* sampleTiming,
                                                  PVSampleBufferRef* bufferOut) {
  return PVSampleBufferCreateForImageBuffer(allocator, imageBuffer, true, nullptr, nullptr, formatDescription,
                                            sampleTiming, bufferOut);
}

namespace {

// Everything of a copy but its times. False when memory runs out.
bool fillCopy(const PVSampleBuffer& source, PVSampleBuffer& copy) {
  copy.isImage = source.isImage;
  copy.data = source.data;
  copy.format = source.format;
  copy.dataReady = source.dataReady;
  if (!source.dataReady) copy.tracked = br::Ref<PVSampleBuffer>::retain(source.ref());
  std::ranges::copy(source.sizes(), copy.sizes().data());
  std::ranges::copy(source.packets(), copy.packetRoom().data());
  copy.packetsFilled = source.packetsFilled;
  return copySampleAttachments(source, 0, copy) && copyPropagatingAttachments(source, copy);
}

PVStatus createCopy(BRAllocatorRef allocator, PVSampleBufferRef source,
                    std::span<const PVSampleTimingInfo> timing, const Edits* client,
                    PVSampleBufferRef* bufferOut) {
  auto copy = br::Ref<PVSampleBuffer>::adopt(
      allocate(allocator, {source->numSamples, static_cast<int64_t>(timing.size()),
                           static_cast<int64_t>(source->sizes().size()), source->hasPacketRoom}));
  if (!copy || !fillCopy(*source, *copy)) return signalError(kPVSampleBufferError_AllocationFailed);
  setTiming(*copy, timing);
  if (client && !setClientPresentation(*copy, client->clientPresentation))
    return signalError(kPVSampleBufferError_AllocationFailed);
  *bufferOut = copy.detach();
  return 0;
}

}  // namespace

PVStatus PVSampleBufferCreateCopy(BRAllocatorRef allocator, PVSampleBufferRef source,
                                  PVSampleBufferRef* bufferOut) {
  if (bufferOut) *bufferOut = nullptr;
  if (!source || !bufferOut) return signalError(kPVSampleBufferError_RequiredParameterMissing);
  if (PVStatus status = refused(source)) return status;
  return createCopy(allocator, source, source->timing(), source->edits(), bufferOut);
}

PVStatus PVSampleBufferCreateCopyWithNewTiming(BRAllocatorRef allocator, PVSampleBufferRef source,
                                               int64_t numSampleTimingEntries,
                                               const PVSampleTimingInfo* sampleTimingArray,
                                               PVSampleBufferRef* bufferOut) {
  if (bufferOut) *bufferOut = nullptr;
  if (!source || !bufferOut || (numSampleTimingEntries && !sampleTimingArray))
    return signalError(kPVSampleBufferError_RequiredParameterMissing);
  if (PVStatus status = refused(source)) return status;
  if (numSampleTimingEntries < 0 ||
      (numSampleTimingEntries > 1 && numSampleTimingEntries != source->numSamples))
    return signalError(kPVSampleBufferError_InvalidEntryCount);
  return createCopy(allocator, source, {sampleTimingArray, static_cast<size_t>(numSampleTimingEntries)},
                    nullptr, bufferOut);
}

PVStatus KivSampleBufferCreateCopyWithNoData(BRAllocatorRef allocator, PVSampleBufferRef source,
                                             PVSampleBufferRef* bufferOut) {
  PVStatus status = PVSampleBufferCreateCopy(allocator, source, bufferOut);
  if (status) return status;
  (*bufferOut)->data = nullptr;
  (*bufferOut)->isImage = false;
  return 0;
}
