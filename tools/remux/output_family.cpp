#include "output_family.hpp"

#include <pevrin/sample_description.h>

#include <algorithm>
#include <cctype>
#include <string_view>
#include <utility>

namespace {

constexpr std::pair<std::string_view, Family> kExtensions[] = {
    {".mov", Family::QuickTime}, {".qt", Family::QuickTime}, {".mp4", Family::MP4},
    {".m4v", Family::MP4},       {".m4a", Family::MP4},      {".m4b", Family::MP4},
    {".3gp", Family::ThreeGP},   {".3g2", Family::ThreeGP},
};

}  // namespace

std::optional<Family> familyOfName(const std::string& fileName) {
  const size_t dot = fileName.find_last_of("./");
  if (dot == std::string::npos || fileName[dot] == '/') return std::nullopt;
  std::string extension = fileName.substr(dot);
  std::ranges::transform(extension, extension.begin(),
                         [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  const auto found = std::ranges::find(kExtensions, extension, &std::pair<std::string_view, Family>::first);
  return found == std::end(kExtensions) ? std::nullopt : std::optional(found->second);
}

BRStringRef flavorOf(Family family) {
  if (family == Family::QuickTime) return kPVImageDescriptionFlavor_TavloMovie;
  return family == Family::ThreeGP ? kPVImageDescriptionFlavor_3GPFamily
                                   : kPVImageDescriptionFlavor_ISOFamily;
}
