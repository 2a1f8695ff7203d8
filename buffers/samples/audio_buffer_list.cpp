// The data of audio sample buffers in audio buffer lists, and from them.
#include "buffers/samples/audio_buffer_list.hpp"

#include <pevrin/sample_buffer_audio.h>

#include <algorithm>

using namespace pv::sample;
using pv::signalError;

namespace {

// Appends a new block of its own, allocated at once; blocks of allocators are aligned to 16 bytes.
PVStatus appendRoom(PVBlockBufferRef block, BRAllocatorRef allocator, size_t bytes) {
  return PVBlockBufferAppendMemoryBlock(block, nullptr, bytes, allocator, nullptr, 0, bytes,
                                        kPVBlockBufferAssureMemoryNowFlag);
}

// A pointer to a part, when that lies in one piece and, if asked for, aligned; else null.
char* usablePointer(PVBlockBufferRef block, size_t offset, size_t bytes, bool aligned) {
  size_t available = 0;
  char* pointer = nullptr;
  if (PVBlockBufferGetDataPointer(block, offset, &available, nullptr, &pointer) != 0 || available < bytes)
    return nullptr;
  return aligned && reinterpret_cast<uintptr_t>(pointer) % 16 ? nullptr : pointer;
}

bool allUsable(PVBlockBufferRef data, uint32_t parts, size_t partBytes, bool aligned) {
  for (uint32_t i = 0; i < parts; ++i)
    if (!usablePointer(data, i * partBytes, partBytes, aligned)) return false;
  return true;
}

// A block buffer each of whose parts is usable: references where the data are, copies where they are not.
PVStatus gather(PVBlockBufferRef data, uint32_t parts, size_t partBytes, bool aligned,
                BRAllocatorRef structureAllocator, BRAllocatorRef blockAllocator,
                br::Ref<PVBlockBuffer>& out) {
  br::Ref<PVBlockBuffer> gathered;
  if (PVStatus status = PVBlockBufferCreateEmpty(structureAllocator, parts, 0, gathered.out())) return status;
  for (uint32_t i = 0; i < parts; ++i) {
    const size_t offset = i * partBytes;
    if (usablePointer(data, offset, partBytes, aligned)) {
      if (PVStatus status = PVBlockBufferAppendBufferReference(gathered.get(), data, offset, partBytes, 0))
        return status;
      continue;
    }
    if (PVStatus status = appendRoom(gathered.get(), blockAllocator, partBytes)) return status;
    size_t available;
    char* room;
    PVStatus status = PVBlockBufferGetDataPointer(gathered.get(), offset, &available, nullptr, &room);
    if (status == 0) status = PVBlockBufferCopyDataBytes(data, offset, partBytes, room);
    if (status) return status;
  }
  out = std::move(gathered);
  return 0;
}

}  // namespace

PVStatus PVSampleBufferGetAudioBufferListWithRetainedBlockBuffer(
    PVSampleBufferRef buffer, size_t* bufferListSizeNeededOut, AudioBufferList* bufferListOut,
    size_t bufferListSize, BRAllocatorRef blockBufferStructureAllocator,
    BRAllocatorRef blockBufferBlockAllocator, uint32_t flags, PVBlockBufferRef* blockBufferOut) {
  if (PVStatus status = refused(buffer)) return status;
  const AudioStreamBasicDescription* stream = streamOf(buffer->format.get());
  if (!stream) return kPVFormatDescriptionError_InvalidParameter;
  const ListLayout layout(*stream);
  if (layout.buffers == 0) return signalError(kPVSampleBufferError_FormatMismatch);
  if (bufferListSizeNeededOut) *bufferListSizeNeededOut = layout.listBytes();
  if (!bufferListOut) return 0;
  if (bufferListSize != layout.listBytes()) return signalError(kPVSampleBufferError_ArrayTooSmall);
  if (!blockBufferOut) return signalError(kPVSampleBufferError_RequiredParameterMissing);
  *blockBufferOut = nullptr;
  if (!buffer->block() || !PVSampleBufferDataIsReady(buffer))
    return signalError(kPVSampleBufferError_DataNotReady);
  auto block = br::Ref<PVBlockBuffer>::retain(buffer->block());
  const size_t partBytes = PVBlockBufferGetDataLength(block.get()) / layout.buffers;
  if (partBytes > UINT32_MAX) return signalError(kPVSampleBufferError_FormatMismatch);
  const bool aligned = flags & kPVSampleBufferFlag_AudioBufferList_Assure16ByteAlignment;
  if (partBytes && !allUsable(block.get(), layout.buffers, partBytes, aligned))
    if (PVStatus status = gather(buffer->block(), layout.buffers, partBytes, aligned,
                                 blockBufferStructureAllocator, blockBufferBlockAllocator, block))
      return status;
  bufferListOut->numberBuffers = layout.buffers;
  for (uint32_t i = 0; i < layout.buffers; ++i)
    bufferListOut->buffers[i] = {
        layout.channelsOfEach, static_cast<uint32_t>(partBytes),
        partBytes ? usablePointer(block.get(), i * partBytes, partBytes, aligned) : nullptr};
  *blockBufferOut = block.detach();
  return 0;
}

