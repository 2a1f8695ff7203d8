// Audio sample buffers: creation by packets, and the descriptions of their packets.
#include <pevrin/sample_buffer_audio.h>

#include <algorithm>
#include <limits>

#include "buffers/samples/audio_buffer_list.hpp"

using namespace pv::sample;
using pv::signalError;

namespace {

// The sample rate as a timescale: truncated, and what does not fit cut off. Not a number makes no timescale.
int32_t timescaleOf(const AudioStreamBasicDescription& stream) {
  const double rate = stream.sampleRate;
  if (!(rate > 0)) return 0;
  return rate >= INT32_MAX ? INT32_MAX : static_cast<int32_t>(rate);
}

using Packets = std::span<const AudioStreamPacketDescription>;

bool lieBackToBack(Packets packets) {
  return std::ranges::adjacent_find(packets, [](const auto& one, const auto& next) {
           return next.startOffset - int64_t{one.dataByteSize} != one.startOffset;
         }) == packets.end();
}

Shape shapeOf(const AudioStreamBasicDescription& stream, int64_t numSamples, Packets packets) {
  Shape shape{numSamples, stream.framesPerPacket ? 1 : numSamples, 1, true};
  if (stream.bytesPerPacket == 0)
    shape.sizes = lieBackToBack(packets) ? numSamples : 0;
  else if (isPlanar(stream))
    shape.sizes = 0;
  // Packets that are all alike have no descriptions unless they are given.
  if (stream.bytesPerPacket && stream.framesPerPacket) shape.packets = !packets.empty();
  return shape;
}

void fillEntries(PVSampleBuffer& buffer, const AudioStreamBasicDescription& stream, PVTime presentation,
                 Packets packets) {
  const int32_t timescale = timescaleOf(stream);
  const auto timing = buffer.timing();
  for (size_t i = 0; i < timing.size(); ++i) {
    const uint32_t frames =
        stream.framesPerPacket ? stream.framesPerPacket : packets[i].variableFramesInPacket;
    timing[i] = {PVTimeMake(frames, timescale), presentation, kPVTimeInvalid};
    presentation = PVTimeAdd(presentation, timing[i].duration);
  }
  summarise(buffer);
  if (stream.bytesPerPacket)
    std::ranges::fill(buffer.sizes(), stream.bytesPerPacket);
  else
    std::ranges::transform(packets.first(buffer.sizes().size()), buffer.sizes().begin(),
                           &AudioStreamPacketDescription::dataByteSize);
  std::ranges::copy(packets, buffer.packetRoom().begin());
  buffer.packetsFilled = !packets.empty();
}

}  // namespace

PVStatus PVAudioSampleBufferCreateWithPacketDescriptions(
    BRAllocatorRef allocator, PVBlockBufferRef dataBuffer, bool dataReady,
    PVSampleBufferMakeDataReadyCallback makeDataReadyCallback, void* makeDataReadyRefCon,
    PVFormatDescriptionRef formatDescription, int64_t numSamples, PVTime presentationTimeStamp,
    const AudioStreamPacketDescription* packetDescriptions, PVSampleBufferRef* bufferOut) {
  if (!bufferOut) return signalError(kPVSampleBufferError_RequiredParameterMissing);
  *bufferOut = nullptr;
  if (numSamples < 1) return signalError(kPVSampleBufferError_InvalidEntryCount);
  if (!formatDescription || PVFormatDescriptionGetMediaType(formatDescription) != kPVMediaType_Audio)
    return signalError(kPVSampleBufferError_RequiredParameterMissing);
  if (!PVTimeIsNumeric(presentationTimeStamp)) return signalError(kPVSampleBufferError_TimingNotNumeric);
  const AudioStreamBasicDescription* stream = streamOf(formatDescription);
  if (!stream) return kPVFormatDescriptionError_InvalidParameter;
  if (!packetDescriptions && (!stream->bytesPerPacket || !stream->framesPerPacket))
    return signalError(kPVSampleBufferError_RequiredParameterMissing);
  const Packets packets(packetDescriptions, packetDescriptions ? static_cast<size_t>(numSamples) : 0);
  PVSampleBuffer* buffer = allocate(allocator, shapeOf(*stream, numSamples, packets));
  if (!buffer) return signalError(kPVSampleBufferError_AllocationFailed);
  buffer->data = br::Ref<const void>::retain(dataBuffer);
  buffer->format = br::Ref<PVFormatDescription>::retain(formatDescription);
  buffer->dataReady = dataReady;
  buffer->makeDataReady = makeDataReadyCallback;
  buffer->makeDataReadyRefCon = makeDataReadyRefCon;
  fillEntries(*buffer, *stream, presentationTimeStamp, packets);
  *bufferOut = buffer;
  return 0;
}

