/* Sample buffers of audio: creation by packets, and the views that audio code wants of the data.
 *
 * A sample of an audio buffer is a packet; in linear PCM, a frame. Linear PCM that is not interleaved has a plane for
 * each channel, one behind the other in the data, each of the number of samples times the bytes per frame.
 *
 * What <pevrin/sample_buffer.h> says of threads, of NULL and of invalidated buffers holds here. "Stream description" is
 * that of PVAudioFormatDescriptionGetStreamBasicDescription; a buffer whose format has none, or that has no format, is
 * refused with kPVFormatDescriptionError_InvalidParameter.
 *
 *   struct { AudioBufferList list; } one;
 *   PVBlockBufferRef bytes;   // keeps what the list points at
 *   PVStatus status = PVSampleBufferGetAudioBufferListWithRetainedBlockBuffer(
 *       sample, NULL, &one.list, sizeof one.list, NULL, NULL,
 *       kPVSampleBufferFlag_AudioBufferList_Assure16ByteAlignment, &bytes);
 *   if (status == 0) play(&one.list), BRRelease(bytes); */
#ifndef PEVRIN_SAMPLE_BUFFER_AUDIO_H
#define PEVRIN_SAMPLE_BUFFER_AUDIO_H

#include <pevrin/sample_buffer.h>

PV_BEGIN_DECLS

/* A buffer of numSamples packets that begin at a presentation time. The timescale of its times is the sample rate,
 * truncated. Decode times are not known. Packets of a variable number of bytes or frames need their descriptions, which
 * are copied; their offsets count from the start of the data.
 *
 * With a fixed number of frames per packet there is one timing entry, else one for each packet. With a fixed number of
 * bytes per packet there is one size entry, none for PCM that is not interleaved; else one for each packet if they lie
 * back to back, none if not.
 *
 * Statuses, in this order: RequiredParameterMissing (bufferOut); InvalidEntryCount (fewer than one packet);
 * RequiredParameterMissing (no audio format description); TimingNotNumeric (presentationTimeStamp);
 * kPVFormatDescriptionError_InvalidParameter (no stream description); RequiredParameterMissing (packets of variable
 * bytes or frames without descriptions); AllocationFailed. On failure *bufferOut is NULL. */
PV_EXPORT PVStatus PVAudioSampleBufferCreateWithPacketDescriptions(
    BRAllocatorRef allocator, PVBlockBufferRef dataBuffer, bool dataReady,
    PVSampleBufferMakeDataReadyCallback makeDataReadyCallback, void *makeDataReadyRefCon,
    PVFormatDescriptionRef formatDescription, int64_t numSamples, PVTime presentationTimeStamp,
    const AudioStreamPacketDescription *packetDescriptions, PVSampleBufferRef *bufferOut);

/* The same with data that are ready. */
PV_EXPORT PVStatus PVAudioSampleBufferCreateReadyWithPacketDescriptions(
    BRAllocatorRef allocator, PVBlockBufferRef dataBuffer, PVFormatDescriptionRef formatDescription, int64_t numSamples,
    PVTime presentationTimeStamp, const AudioStreamPacketDescription *packetDescriptions, PVSampleBufferRef *bufferOut);

enum {
  /* Each buffer of the list begins at a multiple of 16 bytes. */
  kPVSampleBufferFlag_AudioBufferList_Assure16ByteAlignment = 1
};

/* Fills a list with pointers to the data: one buffer for each channel of PCM that is not interleaved, else one with all
 * channels. *blockBufferOut, which the caller releases, keeps the bytes alive; it is the data buffer itself when each
 * part lies in one piece there (aligned, if that is asked for), else a new one in which the others are copies.
 * *bufferListSizeNeededOut, if given, is what bufferListSize must be: 24 bytes, and 16 for each buffer but the first.
 * With bufferListOut NULL that is all that is done. Bytes beyond the last whole part are left out.
 *
 * Statuses, in this order: no stream description; FormatMismatch (not interleaved, and 0 channels); ArrayTooSmall
 * (bufferListSize is not the size needed); RequiredParameterMissing (blockBufferOut); DataNotReady (no data buffer, or
 * not ready); those of the block buffer. */
