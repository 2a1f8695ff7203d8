// The keys of what image buffers bear.
#include <imlay/image_buffer_keys.h>

#include <bedra/literal.hpp>

using namespace br::literals;

extern "C" {
constinit const BRStringRef kIMImageBufferCleanApertureKey = "IMCleanAperture"_br;
constinit const BRStringRef kIMImageBufferCleanApertureWidthKey = "Width"_br;
constinit const BRStringRef kIMImageBufferCleanApertureHeightKey = "Height"_br;
constinit const BRStringRef kIMImageBufferCleanApertureHorizontalOffsetKey = "HorizontalOffset"_br;
constinit const BRStringRef kIMImageBufferCleanApertureVerticalOffsetKey = "VerticalOffset"_br;

constinit const BRStringRef kIMImageBufferPixelAspectRatioKey = "IMPixelAspectRatio"_br;
constinit const BRStringRef kIMImageBufferPixelAspectRatioHorizontalSpacingKey = "HorizontalSpacing"_br;
constinit const BRStringRef kIMImageBufferPixelAspectRatioVerticalSpacingKey = "VerticalSpacing"_br;

constinit const BRStringRef kIMImageBufferFieldCountKey = "IMFieldCount"_br;
constinit const BRStringRef kIMImageBufferFieldDetailKey = "IMFieldDetail"_br;

constinit const BRStringRef kIMImageBufferColorPrimariesKey = "IMImageBufferColorPrimaries"_br;
constinit const BRStringRef kIMImageBufferColorPrimaries_ITU_R_709_2 =
    "IMImageBufferColorPrimaries_ITU_R_709_2"_br;
constinit const BRStringRef kIMImageBufferColorPrimaries_EBU_3213 = "IMImageBufferColorPrimaries_EBU_3213"_br;
constinit const BRStringRef kIMImageBufferColorPrimaries_SMPTE_C = "IMImageBufferColorPrimaries_SMPTE_C"_br;

constinit const BRStringRef kIMImageBufferTransferFunctionKey = "IMImageBufferTransferFunction"_br;
constinit const BRStringRef kIMImageBufferTransferFunction_ITU_R_709_2 =
    "IMImageBufferTransferFunction_ITU_R_709_2"_br;
constinit const BRStringRef kIMImageBufferGammaLevelKey = "IMImageBufferGammaLevel"_br;

constinit const BRStringRef kIMImageBufferYCbCrMatrixKey = "IMImageBufferYCbCrMatrix"_br;
constinit const BRStringRef kIMImageBufferYCbCrMatrix_ITU_R_709_2 = "IMImageBufferYCbCrMatrix_ITU_R_709_2"_br;
constinit const BRStringRef kIMImageBufferICCProfileKey = "IMImageBufferICCProfile"_br;

constinit const BRStringRef kIMImageBufferChromaLocationTopFieldKey =
    "IMImageBufferChromaLocationTopField"_br;
constinit const BRStringRef kIMImageBufferChromaLocationBottomFieldKey =
    "IMImageBufferChromaLocationBottomField"_br;
constinit const BRStringRef kIMImageBufferChromaLocation_Left = "IMImageBufferChromaLocation_Left"_br;
constinit const BRStringRef kIMImageBufferChromaLocation_Center = "IMImageBufferChromaLocation_Center"_br;
constinit const BRStringRef kIMImageBufferChromaLocation_TopLeft = "IMImageBufferChromaLocation_TopLeft"_br;
constinit const BRStringRef kIMImageBufferChromaLocation_Top = "IMImageBufferChromaLocation_Top"_br;
constinit const BRStringRef kIMImageBufferChromaLocation_BottomLeft =
    "IMImageBufferChromaLocation_BottomLeft"_br;
constinit const BRStringRef kIMImageBufferChromaLocation_Bottom = "IMImageBufferChromaLocation_Bottom"_br;
constinit const BRStringRef kIMImageBufferChromaLocation_DV420 = "IMImageBufferChromaLocation_DV420"_br;
}
