// The format description of an elementary stream.
#pragma once

#include <pevrin/video_format_description.h>

#include "access_units.hpp"

// Describes samples whose NAL units have length fields of four bytes. setsInSamples: samples bring sets of
// their own, too ('avc3', 'hev1').
PVStatus createFormat(Codec codec, std::span<const uint8_t> stream, const SetCollection::Sets& sets,
                      bool setsInSamples, PVFormatDescriptionRef* formatOut);
