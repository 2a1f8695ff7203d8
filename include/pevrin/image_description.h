/* Image descriptions: the records of video tracks (<pevrin/sample_description.h>), as video format descriptions
 * (<pevrin/video_format_description.h>) and back.
 *
 * The data format is the codec type, width and height are the dimensions. The other fixed fields become extensions when
 * they say something: Version, RevisionLevel, Vendor, TemporalQuality, SpatialQuality and DataSize when not 0,
 * FormatName (the compressor name) when not empty, Depth when not 0, resolutions other than 72 per inch, a frame count
 * other than 1, a colour table other than none (-1). They are read and written alike in every flavour: where ISO files
 * have reserved fields, a description that says nothing gives the zeros that they want.
 *
 * Atoms:
 *   'colr'   'nclc', 'nclx': ColorPrimaries, TransferFunction, YCbCrMatrix, FullRangeVideo (when set);
 *            'prof', 'rICC': ICCProfile
 *   'pasp'   PixelAspectRatio
 *   'clap'   CleanAperture, as real numbers and as pairs of whole ones (the Rational keys)
 *   'fiel'   FieldCount and FieldDetail: 1 TemporalTopFirst, 6 TemporalBottomFirst, 9 SpatialFirstLineEarly,
 *            14 SpatialFirstLineLate
 *   'gama'   GammaLevel
 *   'chrm'   ChromaLocationTopField, ChromaLocationBottomField
 * Every other atom, 'avcC', 'hvcC', 'esds', 'av1C' and the like, keeps its payload in SampleDescriptionExtensionAtoms.
 * An atom of the list keeps it there too when the extensions cannot say all of it (a code point without a name, say),
 * and is then written as it was: whatever is among the atoms goes before the extensions of the list. When several say
 * the same kind of thing all are kept, and the extensions are those of the first.
 *
 * For 'avc1', 'cavc', 'drmi', 'eavc', 'hvc1', 'qavc' and 'zavc' what the record leaves out comes from the parameter
 * sets' usability information (KivBridge_MakeFallbackExtensionsFromVUI, <kiv/video_format_description.h>).
 *
 * The record is remembered: as VerbatimISOSampleEntry in the ISO and 3GP flavours, as VerbatimSampleDescription in
 * TavloMovie.
 *
 *   PVVideoFormatDescriptionRef video;
 *   status = PVVideoFormatDescriptionCreateFromBigEndianImageDescriptionData(
 *       NULL, entry, entrySize, kPVImageDescriptionFlavor_ISOFamily, &video); */
#ifndef PEVRIN_IMAGE_DESCRIPTION_H
#define PEVRIN_IMAGE_DESCRIPTION_H

#include <pevrin/block_buffer.h>
#include <pevrin/sample_description.h>
#include <pevrin/video_format_description.h>

PV_BEGIN_DECLS

/* "HorizontalResolution", "VerticalResolution": numbers, pixels per inch. */
PV_EXPORT extern const BRStringRef kPVFormatDescriptionExtension_HorizontalResolution;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionExtension_VerticalResolution;
/* "DataSize": a number, bytes of a frame. */
PV_EXPORT extern const BRStringRef kPVFormatDescriptionExtension_DataSize;
/* "FrameCount": a number, frames in a sample. */
PV_EXPORT extern const BRStringRef kPVFormatDescriptionExtension_FrameCount;
/* "ColorTable": data, a colour table as it stands in a record, from its seed on; or a number, the ID of a standard
 * one. */
PV_EXPORT extern const BRStringRef kPVFormatDescriptionExtension_ColorTable;

/* Makes a description of a record.
 * kPVSampleDescriptionError_InvalidParameter: a null pointer. kPVSampleDescriptionError_Unsupported: a flavour that is
 * not known, or for sound only. kPVSampleDescriptionError_MalformedRecord: a record size below 86 or beyond the bytes,
 * a colour table or an atom that reaches past the end. kPVFormatDescriptionError_InvalidParameter: data format 0.
 * kPVSampleDescriptionError_AllocationFailed, kPVFormatDescriptionError_AllocationFailed. */
PV_EXPORT PVStatus PVVideoFormatDescriptionCreateFromBigEndianImageDescriptionData(
    BRAllocatorRef allocator, const uint8_t *bytes, size_t size, BRStringRef flavor,
    PVVideoFormatDescriptionRef *descriptionOut);

/* The same, of all the bytes of a block buffer; its own statuses when it has no bytes or no memory. */
PV_EXPORT PVStatus PVVideoFormatDescriptionCreateFromBigEndianImageDescriptionBlockBuffer(
    BRAllocatorRef allocator, PVBlockBufferRef record, BRStringRef flavor,
    PVVideoFormatDescriptionRef *descriptionOut);

/* Writes a record into a new block buffer, in one piece, which the caller releases. The record that a description
 * remembers for the flavour is written as it was, as long as codec type and size are still the same; any other has data
 * reference index 1, then the atoms among the extensions in their order, 'fiel', 'colr' ('nclx' in the ISO and 3GP
 * flavours and whenever FullRangeVideo is true, else 'nclc'; then 'prof'), 'pasp', 'clap', 'gama', 'chrm'. A compressor
 * name is UTF-8; Western Roman when it fits the field's 31 bytes only so; else cut after a whole character.
 * kPVSampleDescriptionError_InvalidParameter: a null pointer, a description of another media type.
 * kPVSampleDescriptionError_Unsupported: a flavour that is not known, or for sound only; a width or height below 0 or
 * above
 * 65,535. A block buffer's statuses when memory runs out. */
PV_EXPORT PVStatus PVVideoFormatDescriptionCopyAsBigEndianImageDescriptionBlockBuffer(
    BRAllocatorRef allocator, PVVideoFormatDescriptionRef description, BRStringRef flavor,
    PVBlockBufferRef *recordOut);

PV_END_DECLS

#endif
