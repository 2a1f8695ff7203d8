// The families of movie files that are written.
#pragma once

#include <bedra/string.h>

#include <optional>
#include <string>

enum class Family { QuickTime, MP4, ThreeGP };

// By the name's extension: .mov .qt; .mp4 .m4v .m4a .m4b .ismv; .3gp .3g2.
std::optional<Family> familyOfName(const std::string& fileName);
// The names that familyOfName knows, for messages.
inline constexpr const char* kFamilyNames = ".mov .qt .mp4 .m4v .m4a .m4b .3gp .3g2";

// The flavour of its sample descriptions.
BRStringRef flavorOf(Family family);
