/* Keys under which image buffers bear what is known of their picture, and the values that some of them take. */
#ifndef IMLAY_IMAGE_BUFFER_KEYS_H
#define IMLAY_IMAGE_BUFFER_KEYS_H

#include <bedra/base.h>

BR_BEGIN_DECLS

/* "IMCleanAperture": a dictionary, the part of the picture that is free of edge effects. Its keys: "Width", "Height"
 * and the offsets of its centre from the picture's, to the right and down, "HorizontalOffset", "VerticalOffset";
 * numbers. */
BR_EXPORT extern const BRStringRef kIMImageBufferCleanApertureKey;
BR_EXPORT extern const BRStringRef kIMImageBufferCleanApertureWidthKey;
BR_EXPORT extern const BRStringRef kIMImageBufferCleanApertureHeightKey;
BR_EXPORT extern const BRStringRef kIMImageBufferCleanApertureHorizontalOffsetKey;
BR_EXPORT extern const BRStringRef kIMImageBufferCleanApertureVerticalOffsetKey;

/* "IMPixelAspectRatio": a dictionary, the shape of a pixel, width to height. Its keys: "HorizontalSpacing",
 * "VerticalSpacing"; numbers. */
BR_EXPORT extern const BRStringRef kIMImageBufferPixelAspectRatioKey;
BR_EXPORT extern const BRStringRef kIMImageBufferPixelAspectRatioHorizontalSpacingKey;
BR_EXPORT extern const BRStringRef kIMImageBufferPixelAspectRatioVerticalSpacingKey;

/* "IMFieldCount": a number, 1 for progressive pictures, 2 for interlaced ones. "IMFieldDetail": a string, how the two
 * fields stand in time and place. */
BR_EXPORT extern const BRStringRef kIMImageBufferFieldCountKey;
BR_EXPORT extern const BRStringRef kIMImageBufferFieldDetailKey;

/* "IMImageBufferColorPrimaries": a string. The values repeat the key: "IMImageBufferColorPrimaries_ITU_R_709_2" ... */
BR_EXPORT extern const BRStringRef kIMImageBufferColorPrimariesKey;
BR_EXPORT extern const BRStringRef kIMImageBufferColorPrimaries_ITU_R_709_2;
BR_EXPORT extern const BRStringRef kIMImageBufferColorPrimaries_EBU_3213;
BR_EXPORT extern const BRStringRef kIMImageBufferColorPrimaries_SMPTE_C;

/* "IMImageBufferTransferFunction": a string; "IMImageBufferTransferFunction_ITU_R_709_2". */
BR_EXPORT extern const BRStringRef kIMImageBufferTransferFunctionKey;
BR_EXPORT extern const BRStringRef kIMImageBufferTransferFunction_ITU_R_709_2;

/* "IMImageBufferGammaLevel": a number, when the transfer function is a power. */
BR_EXPORT extern const BRStringRef kIMImageBufferGammaLevelKey;

/* "IMImageBufferYCbCrMatrix": a string; "IMImageBufferYCbCrMatrix_ITU_R_709_2". */
BR_EXPORT extern const BRStringRef kIMImageBufferYCbCrMatrixKey;
BR_EXPORT extern const BRStringRef kIMImageBufferYCbCrMatrix_ITU_R_709_2;

/* "IMImageBufferICCProfile": data. */
BR_EXPORT extern const BRStringRef kIMImageBufferICCProfileKey;

/* "IMImageBufferChromaLocationTopField", "IMImageBufferChromaLocationBottomField": strings, where chroma samples lie
 * among luma samples, for progressive pictures under the first key. "IMImageBufferChromaLocation_Left" ... "_DV420". */
BR_EXPORT extern const BRStringRef kIMImageBufferChromaLocationTopFieldKey;
BR_EXPORT extern const BRStringRef kIMImageBufferChromaLocationBottomFieldKey;
BR_EXPORT extern const BRStringRef kIMImageBufferChromaLocation_Left;
BR_EXPORT extern const BRStringRef kIMImageBufferChromaLocation_Center;
BR_EXPORT extern const BRStringRef kIMImageBufferChromaLocation_TopLeft;
BR_EXPORT extern const BRStringRef kIMImageBufferChromaLocation_Top;
BR_EXPORT extern const BRStringRef kIMImageBufferChromaLocation_BottomLeft;
BR_EXPORT extern const BRStringRef kIMImageBufferChromaLocation_Bottom;
BR_EXPORT extern const BRStringRef kIMImageBufferChromaLocation_DV420;

BR_END_DECLS

#endif
