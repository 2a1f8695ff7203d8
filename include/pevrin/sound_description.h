/* Sound descriptions: the records of audio tracks (<pevrin/sample_description.h>), as audio format descriptions
 * (<pevrin/audio_format_description.h>) and back.
 *
 * Reading. Linear PCM is data format 'raw ', 'NONE', 0, 'twos', 'sowt', 'in24', 'in32', 'fl32', 'fl64' or 'lpcm' of
 * movies, big-endian but for 'sowt' and where an 'enda' atom says otherwise, or 'ipcm' or 'fpcm' of ISO files with
 * their 'pcmC' (ISO/IEC 23003-5). Every other format is compressed; its configuration atom, directly in the record or
 * inside the movie's 'wave', becomes the magic cookie, in the form that a decoder expects:
 *
 *   data format              format ID             atom     cookie
 *   'mp4a'                   by its object type    'esds'   the ES_Descriptor (ISO/IEC 14496-1), behind version, flags
 *   'ac-3', 'ec-3'           the same              'dac3', 'dec3'   the payload
 *   'alac'                   the same              'alac'   the 24 bytes behind version, flags
 *   'Opus'                   'opus'                'dOps'   an OpusHead (RFC 7845 5.1)
 *   'fLaC'                   'flac'                'dfLa'   the stream info block, 34 bytes
 *   'samr', 'sawb'           the same              'damr'   the payload
 *   'ac-4'                   the same              'dac4'   the payload
 *   'dtsc' 'dtse' 'dtsh' 'dtsl'   the same         'ddts'   the payload
 *   'mlpa'                   the same              'dmlp'   the payload
 *   'wma '                   the same              'wfex'   the payload
 *   '.mp3', 'ms' 0x0055      '.mp3'                none
 *   any other                the same              none; in a movie, all of 'wave'
 *
 * Of 'mp4a', object types 0x40 and 0x66 to 0x68 are AAC: 'aac ', or with layers signalled in front of the core 'aach'
 * and 'aacp'; 0x69 and 0x6B are '.mp3', 0xA5 'ac-3', 0xA6 'ec-3'; any other stays 'mp4a' with its cookie. What the
 * cookie says of sample rate, channels and frames goes before the record's fields, but for versions 1 and 2 that say it
 * themselves. alac and flac tell the bits of their source by format flags: 1 for 16, 2 for 20, 3 for 24, 4 for 32. AMR
 * has one channel, though records of versions 0 and 1 have 2 in their field (3GPP TS 26.244 6.5).
 *
 * The channel layout comes from 'chan' or from ISO's 'chnl'. Every other atom, and one of these that says more than
 * fits, keeps its payload in SampleDescriptionExtensionAtoms; revision level and vendor become extensions when not 0.
 * The record is remembered: as VerbatimISOSampleEntry in the ISO and 3GP flavours, as VerbatimSampleDescription in the
 * others. */
#ifndef PEVRIN_SOUND_DESCRIPTION_H
#define PEVRIN_SOUND_DESCRIPTION_H

#include <pevrin/audio_format_description.h>
#include <pevrin/block_buffer.h>
#include <pevrin/sample_description.h>

PV_BEGIN_DECLS

/* Makes a description of a record of version 0, 1 or 2. A record of version 1 in an ISO or 3GP file has the fields of
 * version 0 when atoms follow those to its end (ISO/IEC 14496-12 12.2.3), else those of a movie's version 1.
 * kPVSampleDescriptionError_InvalidParameter: a null pointer. kPVSampleDescriptionError_Unsupported: a flavour that is
 * not known. kPVSampleDescriptionError_MalformedRecord: fewer than 36 bytes, another version, a record size below the
 * version's or beyond the bytes, an atom that reaches past the end, PCM without channels or of a sample size that is
 * not 8 to 64 bits, of floats 32 or 64. kPVFormatDescriptionError_InvalidParameter: neither record nor cookie has a
 * sample rate. kPVSampleDescriptionError_AllocationFailed, kPVFormatDescriptionError_AllocationFailed. */
PV_EXPORT PVStatus PVAudioFormatDescriptionCreateFromBigEndianSoundDescriptionData(
    BRAllocatorRef allocator, const uint8_t *bytes, size_t size, BRStringRef flavor,
    PVFormatDescriptionRef *descriptionOut);

/* The same, of all the bytes of a block buffer; its own statuses when it has no bytes or no memory. */
PV_EXPORT PVStatus PVAudioFormatDescriptionCreateFromBigEndianSoundDescriptionBlockBuffer(
    BRAllocatorRef allocator, PVBlockBufferRef record, BRStringRef flavor, PVFormatDescriptionRef *descriptionOut);

/* Writes a record into a new block buffer, in one piece, which the caller releases. The record that a description
 * remembers for the flavour is written as it was, as long as it still says the same (and for TavloMovieV2 is of version
 * 2). Any other has data reference index 1 and a version by flavour and format:
 *
 *   ISOFamily, 3GPFamily   0; PCM as 'ipcm' and 'fpcm', MP3 as 'mp4a'; a sample rate that 16.16 cannot say as 'srat'
 *   TavloMovieV2           2
 *   TavloMovie             2 for more than 2 channels, PCM of more than 16 bits or of floats, a sample rate that 16.16
 *                          cannot say; else 1 for compressed formats, 0 for PCM
 *
 * kPVSampleDescriptionError_InvalidParameter: a null pointer, a description of another media type.
 * kPVSampleDescriptionError_Unsupported: a flavour that is not known; PCM that is not interleaved or packed, or of a
 * sample size that the flavour has no format for; AAC without a cookie; in the ISO and 3GP flavours more than 32,767
 * channels or a sample rate below 1 that 16.16 cannot say, or of 2^32 and more. A block buffer's statuses when memory
 * runs out. */
PV_EXPORT PVStatus PVAudioFormatDescriptionCopyAsBigEndianSoundDescriptionBlockBuffer(
    BRAllocatorRef allocator, PVFormatDescriptionRef description, BRStringRef flavor, PVBlockBufferRef *recordOut);

/* Whether the sample table of a track with this record counts uncompressed frames instead of packets, as those of old
 * movies do: in the movie flavours, a record of version 0 of linear PCM, 'alaw', 'ulaw', 'ima4', 'MAC3' or 'MAC6', and
 * one of version 1 whose compression ID does not say that packets vary (-2, or 0xFEFF). False for every other, and for
 * a record that cannot be read. */
PV_EXPORT bool PVDoesBigEndianSoundDescriptionRequireLegacyCBRSampleTableLayout(PVBlockBufferRef record,
                                                                                BRStringRef flavor);

PV_END_DECLS

#endif