PV_EXPORT PVStatus PVSampleBufferGetAudioBufferListWithRetainedBlockBuffer(
    PVSampleBufferRef buffer, size_t *bufferListSizeNeededOut, AudioBufferList *bufferListOut, size_t bufferListSize,
    BRAllocatorRef blockBufferStructureAllocator, BRAllocatorRef blockBufferBlockAllocator, uint32_t flags,
    PVBlockBufferRef *blockBufferOut);

/* Copies frames of linear PCM into the buffers of a list of that same shape, each with room for exactly that many.
 * Statuses, in this order: RequiredParameterMissing (bufferList); InvalidMediaType (not audio); no stream description;
 * InvalidMediaFormat (not linear PCM); SampleIndexOutOfRange (the range); RequiredParameterMissing (no frames);
 * DataNotReady; RequiredParameterMissing (a buffer of the list has other channels, another size or no data); those of
 * PVBlockBufferCopyDataBytes. For a list of another number of buffers RequiredParameterMissing is signalled, but 0 is
 * returned, and nothing is copied. */
PV_EXPORT PVStatus PVSampleBufferCopyPCMDataIntoAudioBufferList(PVSampleBufferRef buffer, int32_t frameOffset,
                                                                int32_t numFrames, AudioBufferList *bufferList);

/* Gives a buffer that has no data yet a copy of what a list holds, and makes it ready (PVSampleBufferSetDataReady). The
 * list has the shape described above; in formats with a fixed number of bytes per packet each of its buffers holds
 * exactly the buffer's samples. Flag: Assure16ByteAlignment.
 * Statuses, in this order: RequiredParameterMissing (bufferList); AlreadyHasData; why the data failed, if they did; no
 * stream description; FormatMismatch (not interleaved, and 0 channels); RequiredParameterMissing (another number of
 * buffers; a buffer of the list has other channels, another size, or no data); those of the block buffer. On failure
 * the buffer is as it was. */
PV_EXPORT PVStatus PVSampleBufferSetDataBufferFromAudioBufferList(PVSampleBufferRef buffer,
                                                                  BRAllocatorRef blockBufferStructureAllocator,
                                                                  BRAllocatorRef blockBufferBlockAllocator,
                                                                  uint32_t flags, const AudioBufferList *bufferList);

/* The packet descriptions, owned by the sample buffer, and their size in bytes; either output may be NULL, not both.
 * The pointer is NULL when there are none: in formats whose packets are all alike. When they were not given at
 * creation, the first call makes them from sizes and times; it needs serialising with all other use of the buffer.
 * Statuses, in this order: RequiredParameterMissing (both outputs); InvalidMediaType (not audio); no stream
 * description; NoSampleTiming (variable frames and no times); NoSampleSizes (variable bytes and no sizes);
 * TimingNotNumeric (a sample's duration); InvalidEntryCount (a packet of 4 GiB or more, or frames or offsets that do
 * not fit). */
PV_EXPORT PVStatus PVSampleBufferGetAudioStreamPacketDescriptionsPtr(
    PVSampleBufferRef buffer, const AudioStreamPacketDescription **packetDescriptionsPointerOut,
    size_t *packetDescriptionsSizeOut);

/* The same, copied. *sizeNeededOut, if given, is written also when the room is too small; with packetDescriptionsOut
 * NULL it is all that is asked.
 * Statuses: those above; ArrayTooSmall (bufferSize bytes are not enough). */
PV_EXPORT PVStatus PVSampleBufferGetAudioStreamPacketDescriptions(PVSampleBufferRef buffer, size_t bufferSize,
                                                                  AudioStreamPacketDescription *packetDescriptionsOut,
                                                                  size_t *sizeNeededOut);

PV_END_DECLS

#endif
