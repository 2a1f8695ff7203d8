/* Text sample descriptions: the records of text and subtitle tracks (<pevrin/sample_description.h>), as format
 * descriptions (<pevrin/text_format_description.h>) and back.
 *
 *   data format            media type   what becomes extensions
 *   'text'                 'text'       the movie's text: flags, justification, colours, box, style, font name
 *   'tx3g'                 'sbtl'       3GPP timed text (3GPP TS 26.245 5.16): the same, and the font table 'ftab'
 *   'wvtt' 'xvtt' 'svtt'   'sbtl'       WebVTT (ISO/IEC 14496-30): atoms only, 'vttC' among them
 *
 * Behind the fields, atoms other than 'ftab' become SampleDescriptionExtensionAtoms. The record is remembered, as
 * VerbatimISOSampleEntry in the ISO and 3GP flavours, as VerbatimSampleDescription in the others. */
#ifndef PEVRIN_TEXT_DESCRIPTION_H
#define PEVRIN_TEXT_DESCRIPTION_H

#include <pevrin/block_buffer.h>
#include <pevrin/format_description.h>
#include <pevrin/sample_description.h>

PV_BEGIN_DECLS

/* Makes a description of a record.
 * kPVSampleDescriptionError_InvalidParameter: a null pointer, fewer than 16 bytes.
 * kPVSampleDescriptionError_Unsupported: a flavour or data format that is not known.
 * kPVSampleDescriptionError_MalformedRecord: a record size below that of the fields (16, 'text' 58, 'tx3g' 46) or
 * beyond the bytes, an atom, font name or font table that reaches past its end.
 * kPVSampleDescriptionError_AllocationFailed, kPVFormatDescriptionError_AllocationFailed. */
PV_EXPORT PVStatus PVTextFormatDescriptionCreateFromBigEndianTextDescriptionData(
    BRAllocatorRef allocator, const uint8_t *bytes, size_t size, BRStringRef flavor,
    PVFormatDescriptionRef *descriptionOut);

/* The same, of all the bytes of a block buffer; its own statuses when it has no bytes or no memory. */
PV_EXPORT PVStatus PVTextFormatDescriptionCreateFromBigEndianTextDescriptionBlockBuffer(
    BRAllocatorRef allocator, PVBlockBufferRef record, BRStringRef flavor, PVFormatDescriptionRef *descriptionOut);

/* Writes a record into a new block buffer, in one piece, which the caller releases. The record that a description
 * remembers for the flavour is written as it was; any other has data reference index 1, and 0 for what the extensions
 * do not say.
 * kPVSampleDescriptionError_InvalidParameter: a null pointer, a description of another media type.
 * kPVSampleDescriptionError_Unsupported: a flavour or subtype that is not known, a font name that Western Roman (UTF-8
 * in a font table) cannot write in 255 bytes. A block buffer's statuses when memory runs out. */
PV_EXPORT PVStatus PVTextFormatDescriptionCopyAsBigEndianTextDescriptionBlockBuffer(
    BRAllocatorRef allocator, PVFormatDescriptionRef description, BRStringRef flavor, PVBlockBufferRef *recordOut);

PV_END_DECLS

#endif
