// The extension keys of video, their values, and the list of keys that image buffers know too.
#include <bedra/array.h>
#include <kiv/video_format_description.h>

#include <atomic>
#include <bedra/literal.hpp>
#include <bedra/ref.hpp>

#include "formats/video_format_description.hpp"
#include "runtime/error.hpp"

using namespace br::literals;

extern "C" {
// The strings of Imlay's keys, written out: what another library holds cannot be had at compile time.
constinit const BRStringRef kPVFormatDescriptionExtension_CleanAperture = "IMCleanAperture"_br;
constinit const BRStringRef kPVFormatDescriptionKey_CleanApertureWidth = "Width"_br;
constinit const BRStringRef kPVFormatDescriptionKey_CleanApertureHeight = "Height"_br;
constinit const BRStringRef kPVFormatDescriptionKey_CleanApertureHorizontalOffset = "HorizontalOffset"_br;
constinit const BRStringRef kPVFormatDescriptionKey_CleanApertureVerticalOffset = "VerticalOffset"_br;
constinit const BRStringRef kPVFormatDescriptionKey_CleanApertureWidthRational = "WidthAsRational"_br;
constinit const BRStringRef kPVFormatDescriptionKey_CleanApertureHeightRational = "HeightAsRational"_br;
constinit const BRStringRef kPVFormatDescriptionKey_CleanApertureHorizontalOffsetRational =
    "HorizontalOffsetAsRational"_br;
constinit const BRStringRef kPVFormatDescriptionKey_CleanApertureVerticalOffsetRational =
    "VerticalOffsetAsRational"_br;

constinit const BRStringRef kPVFormatDescriptionExtension_PixelAspectRatio = "IMPixelAspectRatio"_br;
constinit const BRStringRef kPVFormatDescriptionKey_PixelAspectRatioHorizontalSpacing =
    "HorizontalSpacing"_br;
constinit const BRStringRef kPVFormatDescriptionKey_PixelAspectRatioVerticalSpacing = "VerticalSpacing"_br;

constinit const BRStringRef kPVFormatDescriptionExtension_FieldCount = "IMFieldCount"_br;
constinit const BRStringRef kPVFormatDescriptionExtension_FieldDetail = "IMFieldDetail"_br;
constinit const BRStringRef kPVFormatDescriptionFieldDetail_TemporalTopFirst = "TemporalTopFirst"_br;
constinit const BRStringRef kPVFormatDescriptionFieldDetail_TemporalBottomFirst = "TemporalBottomFirst"_br;
constinit const BRStringRef kPVFormatDescriptionFieldDetail_SpatialFirstLineEarly =
    "SpatialFirstLineEarly"_br;
constinit const BRStringRef kPVFormatDescriptionFieldDetail_SpatialFirstLineLate = "SpatialFirstLineLate"_br;

constinit const BRStringRef kPVFormatDescriptionExtension_ColorPrimaries = "IMImageBufferColorPrimaries"_br;
constinit const BRStringRef kPVFormatDescriptionColorPrimaries_ITU_R_709_2 =
    "IMImageBufferColorPrimaries_ITU_R_709_2"_br;
constinit const BRStringRef kPVFormatDescriptionColorPrimaries_EBU_3213 =
    "IMImageBufferColorPrimaries_EBU_3213"_br;
constinit const BRStringRef kPVFormatDescriptionColorPrimaries_SMPTE_C =
    "IMImageBufferColorPrimaries_SMPTE_C"_br;
constinit const BRStringRef kPVFormatDescriptionColorPrimaries_DCI_P3 = "DCI_P3"_br;
constinit const BRStringRef kPVFormatDescriptionColorPrimaries_P3_D65 = "P3_D65"_br;
constinit const BRStringRef kPVFormatDescriptionColorPrimaries_ITU_R_2020 = "ITU_R_2020"_br;
constinit const BRStringRef kPVFormatDescriptionColorPrimaries_P22 = "P22"_br;

constinit const BRStringRef kPVFormatDescriptionExtension_TransferFunction =
    "IMImageBufferTransferFunction"_br;
constinit const BRStringRef kPVFormatDescriptionTransferFunction_ITU_R_709_2 =
    "IMImageBufferTransferFunction_ITU_R_709_2"_br;
constinit const BRStringRef kPVFormatDescriptionTransferFunction_SMPTE_240M_1995 = "SMPTE_240M_1995"_br;
constinit const BRStringRef kPVFormatDescriptionTransferFunction_UseGamma = "UseGamma"_br;
constinit const BRStringRef kPVFormatDescriptionTransferFunction_ITU_R_2020 = "ITU_R_2020"_br;
constinit const BRStringRef kPVFormatDescriptionExtension_GammaLevel = "IMImageBufferGammaLevel"_br;

constinit const BRStringRef kPVFormatDescriptionExtension_YCbCrMatrix = "IMImageBufferYCbCrMatrix"_br;
constinit const BRStringRef kPVFormatDescriptionYCbCrMatrix_ITU_R_709_2 =
    "IMImageBufferYCbCrMatrix_ITU_R_709_2"_br;
constinit const BRStringRef kPVFormatDescriptionYCbCrMatrix_ITU_R_601_4 = "ITU_R_601_4"_br;
constinit const BRStringRef kPVFormatDescriptionYCbCrMatrix_SMPTE_240M_1995 = "SMPTE_240M_1995"_br;
constinit const BRStringRef kPVFormatDescriptionYCbCrMatrix_DCI_P3 = "DCI_P3"_br;
constinit const BRStringRef kPVFormatDescriptionYCbCrMatrix_P3_D65 = "P3_D65"_br;
constinit const BRStringRef kPVFormatDescriptionYCbCrMatrix_ITU_R_2020 = "ITU_R_2020"_br;

constinit const BRStringRef kPVFormatDescriptionExtension_ChromaLocationTopField =
    "IMImageBufferChromaLocationTopField"_br;
constinit const BRStringRef kPVFormatDescriptionExtension_ChromaLocationBottomField =
    "IMImageBufferChromaLocationBottomField"_br;
constinit const BRStringRef kPVFormatDescriptionChromaLocation_Left = "IMImageBufferChromaLocation_Left"_br;
constinit const BRStringRef kPVFormatDescriptionChromaLocation_Center =
    "IMImageBufferChromaLocation_Center"_br;
constinit const BRStringRef kPVFormatDescriptionChromaLocation_TopLeft =
    "IMImageBufferChromaLocation_TopLeft"_br;
constinit const BRStringRef kPVFormatDescriptionChromaLocation_Top = "IMImageBufferChromaLocation_Top"_br;
constinit const BRStringRef kPVFormatDescriptionChromaLocation_BottomLeft =
    "IMImageBufferChromaLocation_BottomLeft"_br;
constinit const BRStringRef kPVFormatDescriptionChromaLocation_Bottom =
    "IMImageBufferChromaLocation_Bottom"_br;
constinit const BRStringRef kPVFormatDescriptionChromaLocation_DV420 = "IMImageBufferChromaLocation_DV420"_br;

constinit const BRStringRef kPVFormatDescriptionExtension_ICCProfile = "IMImageBufferICCProfile"_br;
constinit const BRStringRef kPVFormatDescriptionExtension_BytesPerRow = "IMBytesPerRow"_br;
constinit const BRStringRef kPVFormatDescriptionConformsToMPEG2VideoProfile =
    "ConformsToMPEG2VideoProfile"_br;
}

