// Comparing audio format descriptions.
#include <algorithm>
#include <cstring>

#include "formats/audio_format_description.hpp"
#include "formats/tonvik_loader.hpp"

using namespace pv::audio;

namespace {

// What one side brings to the comparison.
struct Side {
  const AudioStreamBasicDescription* description;
  Layout layout;
};

// The richest format; its tag, where it has one with channels, stands for the layout.
Side sideOf(PVFormatDescriptionRef description, Storage& storage) {
  Side side{&storage.description, storage.layout};
  if (const FormatList* list = formatListOf(description, storage)) {
    side.description = &list->items()[0].streamBasicDescription;
    if (list->items()[0].channelLayoutTag & 0xFFFF)
      side.layout = {&list->layouts[0], sizeof(AudioChannelLayout)};
  }
  return side;
}

bool areEqual(const AudioStreamBasicDescription& a, const AudioStreamBasicDescription& b) {
  return std::memcmp(&a, &b, offsetof(AudioStreamBasicDescription, reserved)) == 0;
}

bool areEqual(const Layout& a, const Layout& b) {
  if (!a.header && !b.header) return true;
  if (!a.header || !b.header || !a.isWhole() || !b.isWhole()) return false;
  const AudioChannelLayout* layouts[2] = {a.header, b.header};
  uint32_t areEquivalent = 0, size = sizeof areEquivalent;
  return Tonvik_AudioFormatGetProperty(kAudioFormatProperty_AreChannelLayoutsEquivalent, sizeof layouts,
                                       layouts, &size, &areEquivalent) == 0 &&
         areEquivalent != 0;
}

}  // namespace

bool PVAudioFormatDescriptionEqual(PVAudioFormatDescriptionRef a, PVAudioFormatDescriptionRef b,
                                   PVAudioFormatDescriptionMask equalityMask,
                                   PVAudioFormatDescriptionMask* equalityMaskOut) {
  if (equalityMaskOut) *equalityMaskOut = 0;
  Storage* const ours = storageOf(a);
  Storage* const theirs = ours ? storageOf(b) : nullptr;
  if (!theirs) return false;
  const PVAudioFormatDescriptionMask asked = equalityMask & PVAudioFormatDescriptionMask_All;
  PVAudioFormatDescriptionMask equal = asked;
  if (a != b) {
    const bool wantsAll = equalityMaskOut != nullptr;  // otherwise the first difference settles it
    Side ourSide{}, theirSide{};
    if (asked &
        (PVAudioFormatDescriptionMask_StreamBasicDescription | PVAudioFormatDescriptionMask_ChannelLayout)) {
      ourSide = sideOf(a, *ours);
      theirSide = sideOf(b, *theirs);
    }
    if (asked & PVAudioFormatDescriptionMask_StreamBasicDescription &&
        !areEqual(*ourSide.description, *theirSide.description))
      equal &= ~PVAudioFormatDescriptionMask_StreamBasicDescription;
    if (equal != asked && !wantsAll) return false;
    if (asked & PVAudioFormatDescriptionMask_MagicCookie && !std::ranges::equal(ours->cookie, theirs->cookie))
      equal &= ~PVAudioFormatDescriptionMask_MagicCookie;
    if (equal != asked && !wantsAll) return false;
    if (asked & PVAudioFormatDescriptionMask_ChannelLayout && !areEqual(ourSide.layout, theirSide.layout))
      equal &= ~PVAudioFormatDescriptionMask_ChannelLayout;
  }
  if (equalityMaskOut) *equalityMaskOut = equal;
  return equal == asked;
}
