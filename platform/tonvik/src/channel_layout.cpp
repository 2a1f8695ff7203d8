// Channel layouts.
#include "src/channel_layout.hpp"

#include <bedra/string.h>

#include <algorithm>
#include <bedra/ref.hpp>
#include <bit>
#include <iterator>

namespace tonvik {

namespace {

constexpr size_t kMaxTagChannels = 8;

struct Arrangement {
  AudioChannelLayoutTag tag;
  const char* name;
  uint16_t labels[kMaxTagChannels];
};

enum Labels : uint16_t {
  L = kAudioChannelLabel_Left,
  R = kAudioChannelLabel_Right,
  C = kAudioChannelLabel_Center,
  LFE = kAudioChannelLabel_LFEScreen,
  Ls = kAudioChannelLabel_LeftSurround,
  Rs = kAudioChannelLabel_RightSurround,
  Lc = kAudioChannelLabel_LeftCenter,
  Rc = kAudioChannelLabel_RightCenter,
  Cs = kAudioChannelLabel_CenterSurround,
  Rls = kAudioChannelLabel_RearSurroundLeft,
  Rrs = kAudioChannelLabel_RearSurroundRight,
  Lt = kAudioChannelLabel_LeftTotal,
  Rt = kAudioChannelLabel_RightTotal,
  Vhl = kAudioChannelLabel_VerticalHeightLeft,
  Vhr = kAudioChannelLabel_VerticalHeightRight,
};

// Ascending by tag; of equal arrangements the first lends its name to layouts without a tag.
constexpr Arrangement kArrangements[] = {
    {kAudioChannelLayoutTag_Mono, "Mono", {C}},
    {kAudioChannelLayoutTag_Stereo, "Stereo", {L, R}},
    {kAudioChannelLayoutTag_StereoHeadphones,
     "Headphones",
     {kAudioChannelLabel_HeadphonesLeft, kAudioChannelLabel_HeadphonesRight}},
    {kAudioChannelLayoutTag_MatrixStereo, "Matrix stereo", {Lt, Rt}},
    {kAudioChannelLayoutTag_MidSide, "Mid/side", {kAudioChannelLabel_MS_Mid, kAudioChannelLabel_MS_Side}},
    {kAudioChannelLayoutTag_XY, "X/Y", {kAudioChannelLabel_XY_X, kAudioChannelLabel_XY_Y}},
    {kAudioChannelLayoutTag_Binaural,
     "Binaural",
     {kAudioChannelLabel_BinauralLeft, kAudioChannelLabel_BinauralRight}},
    {kAudioChannelLayoutTag_Quadraphonic, "Quadraphonic", {L, R, Ls, Rs}},
    {kAudioChannelLayoutTag_Pentagonal, "Pentagonal", {L, R, Ls, Rs, C}},
    {kAudioChannelLayoutTag_Hexagonal, "Hexagonal", {L, R, Ls, Rs, C, Cs}},
    {kAudioChannelLayoutTag_MPEG_3_0_A, "3.0", {L, R, C}},
    {kAudioChannelLayoutTag_MPEG_3_0_B, "3.0", {C, L, R}},
    {kAudioChannelLayoutTag_MPEG_4_0_A, "4.0", {L, R, C, Cs}},
    {kAudioChannelLayoutTag_MPEG_4_0_B, "4.0", {C, L, R, Cs}},
    {kAudioChannelLayoutTag_MPEG_5_0_A, "5.0", {L, R, C, Ls, Rs}},
    {kAudioChannelLayoutTag_MPEG_5_0_B, "5.0", {L, R, Ls, Rs, C}},
    {kAudioChannelLayoutTag_MPEG_5_0_C, "5.0", {L, C, R, Ls, Rs}},
    {kAudioChannelLayoutTag_MPEG_5_0_D, "5.0", {C, L, R, Ls, Rs}},
    {kAudioChannelLayoutTag_MPEG_5_1_A, "5.1", {L, R, C, LFE, Ls, Rs}},
    {kAudioChannelLayoutTag_MPEG_5_1_B, "5.1", {L, R, Ls, Rs, C, LFE}},
    {kAudioChannelLayoutTag_MPEG_5_1_C, "5.1", {L, C, R, Ls, Rs, LFE}},
    {kAudioChannelLayoutTag_MPEG_5_1_D, "5.1", {C, L, R, Ls, Rs, LFE}},
    {kAudioChannelLayoutTag_MPEG_6_1_A, "6.1", {L, R, C, LFE, Ls, Rs, Cs}},
    {kAudioChannelLayoutTag_MPEG_7_1_A, "7.1", {L, R, C, LFE, Ls, Rs, Lc, Rc}},
    {kAudioChannelLayoutTag_MPEG_7_1_B, "7.1", {C, Lc, Rc, L, R, Ls, Rs, LFE}},
    {kAudioChannelLayoutTag_MPEG_7_1_C, "7.1", {L, R, C, LFE, Ls, Rs, Rls, Rrs}},
    {kAudioChannelLayoutTag_ITU_2_1, "2/1", {L, R, Cs}},
    {kAudioChannelLayoutTag_ITU_2_2, "2/2", {L, R, Ls, Rs}},
    {kAudioChannelLayoutTag_DVD_4, "2.1", {L, R, LFE}},
    {kAudioChannelLayoutTag_DVD_5, "3.1", {L, R, LFE, Cs}},
    {kAudioChannelLayoutTag_DVD_6, "4.1", {L, R, LFE, Ls, Rs}},
    {kAudioChannelLayoutTag_DVD_10, "3.1", {L, R, C, LFE}},
    {kAudioChannelLayoutTag_DVD_11, "4.1", {L, R, C, LFE, Cs}},
    {kAudioChannelLayoutTag_DVD_18, "4.1", {L, R, Ls, Rs, LFE}},
    {kAudioChannelLayoutTag_AudioUnit_6_0, "6.0", {L, R, Ls, Rs, C, Cs}},
    {kAudioChannelLayoutTag_AudioUnit_7_0, "7.0", {L, R, Ls, Rs, C, Rls, Rrs}},
    {kAudioChannelLayoutTag_AAC_6_0, "6.0", {C, L, R, Ls, Rs, Cs}},
    {kAudioChannelLayoutTag_AAC_6_1, "6.1", {C, L, R, Ls, Rs, Cs, LFE}},
    {kAudioChannelLayoutTag_AAC_7_0, "7.0", {C, L, R, Ls, Rs, Rls, Rrs}},
    {kAudioChannelLayoutTag_AAC_Octagonal, "Octagonal", {C, L, R, Ls, Rs, Rls, Rrs, Cs}},
    {kAudioChannelLayoutTag_AudioUnit_7_0_Front, "7.0", {L, R, Ls, Rs, C, Lc, Rc}},
    {kAudioChannelLayoutTag_AC3_1_0_1, "1.1", {C, LFE}},
    {kAudioChannelLayoutTag_AC3_3_0, "3.0", {L, C, R}},
    {kAudioChannelLayoutTag_AC3_3_1, "4.0", {L, C, R, Cs}},
    {kAudioChannelLayoutTag_AC3_3_0_1, "3.1", {L, C, R, LFE}},
    {kAudioChannelLayoutTag_AC3_2_1_1, "3.1", {L, R, Cs, LFE}},
    {kAudioChannelLayoutTag_AC3_3_1_1, "4.1", {L, C, R, Cs, LFE}},
    {kAudioChannelLayoutTag_AAC_7_1_B, "7.1", {C, L, R, Ls, Rs, Rls, Rrs, LFE}},
    {kAudioChannelLayoutTag_AAC_7_1_C, "7.1", {C, L, R, Ls, Rs, LFE, Vhl, Vhr}},
};
constexpr auto kIsBefore = [](const Arrangement& a, const Arrangement& b) { return a.tag < b.tag; };
static_assert(std::is_sorted(std::begin(kArrangements), std::end(kArrangements), kIsBefore));
static_assert(std::all_of(std::begin(kArrangements), std::end(kArrangements), [](const Arrangement& it) {
  const size_t channels = it.tag & 0xFFFF;  // as many labels as the tag has channels
  return channels <= kMaxTagChannels && it.labels[channels - 1] != 0 &&
         (channels == kMaxTagChannels || it.labels[channels] == 0);
}));

struct LabelName {
  AudioChannelLabel label;
  const char* name;
};
constexpr LabelName kLabelNames[] = {
    {L, "L"},
    {R, "R"},
    {C, "C"},
    {LFE, "LFE"},
    {Ls, "Ls"},
    {Rs, "Rs"},
    {Lc, "Lc"},
    {Rc, "Rc"},
    {Cs, "Cs"},
    {kAudioChannelLabel_LeftSurroundDirect, "Lsd"},
    {kAudioChannelLabel_RightSurroundDirect, "Rsd"},
    {kAudioChannelLabel_TopCenterSurround, "Ts"},
    {Vhl, "Vhl"},
    {kAudioChannelLabel_VerticalHeightCenter, "Vhc"},
    {Vhr, "Vhr"},
    {kAudioChannelLabel_TopBackLeft, "Tbl"},
    {kAudioChannelLabel_TopBackCenter, "Tbc"},
    {kAudioChannelLabel_TopBackRight, "Tbr"},
    {Rls, "Rls"},
    {Rrs, "Rrs"},
    {kAudioChannelLabel_LeftWide, "Lw"},
    {kAudioChannelLabel_RightWide, "Rw"},
    {kAudioChannelLabel_LFE2, "LFE2"},
    {Lt, "Lt"},
    {Rt, "Rt"},
    {kAudioChannelLabel_Mono, "C"},
    {kAudioChannelLabel_UseCoordinates, "@"},
    {kAudioChannelLabel_MS_Mid, "Mid"},
    {kAudioChannelLabel_MS_Side, "Side"},
    {kAudioChannelLabel_XY_X, "X"},
    {kAudioChannelLabel_XY_Y, "Y"},
    {kAudioChannelLabel_BinauralLeft, "L"},
    {kAudioChannelLabel_BinauralRight, "R"},
    {kAudioChannelLabel_HeadphonesLeft, "L"},
    {kAudioChannelLabel_HeadphonesRight, "R"},
};

const Arrangement* findArrangement(AudioChannelLayoutTag tag) {
  const auto found = std::lower_bound(std::begin(kArrangements), std::end(kArrangements),
                                      Arrangement{tag, nullptr, {}}, kIsBefore);
  return found != std::end(kArrangements) && found->tag == tag ? &*found : nullptr;
}

constexpr AudioChannelDescription labelled(AudioChannelLabel label) { return {label, 0, {0, 0, 0}}; }

// A layout read channel by channel, whichever way it tells them.
class Channels {
 public:
  explicit Channels(const AudioChannelLayout& layout)
      : layout_(layout), arrangement_(findArrangement(layout.channelLayoutTag)) {}

