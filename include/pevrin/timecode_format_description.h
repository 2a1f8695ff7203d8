/* Timecode format descriptions: how a timecode track counts frames. Media type 'tmcd'; the subtype is the form of the
 * samples. The description tells how long a frame lasts, how many frames are counted before the seconds roll over (the
 * frame quanta: 30 for 29.97 frames per second), and the flags.
 *
 * Rules for ownership and threads: <pevrin/format_description.h>. Records of movie files:
 * <pevrin/sample_description.h>.
 *
 *   PVFormatDescriptionRef tape;
 *   PVStatus status = PVTimeCodeFormatDescriptionCreate(NULL, kPVTimeCodeFormatType_TimeCode32, PVTimeMake(1001, 30000),
 *                                                       30, kPVTimeCodeFlag_DropFrame, NULL, &tape); */
#ifndef PEVRIN_TIMECODE_FORMAT_DESCRIPTION_H
#define PEVRIN_TIMECODE_FORMAT_DESCRIPTION_H

#include <pevrin/block_buffer.h>
#include <pevrin/format_description.h>
#include <pevrin/sample_description.h>
#include <pevrin/time.h>

PV_BEGIN_DECLS

/* Media subtypes: what a sample is. */
enum {
  kPVTimeCodeFormatType_TimeCode32 = 0x746D6364, /* 'tmcd': a time code of 32 bits */
  kPVTimeCodeFormatType_TimeCode64 = 0x74633634, /* 'tc64': of 64 bits */
  kPVTimeCodeFormatType_Counter32 = 0x636E3332,  /* 'cn32': a frame counter of 32 bits */
  kPVTimeCodeFormatType_Counter64 = 0x636E3634   /* 'cn64': of 64 bits */
};

/* Flags. */
enum {
  kPVTimeCodeFlag_DropFrame = 1,       /* numbers are dropped to keep pace with the clock */
  kPVTimeCodeFlag_24HourMax = 2,       /* the count rolls over after 24 hours */
  kPVTimeCodeFlag_NegTimesOK = 4,      /* times may be negative */
  kPVTimeCodeFlag_Counter = 8          /* in records only: a description says so by its subtype */
};

/* "TimeCode_SourceReferenceName": a dictionary of the two keys that follow. */
PV_EXPORT extern const BRStringRef kPVTimeCodeFormatDescriptionExtension_SourceReferenceName;
/* "TimeCode_SourceReferenceName_Value": a string, the source's name, say of a tape. */
PV_EXPORT extern const BRStringRef kPVTimeCodeFormatDescriptionKey_Value;
/* "TimeCode_SourceReferenceName_LangCode": a number, signed 16-bit, the name's language in a movie's numbering. */
PV_EXPORT extern const BRStringRef kPVTimeCodeFormatDescriptionKey_LangCode;

/* Creates a description. Any valid frame duration will do, also an indefinite one.
 * kPVFormatDescriptionError_InvalidParameter: descriptionOut null, a format type that is not one of the four, a frame
 * duration that is not valid, frameQuanta 0, extensions that are no property list.
 * kPVFormatDescriptionError_AllocationFailed. */
PV_EXPORT PVStatus PVTimeCodeFormatDescriptionCreate(BRAllocatorRef allocator, PVFourCharCode timeCodeFormatType,
                                                     PVTime frameDuration, uint32_t frameQuanta, uint32_t flags,
                                                     BRDictionaryRef extensions,
                                                     PVFormatDescriptionRef *descriptionOut);

/* What a timecode description was made with. kPVTimeInvalid and 0, and kPVFormatDescriptionError_InvalidParameter
 * signalled, for NULL and for a description of another media type. */
PV_EXPORT PVTime PVTimeCodeFormatDescriptionGetFrameDuration(PVFormatDescriptionRef description);
PV_EXPORT uint32_t PVTimeCodeFormatDescriptionGetFrameQuanta(PVFormatDescriptionRef description);
PV_EXPORT uint32_t PVTimeCodeFormatDescriptionGetTimeCodeFlags(PVFormatDescriptionRef description);

/* Makes a description of a record: 34 bytes of fields and, of the atoms behind them, the first 'name', which becomes
 * the source reference name. The record is remembered as VerbatimSampleDescription. The counter flag becomes the
 * subtype. Flavours make no difference. Names are read as Western Roman, whatever their language.
 * kPVSampleDescriptionError_InvalidParameter: a null pointer, fewer than 34 bytes, a data format other than 'tmcd' and
 * 'tc64'. kPVSampleDescriptionError_MalformedRecord: an atom that reaches past the end, a name longer than its atom.
 * kPVFormatDescriptionError_InvalidParameter: 0 frames, a time scale of 0 or above 2^31 - 1.
 * kPVSampleDescriptionError_AllocationFailed, kPVFormatDescriptionError_AllocationFailed. */
PV_EXPORT PVStatus PVTimeCodeFormatDescriptionCreateFromBigEndianTimeCodeDescriptionData(
    BRAllocatorRef allocator, const uint8_t *bytes, size_t size, BRStringRef flavor,
    PVFormatDescriptionRef *descriptionOut);

/* The same, of all the bytes of a block buffer; its own statuses when it has no bytes or no memory. */
PV_EXPORT PVStatus PVTimeCodeFormatDescriptionCreateFromBigEndianTimeCodeDescriptionBlockBuffer(
    BRAllocatorRef allocator, PVBlockBufferRef record, BRStringRef flavor, PVFormatDescriptionRef *descriptionOut);

/* Writes a record into a new block buffer, in one piece, which the caller releases. The record that a description
 * remembers is written as it was; any other has data reference index 0xFFFF, for the writer of the file to set, the low
 * 32 bits of the frame duration's value and the low 8 of the frame quanta, and a 'name' when the extensions have a
 * source reference name with a language that Western Roman can write.
 * kPVSampleDescriptionError_InvalidParameter: a null pointer, not a timecode description, a frame duration that is not
 * valid, frame quanta of 0, a name that Western Roman cannot write or of more than 65,535 bytes.
 * kPVSampleDescriptionError_AllocationFailed or a block buffer's statuses when memory runs out. */
PV_EXPORT PVStatus PVTimeCodeFormatDescriptionCopyAsBigEndianTimeCodeDescriptionBlockBuffer(
    BRAllocatorRef allocator, PVFormatDescriptionRef description, BRStringRef flavor, PVBlockBufferRef *recordOut);

PV_END_DECLS

#endif
