#include "formats/code_points.hpp"

#include <bedra/runtime.h>
#include <pevrin/video_format_description.h>

namespace pv::video {

namespace {

constexpr CodePoint kColorPrimaries[] = {
    {1, &kPVFormatDescriptionColorPrimaries_ITU_R_709_2}, {5, &kPVFormatDescriptionColorPrimaries_EBU_3213},
    {6, &kPVFormatDescriptionColorPrimaries_SMPTE_C},     {9, &kPVFormatDescriptionColorPrimaries_ITU_R_2020},
    {11, &kPVFormatDescriptionColorPrimaries_DCI_P3},     {12, &kPVFormatDescriptionColorPrimaries_P3_D65},
    {22, &kPVFormatDescriptionColorPrimaries_P22},
};
constexpr CodePoint kTransferFunctions[] = {
    {1, &kPVFormatDescriptionTransferFunction_ITU_R_709_2},
    {6, &kPVFormatDescriptionTransferFunction_ITU_R_709_2},
    {7, &kPVFormatDescriptionTransferFunction_SMPTE_240M_1995},
    {14, &kPVFormatDescriptionTransferFunction_ITU_R_2020},
};
constexpr CodePoint kMatrices[] = {
    {1, &kPVFormatDescriptionYCbCrMatrix_ITU_R_709_2},     {6, &kPVFormatDescriptionYCbCrMatrix_ITU_R_601_4},
    {7, &kPVFormatDescriptionYCbCrMatrix_SMPTE_240M_1995}, {9, &kPVFormatDescriptionYCbCrMatrix_ITU_R_2020},
    {11, &kPVFormatDescriptionYCbCrMatrix_DCI_P3},         {12, &kPVFormatDescriptionYCbCrMatrix_P3_D65},
};
constexpr CodePoint kChromaLocations[] = {
    {0, &kPVFormatDescriptionChromaLocation_Left},       {1, &kPVFormatDescriptionChromaLocation_Center},
    {2, &kPVFormatDescriptionChromaLocation_TopLeft},    {3, &kPVFormatDescriptionChromaLocation_Top},
    {4, &kPVFormatDescriptionChromaLocation_BottomLeft}, {5, &kPVFormatDescriptionChromaLocation_Bottom},
    {255, &kPVFormatDescriptionChromaLocation_DV420},
};

}  // namespace

std::span<const CodePoint> colorPrimaries() { return kColorPrimaries; }
std::span<const CodePoint> transferFunctions() { return kTransferFunctions; }
std::span<const CodePoint> matrices() { return kMatrices; }
std::span<const CodePoint> chromaLocations() { return kChromaLocations; }

BRStringRef nameOf(std::span<const CodePoint> table, uint32_t code) {
  for (const CodePoint& point : table)
    if (point.code == code) return *point.name;
  return nullptr;
}

int codeOf(std::span<const CodePoint> table, BRTypeRef name) {
  for (const CodePoint& point : table)
    if (name && BREqual(*point.name, name)) return point.code;
  return -1;
}

}  // namespace pv::video