  // 0 when the layout does not tell its channels.
  uint32_t count() const {
    const AudioChannelLayoutTag tag = layout_.channelLayoutTag;
    if (tag == kAudioChannelLayoutTag_UseChannelDescriptions) return layout_.numberChannelDescriptions;
    if (tag == kAudioChannelLayoutTag_UseChannelBitmap)
      return static_cast<uint32_t>(std::popcount(layout_.channelBitmap));
    return arrangement_ || isDiscrete() ? tag & 0xFFFF : 0;
  }

  AudioChannelDescription at(uint32_t index) const {
    if (arrangement_) return labelled(arrangement_->labels[index]);
    if (isDiscrete()) return labelled(kAudioChannelLabel_Discrete_0 | index);
    if (layout_.channelLayoutTag == kAudioChannelLayoutTag_UseChannelDescriptions)
      return layout_.channelDescriptions[index];
    AudioChannelBitmap bitmap = layout_.channelBitmap;
    for (; index > 0; --index) bitmap &= bitmap - 1;
    return labelled(static_cast<AudioChannelLabel>(std::countr_zero(bitmap) + 1));
  }

  bool operator==(const Channels& other) const {
    const uint32_t channels = count();
    if (channels == 0 || channels != other.count()) return false;
    for (uint32_t i = 0; i < channels; ++i)
      if (!areSame(at(i), other.at(i), channels == 1)) return false;
    return true;
  }

