/* What the H.264 and the HEVC bridge share: their statuses, and the record of video usability information.
 *
 * Video usability information is what a sequence parameter set says of how its pictures are to be shown (ITU-T
 * H.264 Annex E, H.265 Annex E). The two standards begin alike, and this record holds what they share; the values are
 * as coded.
 *
 * Each group has a flag that says whether the stream carries it. Without it the group's other fields are 0, except
 * where
 * a standard infers something else, which is said below.
 *
 *   if (sps.vuiPresent && sps.vui.colourDescriptionPresent) printf("primaries %d\n", sps.vui.colourPrimaries); */
#ifndef KIV_BRIDGE_H
#define KIV_BRIDGE_H

#include <pevrin/base.h>

PV_BEGIN_DECLS

enum {
  /* A bad argument, or what was asked for is not in the stream (no usability information, no aspect ratio ...), or not
   * in
   * the configuration record, or the record is malformed. */
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

typedef struct KivVideoUsability {
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
