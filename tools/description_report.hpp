// A format description in words and in JSON.
#pragma once

#include <string>

#include "sample_descriptions.hpp"

// "avc1  1920 x 1080, shown as 1920 x 1080, colour ITU_R_709_2"
std::string descriptionText(const SampleDescription& sample);
// One object, in one line.
std::string descriptionJson(PVFormatDescriptionRef description);
