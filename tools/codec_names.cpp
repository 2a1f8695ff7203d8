#include "codec_names.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <span>

namespace {

struct Name {
  uint32_t number;
  const char* name;
};

// ITU-T H.264 Annex A, G, H.
constexpr std::array kH264Profiles = {
    Name{44, "CAVLC 4:4:4 Intra"},
    Name{66, "Baseline"},
    Name{77, "Main"},
    Name{83, "Scalable Baseline"},
    Name{86, "Scalable High"},
    Name{88, "Extended"},
    Name{100, "High"},
    Name{110, "High 10"},
    Name{118, "Multiview High"},
    Name{122, "High 4:2:2"},
    Name{128, "Stereo High"},
    Name{134, "MFC High"},
    Name{138, "Multiview Depth High"},
    Name{139, "Enhanced Multiview Depth High"},
    Name{244, "High 4:4:4 Predictive"},
};
// ITU-T H.265 Annex A, G, H, I.
constexpr std::array kHEVCProfiles = {
    Name{1, "Main"},
    Name{2, "Main 10"},
    Name{3, "Main Still Picture"},
    Name{4, "Format Range Extensions"},
    Name{5, "High Throughput"},
    Name{6, "Multiview Main"},
    Name{7, "Scalable Main"},
    Name{8, "3D Main"},
    Name{9, "Screen-Extended"},
    Name{10, "Scalable Format Range Extensions"},
    Name{11, "High Throughput Screen-Extended"},
};
// Tables E-3, E-4 and E-5 of both.
constexpr std::array kPrimaries = {
    Name{1, "BT.709"},     Name{2, "unspecified"}, Name{4, "BT.470 M"}, Name{5, "BT.601 625"},
    Name{6, "BT.601 525"}, Name{7, "SMPTE 240M"},  Name{8, "film"},     Name{9, "BT.2020"},
    Name{10, "XYZ"},       Name{11, "DCI-P3"},     Name{12, "P3 D65"},  Name{22, "EBU 3213"},
};
constexpr std::array kTransfers = {
    Name{1, "BT.709"},     Name{2, "unspecified"}, Name{4, "gamma 2.2"}, Name{5, "gamma 2.8"},
    Name{6, "BT.601"},     Name{7, "SMPTE 240M"},  Name{8, "linear"},    Name{9, "log 100:1"},
    Name{10, "log 316:1"}, Name{11, "xvYCC"},      Name{12, "BT.1361"},  Name{13, "sRGB"},
    Name{14, "BT.2020"},   Name{15, "BT.2020"},    Name{16, "PQ"},       Name{17, "SMPTE ST 428-1"},
    Name{18, "HLG"},
};
constexpr std::array kMatrices = {
    Name{0, "RGB"},
    Name{1, "BT.709"},
    Name{2, "unspecified"},
    Name{4, "FCC"},
    Name{5, "BT.601 625"},
    Name{6, "BT.601 525"},
    Name{7, "SMPTE 240M"},
    Name{8, "YCgCo"},
    Name{9, "BT.2020"},
    Name{10, "BT.2020 constant luminance"},
    Name{11, "SMPTE ST 2085"},
    Name{12, "from primaries"},
    Name{13, "from primaries, constant luminance"},
    Name{14, "ICtCp"},
};

std::span<const Name> profilesOf(Codec codec) {
  if (codec == Codec::H264) return kH264Profiles;
  return kHEVCProfiles;
}

std::string nameOf(std::span<const Name> names, uint32_t number, const char* prefix = "") {
  const auto found = std::ranges::find(names, number, &Name::number);
  return found == names.end() ? fmt::format("{}{}", prefix, number) : found->name;
}

bool constraint(const SequenceFacts& facts, int index) { return facts.constraintFlags >> (7 - index) & 1; }

}  // namespace

const char* codecName(Codec codec) { return codec == Codec::H264 ? "H.264" : "HEVC"; }

bool isKnownProfile(Codec codec, uint32_t profile) {
  const auto profiles = profilesOf(codec);
  return std::ranges::find(profiles, profile, &Name::number) != profiles.end();
}

std::string profileText(Codec codec, const SequenceFacts& facts) {
  const std::string text = nameOf(profilesOf(codec), facts.profile, "profile ");
  if (codec == Codec::HEVC) return text;
  if (facts.profile == 66 && constraint(facts, 1)) return "Constrained " + text;
  if (!constraint(facts, 3)) return text;
  if (facts.profile == 244) return "High 4:4:4 Intra";
  return facts.profile == 110 || facts.profile == 122 ? text + " Intra" : text;
}

std::string levelText(Codec codec, const SequenceFacts& facts) {
  const auto tenths = [](uint32_t level) {
    return level % 10 == 0 ? fmt::format("level {}", level / 10)
                           : fmt::format("level {}.{}", level / 10, level % 10);
  };
  if (codec == Codec::HEVC) {
    const std::string text =
        facts.level % 3 == 0 ? tenths(facts.level / 3) : fmt::format("level {}/30", facts.level);
    return facts.highTier ? text + " high tier" : text;
  }
  const bool older = facts.profile == 66 || facts.profile == 77 || facts.profile == 88;
  if (facts.level == 9 || (facts.level == 11 && older && constraint(facts, 3))) return "level 1b";
  return tenths(facts.level);
}

std::string chromaLocationText(uint32_t location) {
  constexpr std::array kPlaces = {"left", "center", "top left", "top", "bottom left", "bottom"};
  return location < kPlaces.size() ? fmt::format("{} ({})", location, kPlaces[location])
                                   : fmt::format("{}", location);
}

std::string colourText(const SequenceFacts::Colour& colour) {
  constexpr uint32_t kUnspecified = 2;
  const std::string primaries = nameOf(kPrimaries, colour.primaries);
  if (primaries == nameOf(kTransfers, colour.transfer) && primaries == nameOf(kMatrices, colour.matrix))
    return primaries;
  std::string text;
  const auto add = [&](std::span<const Name> names, uint32_t number, const char* what) {
    if (number != kUnspecified)
      text += fmt::format("{}{} {}", text.empty() ? "" : ", ", nameOf(names, number), what);
  };
  add(kPrimaries, colour.primaries, "primaries");
  add(kTransfers, colour.transfer, "transfer");
  add(kMatrices, colour.matrix, "matrix");
  return text;
}
