/* Video format descriptions: codec or pixel format, size, and how the picture is to be shown.
 *
 * A video description is a format description (<pevrin/format_description.h>) of media type 'vide'. Its media subtype
 * is the codec type ('avc1'), or the pixel format of uncompressed frames ('BGRA'), and it adds width and height in
 * pixels. Aspect, aperture, colour and the codec's own settings are extensions; the keys below are mostly those that
 * image buffers bear as attachments (<imlay/image_buffer_keys.h>).
 *
 * Who owns what, and threads: as for all format descriptions. Creating functions write NULL when they fail; getters
 * that are given NULL, or a description of another media type, signal kPVFormatDescriptionError_InvalidParameter and
 * answer with zeros.
 *
 *   PVFormatDescriptionRef video;
 *   PVStatus status = PVVideoFormatDescriptionCreateFromH264ParameterSets(NULL, 2, sets, sizes, 4, &video);
 *   if (status == 0) {
 *     GRSize size = PVVideoFormatDescriptionGetPresentationDimensions(video, true, true);
 *     openWindow(size.width, size.height);
 *     BRRelease(video);
 *   }
 */
#ifndef PEVRIN_VIDEO_FORMAT_DESCRIPTION_H
#define PEVRIN_VIDEO_FORMAT_DESCRIPTION_H

#include <imlay/geometry.h>
#include <imlay/image_buffer.h>
#include <pevrin/format_description.h>

PV_BEGIN_DECLS

/* A format description of media type 'vide'. */
typedef PVFormatDescriptionRef PVVideoFormatDescriptionRef;

/* Some codec types; any other four-character code is one as well. */
typedef PVFourCharCode PVVideoCodecType;
enum {
  kPVVideoCodecType_H264 = 0x61766331, /* 'avc1': ITU-T H.264, parameter sets in an 'avcC' atom */
  kPVVideoCodecType_HEVC = 0x68766331  /* 'hvc1': ITU-T H.265, parameter sets in an 'hvcC' atom */
};

/* Width and height in pixels. */
typedef struct PVVideoDimensions {
  int32_t width;
  int32_t height;
} PVVideoDimensions;

/* Creates a description. extensions may be NULL.
 * Statuses: InvalidParameter (descriptionOut null; codecType 0; extensions no property list); AllocationFailed. */
PV_EXPORT PVStatus PVVideoFormatDescriptionCreate(BRAllocatorRef allocator, PVVideoCodecType codecType, int32_t width,
                                                  int32_t height, BRDictionaryRef extensions,
                                                  PVVideoFormatDescriptionRef *descriptionOut);

/* Creates the description of the pixels of an image buffer: its pixel format as the codec type, its size, and as
 * extensions BytesPerRow, Version (2) and those of its attachments, of either mode, whose keys
 * PVVideoFormatDescriptionGetExtensionKeysCommonWithImageBuffers lists.
 * Statuses: InvalidParameter (imageBuffer or descriptionOut null; a pixel format of 0, as which every image buffer
 * counts that is no pixel buffer; sizes or bytes per row above INT32_MAX; an attachment that is no property list);
 * AllocationFailed. */
PV_EXPORT PVStatus PVVideoFormatDescriptionCreateForImageBuffer(BRAllocatorRef allocator, IMImageBufferRef imageBuffer,
                                                                PVVideoFormatDescriptionRef *descriptionOut);

/* Creates the description of an H.264 stream: codec type 'avc1', the size that its sequence parameter sets give, the
 * sets in an 'avcC' atom among the extensions, and what the first sequence parameter set says of colour, range, chroma
 * location, pixel aspect and fields. A set is a NAL unit from its header byte on, without start code or length; sets
 * may come in any order, at least one sequence and one picture parameter set. NALUnitHeaderLength (1, 2 or 4) is how
 * many bytes of length will stand before each NAL unit of the samples.
 * Statuses: InvalidParameter (descriptionOut null; the sequence parameter sets differ in size, or one does not tell
 * it); -12712 (sets or length no such), -12713 (memory ran out), -12714 (a set that cannot be read), see
 * <kiv/bridge.h>; AllocationFailed. */
PV_EXPORT PVStatus PVVideoFormatDescriptionCreateFromH264ParameterSets(
    BRAllocatorRef allocator, size_t parameterSetCount, const uint8_t *const *parameterSetPointers,
    const size_t *parameterSetSizes, int32_t NALUnitHeaderLength, PVVideoFormatDescriptionRef *descriptionOut);

/* A parameter set of a description that has an 'avcC' atom: sequence parameter sets first, then picture parameter sets,
 * then extensions of sequence parameter sets. *parameterSetPointerOut is lent by the description. Each output may be
 * NULL; the count and the header length alone can be asked for with any index. On failure all are NULL and 0.
 * Statuses: InvalidParameter (no format description; no such atom in it); -12712 (the atom is malformed; with a pointer
 * or a size asked for, no such index). */
PV_EXPORT PVStatus PVVideoFormatDescriptionGetH264ParameterSetAtIndex(PVVideoFormatDescriptionRef description,
                                                                      size_t parameterSetIndex,
                                                                      const uint8_t **parameterSetPointerOut,
                                                                      size_t *parameterSetSizeOut,
                                                                      size_t *parameterSetCountOut,
                                                                      int32_t *NALUnitHeaderLengthOut);

/* Width and height as they are encoded. */
PV_EXPORT PVVideoDimensions PVVideoFormatDescriptionGetDimensions(PVVideoFormatDescriptionRef description);

/* The clean aperture: the part of the picture that is free of edge effects, in pixels, from the top left corner or,
 * with originIsAtTopLeft false, from the bottom left one upwards. The whole picture when there is no such extension, or
 * its numbers do not describe a part of the picture. Only the plain numbers are read, not their rational forms. */