 private:
  bool isDiscrete() const {
    return (layout_.channelLayoutTag & 0xFFFF0000u) == kAudioChannelLayoutTag_DiscreteInOrder;
  }

  static bool areSame(const AudioChannelDescription& a, const AudioChannelDescription& b, bool isAlone) {
    const auto plain = [isAlone](AudioChannelLabel label) {
      return isAlone && label == kAudioChannelLabel_Mono ? AudioChannelLabel{kAudioChannelLabel_Center}
                                                         : label;
    };
    if (plain(a.channelLabel) != plain(b.channelLabel)) return false;
    return a.channelLabel != kAudioChannelLabel_UseCoordinates ||
           (a.channelFlags == b.channelFlags && std::equal(a.coordinates, a.coordinates + 3, b.coordinates));
  }

  const AudioChannelLayout& layout_;
  const Arrangement* arrangement_;
};

// The arrangement that a layout amounts to, or null.
const Arrangement* arrangementOf(const AudioChannelLayout& layout) {
  if (const Arrangement* own = findArrangement(layout.channelLayoutTag)) return own;
  const Channels channels(layout);
  const auto found =
      std::find_if(std::begin(kArrangements), std::end(kArrangements), [&](const Arrangement& it) {
        return channels == Channels(AudioChannelLayout{it.tag, 0, 0});
      });
  return found == std::end(kArrangements) ? nullptr : &*found;
}

bool appendChannel(BRMutableStringRef text, AudioChannelLabel label) {
  for (const LabelName& known : kLabelNames)
    if (known.label == label) return BRStringAppendFormat(text, "%s", known.name);
  if ((label & 0xFFFF0000u) == kAudioChannelLabel_Discrete_0)
    return BRStringAppendFormat(text, "#%u", (label & 0xFFFF) + 1);
  return BRStringAppendFormat(text, "?");
}

}  // namespace

bool areEquivalent(const AudioChannelLayout& a, const AudioChannelLayout& b) {
  const AudioChannelLayoutTag tag = a.channelLayoutTag;
  if (tag == b.channelLayoutTag && tag != kAudioChannelLayoutTag_UseChannelDescriptions &&
      tag != kAudioChannelLayoutTag_UseChannelBitmap)
    return true;
  return Channels(a) == Channels(b);
}

bool hasChannels(const AudioChannelLayout& layout) { return Channels(layout).count() > 0; }

BRStringRef copyName(const AudioChannelLayout& layout) {
  const Channels channels(layout);
  const Arrangement* arrangement = arrangementOf(layout);
  auto text = br::Ref<BRString>::adopt(BRStringCreateMutable(nullptr, 0));
  bool complete = !arrangement || BRStringAppendFormat(text.get(), "%s (", arrangement->name);
  for (uint32_t i = 0; complete && i < channels.count(); ++i)
    complete = (i == 0 || BRStringAppendFormat(text.get(), " ")) &&
               appendChannel(text.get(), channels.at(i).channelLabel);
  complete = complete && (!arrangement || BRStringAppendFormat(text.get(), ")"));
  return complete ? text.detach() : nullptr;
}

}  // namespace tonvik