namespace {

// Whether a list's buffers have the channels and the size expected, and data.
bool fits(const AudioBufferList& list, const ListLayout& layout, uint64_t bytesOfEach) {
  return std::ranges::all_of(buffersOf(&list), [&](const AudioBuffer& one) {
    return one.numberChannels == layout.channelsOfEach && one.dataByteSize == bytesOfEach && one.data;
  });
}

PVStatus checkPCM(PVSampleBufferRef buffer, const AudioBufferList* list,
                  const AudioStreamBasicDescription** out) {
  if (!list) return signalError(kPVSampleBufferError_RequiredParameterMissing);
  if (!buffer->format || PVFormatDescriptionGetMediaType(buffer->format.get()) != kPVMediaType_Audio)
    return signalError(kPVSampleBufferError_InvalidMediaType);
  *out = streamOf(buffer->format.get());
  if (!*out) return kPVFormatDescriptionError_InvalidParameter;
  if ((*out)->formatID != kAudioFormatLinearPCM) return signalError(kPVSampleBufferError_InvalidMediaFormat);
  return 0;
}

}  // namespace

PVStatus PVSampleBufferCopyPCMDataIntoAudioBufferList(PVSampleBufferRef buffer, int32_t frameOffset,
                                                      int32_t numFrames, AudioBufferList* bufferList) {
  if (PVStatus status = refused(buffer)) return status;
  const AudioStreamBasicDescription* stream = nullptr;
  if (PVStatus status = checkPCM(buffer, bufferList, &stream)) return status;
  if (frameOffset < 0 || frameOffset >= buffer->numSamples || numFrames < 0 ||
      numFrames > buffer->numSamples - frameOffset)
    return signalError(kPVSampleBufferError_SampleIndexOutOfRange);
  if (numFrames == 0) return signalError(kPVSampleBufferError_RequiredParameterMissing);
  if (!buffer->block() || !PVSampleBufferDataIsReady(buffer))
    return signalError(kPVSampleBufferError_DataNotReady);
  const ListLayout layout(*stream);
  if (layout.buffers == 0) return 0;
  if (bufferList->numberBuffers != layout.buffers) {
    signalError(kPVSampleBufferError_RequiredParameterMissing);
    return 0;
  }
  const uint64_t frameBytes = stream->bytesPerFrame,
                 spanBytes = frameBytes * static_cast<uint32_t>(numFrames);
  if (!fits(*bufferList, layout, spanBytes))
    return signalError(kPVSampleBufferError_RequiredParameterMissing);
  uint64_t offset = frameBytes * static_cast<uint32_t>(frameOffset);
  for (const AudioBuffer& one : buffersOf(bufferList)) {
    if (PVStatus status = PVBlockBufferCopyDataBytes(buffer->block(), offset, spanBytes, one.data))
      return status;
    offset += frameBytes * static_cast<uint64_t>(buffer->numSamples);
  }
  return 0;
}

namespace {

// Copies the list into blocks: one after the other, or each its own.
PVStatus copyList(const AudioBufferList& list, bool aligned, BRAllocatorRef structureAllocator,
                  BRAllocatorRef blockAllocator, br::Ref<PVBlockBuffer>& out) {
  uint64_t total = 0;
  for (const AudioBuffer& one : buffersOf(&list)) total += one.dataByteSize;
  br::Ref<PVBlockBuffer> block;
  const uint32_t blocks = aligned ? list.numberBuffers : 1;
  if (PVStatus status = PVBlockBufferCreateEmpty(structureAllocator, blocks, 0, block.out())) return status;
  for (uint32_t i = 0; i < blocks; ++i)
    if (PVStatus status =
            appendRoom(block.get(), blockAllocator, aligned ? list.buffers[i].dataByteSize : total))
      return status;
  uint64_t offset = 0;
  for (const AudioBuffer& one : buffersOf(&list)) {
    if (PVStatus status = PVBlockBufferReplaceDataBytes(one.data, block.get(), offset, one.dataByteSize))
      return status;
    offset += one.dataByteSize;
  }
  out = std::move(block);
  return 0;
}

}  // namespace

PVStatus PVSampleBufferSetDataBufferFromAudioBufferList(PVSampleBufferRef buffer,
                                                        BRAllocatorRef blockBufferStructureAllocator,
                                                        BRAllocatorRef blockBufferBlockAllocator,
                                                        uint32_t flags, const AudioBufferList* bufferList) {
  if (PVStatus status = refused(buffer)) return status;
  if (!bufferList) return signalError(kPVSampleBufferError_RequiredParameterMissing);
  if (buffer->data) return signalError(kPVSampleBufferError_AlreadyHasData);
  if (buffer->dataFailed) return signalError(buffer->failure);
  const AudioStreamBasicDescription* stream = streamOf(buffer->format.get());
  if (!stream) return kPVFormatDescriptionError_InvalidParameter;
  const ListLayout layout(*stream);
  if (layout.buffers == 0) return signalError(kPVSampleBufferError_FormatMismatch);
  if (bufferList->numberBuffers != layout.buffers)
    return signalError(kPVSampleBufferError_RequiredParameterMissing);
  const uint64_t expected = stream->bytesPerPacket
                                ? stream->bytesPerPacket * static_cast<uint64_t>(buffer->numSamples)
                                : bufferList->buffers[0].dataByteSize;
  if (expected == 0 || !fits(*bufferList, layout, expected))
    return signalError(kPVSampleBufferError_RequiredParameterMissing);
  br::Ref<PVBlockBuffer> block;
  const bool aligned = flags & kPVSampleBufferFlag_AudioBufferList_Assure16ByteAlignment;
  if (PVStatus status =
          copyList(*bufferList, aligned, blockBufferStructureAllocator, blockBufferBlockAllocator, block))
    return status;
  buffer->data = br::Ref<const void>::adopt(block.detach());
  return PVSampleBufferSetDataReady(buffer);
}