PV_EXPORT GRRect PVVideoFormatDescriptionGetCleanAperture(PVVideoFormatDescriptionRef description,
                                                          bool originIsAtTopLeft);

/* The size to show the picture at. With useCleanAperture that of the clean aperture, wherever it lies; with
 * usePixelAspectRatio the width scaled by the pixel aspect ratio. Numbers that make no sense are passed over. */
PV_EXPORT GRSize PVVideoFormatDescriptionGetPresentationDimensions(PVVideoFormatDescriptionRef description,
                                                                   bool usePixelAspectRatio, bool useCleanAperture);

/* Whether a description fits an image buffer: media subtype and pixel format, the sizes, bytes per row if the
 * description has them, and under every key of the list below either equal values or none on both sides. An image
 * buffer that is no pixel buffer counts with pixel format 0 and its encoded size, rounded. False, and InvalidParameter
 * signalled, when either is NULL. */
PV_EXPORT bool PVVideoFormatDescriptionMatchesImageBuffer(PVVideoFormatDescriptionRef description,
                                                          IMImageBufferRef imageBuffer);

/* The 11 extension keys that are keys of attachments of image buffers as well; an array of strings that lives as long
 * as the process, borrowed: CleanAperture, FieldCount, FieldDetail, PixelAspectRatio, ColorPrimaries, TransferFunction,
 * GammaLevel, YCbCrMatrix, ICCProfile, ChromaLocationTopField, ChromaLocationBottomField. NULL, and AllocationFailed
 * signalled, when memory runs out. */
PV_EXPORT BRArrayRef PVVideoFormatDescriptionGetExtensionKeysCommonWithImageBuffers(void);

/* Extension keys and their values. */

/* A dictionary with the four keys that follow, or their rational forms: arrays of numerator and denominator. The
 * offsets are those of the aperture's centre from the picture's, to the right and down. */
PV_EXPORT extern const BRStringRef kPVFormatDescriptionExtension_CleanAperture;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionKey_CleanApertureWidth;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionKey_CleanApertureHeight;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionKey_CleanApertureHorizontalOffset;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionKey_CleanApertureVerticalOffset;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionKey_CleanApertureWidthRational;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionKey_CleanApertureHeightRational;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionKey_CleanApertureHorizontalOffsetRational;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionKey_CleanApertureVerticalOffsetRational;

/* A dictionary with the two keys that follow: the shape of a pixel, width to height. */
PV_EXPORT extern const BRStringRef kPVFormatDescriptionExtension_PixelAspectRatio;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionKey_PixelAspectRatioHorizontalSpacing;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionKey_PixelAspectRatioVerticalSpacing;

/* A number: 1 progressive, 2 interlaced. */
PV_EXPORT extern const BRStringRef kPVFormatDescriptionExtension_FieldCount;

/* A string: which field comes first in time, or how the fields' lines lie in the frame. */
PV_EXPORT extern const BRStringRef kPVFormatDescriptionExtension_FieldDetail;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionFieldDetail_TemporalTopFirst;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionFieldDetail_TemporalBottomFirst;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionFieldDetail_SpatialFirstLineEarly;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionFieldDetail_SpatialFirstLineLate;

/* A string: which colours red, green, blue and white are. */
PV_EXPORT extern const BRStringRef kPVFormatDescriptionExtension_ColorPrimaries;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionColorPrimaries_ITU_R_709_2;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionColorPrimaries_EBU_3213;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionColorPrimaries_SMPTE_C;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionColorPrimaries_DCI_P3;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionColorPrimaries_P3_D65;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionColorPrimaries_ITU_R_2020;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionColorPrimaries_P22;

/* A string: how light becomes signal; with UseGamma by the power that GammaLevel, a number, gives. */
PV_EXPORT extern const BRStringRef kPVFormatDescriptionExtension_TransferFunction;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionTransferFunction_ITU_R_709_2;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionTransferFunction_SMPTE_240M_1995;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionTransferFunction_UseGamma;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionTransferFunction_ITU_R_2020;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionExtension_GammaLevel;

/* A string: how luma and chroma come from red, green and blue. */
PV_EXPORT extern const BRStringRef kPVFormatDescriptionExtension_YCbCrMatrix;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionYCbCrMatrix_ITU_R_709_2;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionYCbCrMatrix_ITU_R_601_4;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionYCbCrMatrix_SMPTE_240M_1995;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionYCbCrMatrix_DCI_P3;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionYCbCrMatrix_P3_D65;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionYCbCrMatrix_ITU_R_2020;

/* Strings: where chroma samples lie among luma samples; progressive pictures have the first. */
PV_EXPORT extern const BRStringRef kPVFormatDescriptionExtension_ChromaLocationTopField;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionExtension_ChromaLocationBottomField;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionChromaLocation_Left;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionChromaLocation_Center;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionChromaLocation_TopLeft;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionChromaLocation_Top;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionChromaLocation_BottomLeft;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionChromaLocation_Bottom;
PV_EXPORT extern const BRStringRef kPVFormatDescriptionChromaLocation_DV420;

/* Data. */
PV_EXPORT extern const BRStringRef kPVFormatDescriptionExtension_ICCProfile;

/* "IMBytesPerRow": a number, signed 32-bit, of uncompressed frames. */
PV_EXPORT extern const BRStringRef kPVFormatDescriptionExtension_BytesPerRow;

/* "ConformsToMPEG2VideoProfile": a number. */
PV_EXPORT extern const BRStringRef kPVFormatDescriptionConformsToMPEG2VideoProfile;

PV_END_DECLS

#endif