PVStatus PVAudioSampleBufferCreateReadyWithPacketDescriptions(
    BRAllocatorRef allocator, PVBlockBufferRef dataBuffer, PVFormatDescriptionRef formatDescription,
    int64_t numSamples, PVTime presentationTimeStamp, const AudioStreamPacketDescription* packetDescriptions,
    PVSampleBufferRef* bufferOut) {
  return PVAudioSampleBufferCreateWithPacketDescriptions(allocator, dataBuffer, true, nullptr, nullptr,
                                                         formatDescription, numSamples, presentationTimeStamp,
                                                         packetDescriptions, bufferOut);
}

namespace {

// The frames of a packet as its duration tells; InvalidEntryCount for what does not fit 32 bits.
PVStatus framesOf(const PVSampleBuffer& buffer, int64_t index, int32_t timescale, uint32_t* framesOut) {
  const PVTime frames = PVTimeConvertScale(timingOf(buffer, index).duration, timescale,
                                           kPVTimeRoundingMethod_RoundHalfAwayFromZero);
  if (!PVTimeIsNumeric(frames)) return signalError(kPVSampleBufferError_TimingNotNumeric);
  if (frames.value < 0 || frames.value > UINT32_MAX)
    return signalError(kPVSampleBufferError_InvalidEntryCount);
  *framesOut = static_cast<uint32_t>(frames.value);
  return 0;
}

PVStatus fillPackets(PVSampleBuffer& buffer, const AudioStreamBasicDescription& stream) {
  if (stream.framesPerPacket == 0 && buffer.timingForm == Form::kNone && buffer.numSamples)
    return signalError(kPVSampleBufferError_NoSampleTiming);
  if (stream.bytesPerPacket == 0 && buffer.sizeForm == Form::kNone && buffer.numSamples)
    return signalError(kPVSampleBufferError_NoSampleSizes);
  const int32_t timescale = timescaleOf(stream);
  const auto packets = buffer.packetRoom();
  uint64_t offset = 0;
  for (size_t i = 0; i < packets.size(); ++i) {
    const size_t bytes =
        stream.bytesPerPacket ? stream.bytesPerPacket : buffer.sizes()[buffer.sizeForm == Form::kOne ? 0 : i];
    if (bytes > UINT32_MAX || offset > INT64_MAX) return signalError(kPVSampleBufferError_InvalidEntryCount);
    uint32_t frames = 0;
    if (stream.framesPerPacket == 0)
      if (PVStatus status = framesOf(buffer, static_cast<int64_t>(i), timescale, &frames)) return status;
    packets[i] = {static_cast<int64_t>(offset), frames, static_cast<uint32_t>(bytes)};
    offset += bytes;
  }
  buffer.packetsFilled = true;
  return 0;
}

}  // namespace

PVStatus PVSampleBufferGetAudioStreamPacketDescriptionsPtr(
    PVSampleBufferRef buffer, const AudioStreamPacketDescription** packetDescriptionsPointerOut,
    size_t* packetDescriptionsSizeOut) {
  if (PVStatus status = refused(buffer)) return status;
  if (!packetDescriptionsPointerOut && !packetDescriptionsSizeOut)
    return signalError(kPVSampleBufferError_RequiredParameterMissing);
  if (!buffer->format || PVFormatDescriptionGetMediaType(buffer->format.get()) != kPVMediaType_Audio)
    return signalError(kPVSampleBufferError_InvalidMediaType);
  if (!buffer->packetsFilled) {
    const AudioStreamBasicDescription* stream = streamOf(buffer->format.get());
    if (!stream) return kPVFormatDescriptionError_InvalidParameter;
    if (PVStatus status = fillPackets(*buffer, *stream)) return status;
  }
  const Packets packets = buffer->packets();
  if (packetDescriptionsPointerOut)
    *packetDescriptionsPointerOut = packets.empty() ? nullptr : packets.data();
  if (packetDescriptionsSizeOut) *packetDescriptionsSizeOut = packets.size_bytes();
  return 0;
}

PVStatus PVSampleBufferGetAudioStreamPacketDescriptions(PVSampleBufferRef buffer, size_t bufferSize,
                                                        AudioStreamPacketDescription* packetDescriptionsOut,
                                                        size_t* sizeNeededOut) {
  const AudioStreamPacketDescription* packets;
  size_t size;
  if (PVStatus status = PVSampleBufferGetAudioStreamPacketDescriptionsPtr(buffer, &packets, &size))
    return status;
  if (sizeNeededOut) *sizeNeededOut = size;
  if (!packetDescriptionsOut) return 0;
  if (bufferSize < size) return signalError(kPVSampleBufferError_ArrayTooSmall);
  std::copy_n(packets, size / sizeof *packets, packetDescriptionsOut);
  return 0;
}
