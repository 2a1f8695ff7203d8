/* Sample descriptions: the big-endian records that say, in movie and ISO-family files, what a track's samples are. One
 * entry of a file's 'stsd' atom, its size and data format included, is one record.
 *
 * Each kind of record has its own header, in which a record becomes a format description and a format description a
 * record:
 *
 *   sound            <pevrin/sound_description.h>             audio format descriptions
 *   image            <pevrin/image_description.h>             video format descriptions
 *   text             <pevrin/text_description.h>              text and subtitle format descriptions
 *   closed captions  <pevrin/closed_caption_description.h>    closed-caption format descriptions
 *   timecode         <pevrin/timecode_format_description.h>   timecode format descriptions
 *
 * Here is what they share: flavours, statuses, and the swaps.
 *
 * Every record opens with 16 bytes (ISO/IEC 14496-12 8.5.2.2): the record's size, its data format, six reserved bytes
 * and the index of the data reference that says where the samples are. The fixed fields of its kind follow, then
 * extension atoms.
 *
 * Swaps turn the fixed fields of a record in memory from big-endian to the machine's order and back, for programs that
 * look at records as structs. Extension atoms, strings and single bytes stay as they are. On a big-endian machine there
 * is nothing to turn and only the checks are made. Threads: any, one at a time on the same bytes.
 *
 *   PVStatus status = PVSwapBigEndianSoundDescriptionToHost(record, size);
 *   if (status == 0) printf("version %d\n", ((struct MySoundDescription *)record)->version); */
#ifndef PEVRIN_SAMPLE_DESCRIPTION_H
#define PEVRIN_SAMPLE_DESCRIPTION_H

#include <pevrin/base.h>

PV_BEGIN_DECLS

enum {
  /* A required pointer is null, a description of another media type, a record of another kind. */
  kPVSampleDescriptionError_InvalidParameter = -12712,
  /* Memory ran out. */
  kPVSampleDescriptionError_AllocationFailed = -12713,
  /* A record that contradicts itself: a size too small for its fields or too large for its bytes, an atom that reaches
   * past its end, a version that is not known. */
  kPVSampleDescriptionError_MalformedRecord = -12714,
  /* A flavour that is not one of those below, or a format that no record of that flavour can say. */
  kPVSampleDescriptionError_Unsupported = -12717
};

/* Flavours: whose rules a record follows. NULL means TavloMovie, the movie file. Each is found by its text. */

/* "ISOFamily": ISO/IEC 14496-12 and 14496-14 files. */
PV_EXPORT extern const BRStringRef kPVImageDescriptionFlavor_ISOFamily;
PV_EXPORT extern const BRStringRef kPVSoundDescriptionFlavor_ISOFamily;
/* "3GPFamily": 3GPP TS 26.244 files. */
PV_EXPORT extern const BRStringRef kPVImageDescriptionFlavor_3GPFamily;
PV_EXPORT extern const BRStringRef kPVSoundDescriptionFlavor_3GPFamily;
/* "TavloMovie": movie files. */
PV_EXPORT extern const BRStringRef kPVImageDescriptionFlavor_TavloMovie;
PV_EXPORT extern const BRStringRef kPVSoundDescriptionFlavor_TavloMovie;
/* "TavloMovieV2": movie files, sound always by version 2 records. For sound only. */
PV_EXPORT extern const BRStringRef kPVSoundDescriptionFlavor_TavloMovieV2;

/* Sound: the fields of the record's version.
 * InvalidParameter (bytes null); MalformedRecord (fewer than 18 bytes, version 3 or more, a record size beyond the
 * bytes or below the version's 36, 52 or 72). */
PV_EXPORT PVStatus PVSwapBigEndianSoundDescriptionToHost(uint8_t *bytes, size_t size);
PV_EXPORT PVStatus PVSwapHostEndianSoundDescriptionToBig(uint8_t *bytes, size_t size);

/* Image: all but the compressor name; with a colour table ID of 0 also the colour table behind the fixed fields.
 * InvalidParameter (bytes null); MalformedRecord (a record size below 86 or beyond the bytes). A colour table that does
 * not fit is signalled as MalformedRecord, but the answer is 0 and the record stays as it was. */
PV_EXPORT PVStatus PVSwapBigEndianImageDescriptionToHost(uint8_t *bytes, size_t size);
PV_EXPORT PVStatus PVSwapHostEndianImageDescriptionToBig(uint8_t *bytes, size_t size);

/* Text: data format 'text' has the movie's fields (58 bytes and the font name), 'tx3g' those of 3GPP TS 26.245 5.16 (46
 * bytes); of any other the common 16 bytes are turned.
 * InvalidParameter (bytes null); MalformedRecord (a record size below those, or beyond the bytes). */
PV_EXPORT PVStatus PVSwapBigEndianTextDescriptionToHost(uint8_t *bytes, size_t size);
PV_EXPORT PVStatus PVSwapHostEndianTextDescriptionToBig(uint8_t *bytes, size_t size);

/* Closed captions: the common 16 bytes; those at 8 as one word of four and one of two.
 * InvalidParameter (bytes null, fewer than 16). */
PV_EXPORT PVStatus PVSwapBigEndianClosedCaptionDescriptionToHost(uint8_t *bytes, size_t size);
PV_EXPORT PVStatus PVSwapHostEndianClosedCaptionDescriptionToBig(uint8_t *bytes, size_t size);

/* Timecode: all but the two single bytes at 32.
 * InvalidParameter (bytes null, fewer than 34). */
PV_EXPORT PVStatus PVSwapBigEndianTimeCodeDescriptionToHost(uint8_t *bytes, size_t size);
PV_EXPORT PVStatus PVSwapHostEndianTimeCodeDescriptionToBig(uint8_t *bytes, size_t size);

PV_END_DECLS

#endif
