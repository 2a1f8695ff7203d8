/* Video format descriptions, for sibling media layers: creation from configuration atoms and from HEVC parameter sets,
 * and what parameter sets say beside the size.
 *
 * Owners, outputs and threads are those of <pevrin/video_format_description.h>. KivVideoFormatDescriptionRegister is in
 * <kiv/format_description.h>.
 *
 *   PVStatus status = KivVideoFormatDescriptionCreateWithSampleDescriptionExtensionAtom(
 *       NULL, kPVVideoCodecType_HEVC, width, height, 'hvcC', payload, payloadLength, NULL, &description); */
#ifndef KIV_VIDEO_FORMAT_DESCRIPTION_H
#define KIV_VIDEO_FORMAT_DESCRIPTION_H

#include <kiv/format_description.h>
#include <pevrin/video_format_description.h>

PV_BEGIN_DECLS

/* Creates a description with one atom under SampleDescriptionExtensionAtoms, beside extraExtensions, which may be NULL;
 * atoms among those give way to this one. For the codec types of H.264 and HEVC the extensions of
 * KivBridge_MakeFallbackExtensionsFromVUI are added. Without an atom (atomType 0, atomBytes null or atomLength 0) the
 * description has no extensions at all.
 * Statuses: those of PVVideoFormatDescriptionCreate; -12713 (memory ran out for the extensions). */
PV_EXPORT PVStatus KivVideoFormatDescriptionCreateWithSampleDescriptionExtensionAtom(
    BRAllocatorRef allocator, PVVideoCodecType codecType, int32_t width, int32_t height, PVFourCharCode atomType,
    const void *atomBytes, size_t atomLength, BRDictionaryRef extraExtensions,
    PVVideoFormatDescriptionRef *descriptionOut);

/* PVVideoFormatDescriptionCreateFromH264ParameterSets for one set of each kind. A sequence parameter set that cannot be
 * parsed gives the status of KivH264Bridge_GetSPSWidthAndHeight. */
PV_EXPORT PVStatus KivVideoFormatDescriptionCreateFromSPSAndPPS(BRAllocatorRef allocator, const uint8_t *sps,
                                                                size_t spsSize, const uint8_t *pps, size_t ppsSize,
                                                                int32_t NALUnitHeaderLength,
                                                                PVVideoFormatDescriptionRef *descriptionOut);

/* PVVideoFormatDescriptionCreateFromH264ParameterSets for HEVC: codec type 'hvc1', the sets in an 'hvcC' atom. At least
 * a video, a sequence and a picture parameter set; their headers have two bytes. */
PV_EXPORT PVStatus KivVideoFormatDescriptionCreateFromHEVCParameterSets(
    BRAllocatorRef allocator, size_t parameterSetCount, const uint8_t *const *parameterSetPointers,
    const size_t *parameterSetSizes, int32_t NALUnitHeaderLength, PVVideoFormatDescriptionRef *descriptionOut);

/* PVVideoFormatDescriptionGetH264ParameterSetAtIndex for HEVC: the NAL units of an 'hvcC' atom, in its order. */
PV_EXPORT PVStatus KivVideoFormatDescriptionGetHEVCParameterSetAtIndex(PVVideoFormatDescriptionRef description,
                                                                       size_t parameterSetIndex,
                                                                       const uint8_t **parameterSetPointerOut,
                                                                       size_t *parameterSetSizeOut,
                                                                       size_t *parameterSetCountOut,
                                                                       int32_t *NALUnitHeaderLengthOut);

/* Adds to a dictionary of extensions what the first sequence parameter set of its 'avcC' atom ('hvcC' for 'hvc1') says
 * and the extensions do not: chroma location, colour primaries, transfer function, YCbCr matrix, full range, pixel
 * aspect ratio, and a field count of 1 when it is progressive. *extensionsInOut is a reference that the caller owns;
 * when there is something to add it is released and replaced by an extended copy. Success, with nothing added, when
 * there is no such atom or its parameter set cannot be parsed, and, with -12717 signalled, for a codec type other than
 * 'avc1', 'cavc', 'drmi', 'eavc', 'hvc1', 'qavc' and 'zavc'. Of usability information that breaks off, what stands
 * before the break is added.
 *
 * Code points without a value in this library add nothing. The matrix table is its own: 9 is ITU_R_2020, 11 DCI_P3, 12
 * P3_D65, and 5 nothing, whatever other code points stand for them elsewhere.
 * Statuses: -12712 (extensionsInOut null); -12713 (memory ran out; the extensions are as they were). */
PV_EXPORT PVStatus KivBridge_MakeFallbackExtensionsFromVUI(BRAllocatorRef allocator, PVVideoCodecType codecType,
                                                           BRDictionaryRef *extensionsInOut);

/* Builds the array of PVVideoFormatDescriptionGetExtensionKeysCommonWithImageBuffers, once however often it is called.
 * Status: AllocationFailed; a later call then tries again. */
PV_EXPORT PVStatus KivVideoFormatDescriptionCreateKeysCommonWithImageBuffers(void);

PV_END_DECLS

#endif
