// Numbers of the H.264 and HEVC standards in words.
#pragma once

#include <string>

#include "parameter_sets.hpp"

// "H.264"
const char* codecName(Codec codec);
// Whether the standard has such a profile.
bool isKnownProfile(Codec codec, uint32_t profile);
// "High", "profile 99"
std::string profileText(Codec codec, const SequenceFacts& facts);
// "level 4.1", "level 1b", "level 5.1 high tier"
std::string levelText(Codec codec, const SequenceFacts& facts);
// "2 (top left)": Figure E-1.
std::string chromaLocationText(uint32_t location);
// "BT.709", or "BT.2020 primaries, PQ transfer, 99 matrix"; what is coded as unspecified is left out.
std::string colourText(const SequenceFacts::Colour& colour);