namespace {

const BRStringRef* const kCommonKeys[] = {
    &kPVFormatDescriptionExtension_CleanAperture,
    &kPVFormatDescriptionExtension_FieldCount,
    &kPVFormatDescriptionExtension_FieldDetail,
    &kPVFormatDescriptionExtension_PixelAspectRatio,
    &kPVFormatDescriptionExtension_ColorPrimaries,
    &kPVFormatDescriptionExtension_TransferFunction,
    &kPVFormatDescriptionExtension_GammaLevel,
    &kPVFormatDescriptionExtension_YCbCrMatrix,
    &kPVFormatDescriptionExtension_ICCProfile,
    &kPVFormatDescriptionExtension_ChromaLocationTopField,
    &kPVFormatDescriptionExtension_ChromaLocationBottomField,
};

// Set once, by whichever thread comes first.
constinit std::atomic<BRArrayRef> commonKeyArray{nullptr};

BRArrayRef makeCommonKeyArray() {
  const void* keys[std::size(kCommonKeys)];
  for (size_t i = 0; i < std::size(kCommonKeys); ++i) keys[i] = *kCommonKeys[i];
  auto made =
      br::Ref<const BRArray>::adopt(BRArrayCreate(nullptr, keys, std::size(keys), &kBRTypeArrayCallBacks));
  BRArrayRef present = nullptr;
  if (!made) return nullptr;
  return commonKeyArray.compare_exchange_strong(present, made.get(), std::memory_order_acq_rel)
             ? made.detach()
             : present;
}

}  // namespace

std::span<const BRStringRef* const> pv::video::keysCommonWithImageBuffers() { return kCommonKeys; }

PVStatus KivVideoFormatDescriptionCreateKeysCommonWithImageBuffers(void) {
  if (commonKeyArray.load(std::memory_order_acquire) || makeCommonKeyArray()) return 0;
  return pv::signalError(kPVFormatDescriptionError_AllocationFailed);
}

BRArrayRef PVVideoFormatDescriptionGetExtensionKeysCommonWithImageBuffers(void) {
  KivVideoFormatDescriptionCreateKeysCommonWithImageBuffers();
  return commonKeyArray.load(std::memory_order_acquire);
}
