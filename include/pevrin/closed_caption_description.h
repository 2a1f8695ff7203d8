/* Closed captions (CEA-608, CEA-708): their format descriptions and the sample descriptions of movie files. The
 * description is a generic one (<pevrin/format_description.h>): media type 'clcp', the caption format as its subtype,
 * and for extensions the record's extension atoms.
 *
 *   PVFormatDescriptionRef captions;
 *   PVStatus status = PVFormatDescriptionCreate(NULL, kPVMediaType_ClosedCaption,
 *                                               kPVClosedCaptionFormatType_CEA608, NULL, &captions);
 *   PVBlockBufferRef record;
 *   status = PVClosedCaptionFormatDescriptionCopyAsBigEndianClosedCaptionDescriptionBlockBuffer(NULL, captions, NULL,
 *                                                                                               &record); */
#ifndef PEVRIN_CLOSED_CAPTION_DESCRIPTION_H
#define PEVRIN_CLOSED_CAPTION_DESCRIPTION_H

#include <pevrin/block_buffer.h>
#include <pevrin/format_description.h>
#include <pevrin/sample_description.h>

PV_BEGIN_DECLS

/* Media subtypes. */
enum {
  kPVClosedCaptionFormatType_CEA608 = 0x63363038,         /* 'c608' */
  kPVClosedCaptionFormatType_CEA608Parsed = 0x70363038,   /* 'p608' */
  kPVClosedCaptionFormatType_CEA708 = 0x63373038          /* 'c708' */
};

/* Makes a description of a record. Its atoms, but for 'free', become SampleDescriptionExtensionAtoms; of several of one
 * type the first. An atom that does not fit ends the list without an error. Flavours make no difference.
 * kPVSampleDescriptionError_InvalidParameter: a null pointer, fewer than 16 bytes, another data format.
 * kPVSampleDescriptionError_MalformedRecord: a record size below 16 or beyond the bytes.
 * kPVSampleDescriptionError_AllocationFailed, kPVFormatDescriptionError_AllocationFailed. */
PV_EXPORT PVStatus PVClosedCaptionFormatDescriptionCreateFromBigEndianClosedCaptionDescriptionData(
    BRAllocatorRef allocator, const uint8_t *bytes, size_t size, BRStringRef flavor,
    PVFormatDescriptionRef *descriptionOut);

/* The same, of all the bytes of a block buffer; its own statuses when it has no bytes or no memory. */
PV_EXPORT PVStatus PVClosedCaptionFormatDescriptionCreateFromBigEndianClosedCaptionDescriptionBlockBuffer(
    BRAllocatorRef allocator, PVBlockBufferRef record, BRStringRef flavor, PVFormatDescriptionRef *descriptionOut);

/* Writes a record into a new block buffer, in one piece, which the caller releases: data reference index 0xFFFF, for
 * the writer of the file to set, and the atoms whose key is a type and whose value is data; others are passed over.
 * kPVSampleDescriptionError_InvalidParameter: a null pointer, not a closed-caption description. A block buffer's
 * statuses when memory runs out. */
PV_EXPORT PVStatus PVClosedCaptionFormatDescriptionCopyAsBigEndianClosedCaptionDescriptionBlockBuffer(
    BRAllocatorRef allocator, PVFormatDescriptionRef description, BRStringRef flavor, PVBlockBufferRef *recordOut);

PV_END_DECLS

#endif
