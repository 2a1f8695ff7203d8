/* What the H.264 and the HEVC bridge share: their statuses, and the record of video usability information.
 *
 * Video usability information is what a sequence parameter set says of how its pictures are to be shown (ITU-T H.264
 * Annex E, H.265 Annex E). The two standards begin alike, and this record holds what they share; the values are as
 * coded.
 *
 * Each part has a flag that says whether the stream carries it. Without it the part's other fields are 0, except where
 * a standard infers something else, which is said below.
 *
 * The information stands at the end of its set and is optional, so what cannot be read there costs no more than itself:
 * when it breaks off, the parts before that place stand as coded, those from it on count as not present, and
 * lastPartRead tells where it was. Asking for a part behind it is kKivBridgeError_UnreadableData; the picture's size
 * and every earlier part are answered. It breaks off at a value that is too long or implausible; in HEVC also where the
 * set ends too early.
 *
 *   if (sps.vuiPresent && sps.vui.colourDescriptionPresent) printf("primaries %d\n", sps.vui.colourPrimaries); */
#ifndef KIV_BRIDGE_H
#define KIV_BRIDGE_H

#include <pevrin/base.h>

PV_BEGIN_DECLS

enum {
  /* A bad argument, or what was asked for is not in the stream (no usability information, no aspect ratio ...), or not
   * in the configuration record, or the record is malformed. */
  kKivBridgeError_InvalidParameter = -12712,
  /* Memory ran out for a configuration record. */
  kKivBridgeError_AllocationFailed = -12713,
  /* A parameter set or slice header that cannot be read: it ends too early, or a value in it is too long. */
  kKivBridgeError_UnreadableData = -12714,
  /* No parameter sets are known for this codec type. */
  kKivBridgeError_UnsupportedCodecType = -12717,
  /* Memory ran out for the copy of a parameter set without its emulation prevention bytes. */
  kKivBridgeError_NoMemoryForCopy = 12
};

/* The parts of the information, in the order of the stream. */
enum {
  kKivVideoUsabilityPart_None = 0,
  kKivVideoUsabilityPart_AspectRatio = 1,
  kKivVideoUsabilityPart_Overscan = 2,
  kKivVideoUsabilityPart_VideoSignalType = 3,
  kKivVideoUsabilityPart_ChromaLocation = 4,
  kKivVideoUsabilityPart_FieldInfo = 5, /* HEVC: from neutral_chroma_indication_flag to the default display window */
  kKivVideoUsabilityPart_Timing = 6,
  kKivVideoUsabilityPart_HRD = 7,                 /* H.264: and pic_struct_present_flag */
  kKivVideoUsabilityPart_BitstreamRestriction = 8 /* H.264: not read */
};

/* What the usability information (VUI) of a sequence parameter set says, as far as it was read. */
typedef struct KivVideoUsability {
  uint8_t lastPartRead; /* one of the above */

  /* The sample aspect ratio: an indicator of Table E-1, or 255 and the ratio itself. */
  bool aspectRatioInfoPresent;
  uint8_t aspectRatioIdc;
  uint16_t sarWidth;  /* 0 unless aspectRatioIdc is 255 */
  uint16_t sarHeight;

  bool overscanInfoPresent;
  bool overscanAppropriate;

  bool videoSignalTypePresent;
  uint8_t videoFormat; /* Table E-2; 5, unspecified, when it is not coded */
  bool fullRange;
  bool colourDescriptionPresent; /* the three that follow are 2, unspecified, when they are not coded */
  uint8_t colourPrimaries;
  uint8_t transferCharacteristics;
  uint8_t matrixCoefficients;

  /* 4:2:0 only; 0 when not coded. */
  bool chromaLocInfoPresent;
  uint32_t chromaSampleLocTypeTopField;
  uint32_t chromaSampleLocTypeBottomField;

  /* A tick is numUnitsInTick / timeScale seconds. How many ticks a picture takes differs between the standards. */
  bool timingInfoPresent;
  uint32_t numUnitsInTick;
  uint32_t timeScale;
} KivVideoUsability;

PV_END_DECLS

#endif
