// Audio format descriptions with the audio format service of this tree.
#include "tests/formats/audio_support.hpp"

namespace {

using namespace test;

[[maybe_unused]] const bool kOwnService = useTonvikAt(TONVIK);

const Bytes kHEv2Cookie{0xEB, 0x09, 0x88, 0x00};

TEST(AudioFormatService, LayersOfAACHaveTheLayoutsOfTheirChannels) {
  const Audio audio = makeAudio(kStereoAAC, {}, kHEv2Cookie);
  size_t size = 0, layoutSize = 0;
  const AudioChannelLayout* layout = nullptr;
  const AudioFormatListItem* items = PVAudioFormatDescriptionGetFormatList(audio.get(), &size);
  ASSERT_EQ(size, 132u);
  EXPECT_EQ(
      KivAudioFormatDescriptionGetRichestDecodableFormatAndChannelLayout(audio.get(), &layoutSize, &layout),
      items);
  EXPECT_EQ(items->streamBasicDescription.sampleRate, 48000);
  EXPECT_EQ(layout->channelLayoutTag, AudioChannelLayoutTag{kAudioChannelLayoutTag_Stereo});
  EXPECT_EQ(
      KivAudioFormatDescriptionGetMostCompatibleFormatAndChannelLayout(audio.get(), &layoutSize, &layout),
      items + 2);
  EXPECT_EQ(layoutSize, 12u);
  EXPECT_EQ(layout->channelLayoutTag, AudioChannelLayoutTag{kAudioChannelLayoutTag_Mono});
}

TEST(AudioFormatService, DescriptionsAreEqualWhenTheyMeanTheSame) {
  const Audio tagged = makeAudio(kStereoPCM, kAudioChannelLayoutTag_Stereo);
  EXPECT_TRUE(PVFormatDescriptionEqual(
      tagged.get(), makeAudio(kStereoPCM, {kAudioChannelLayoutTag_UseChannelBitmap, 3}).get()));
  EXPECT_TRUE(PVFormatDescriptionEqual(tagged.get(), makeAudio(kStereoPCM, LayoutBytes::of({1, 2})).get()));
  EXPECT_FALSE(PVFormatDescriptionEqual(tagged.get(), makeAudio(kStereoPCM, LayoutBytes::of({2, 1})).get()));

  // a file that describes only the core, beside one that describes all of it; the cookie knows
  AudioStreamBasicDescription whole = kStereoAAC;
  whole.formatFlags = 2;
  EXPECT_TRUE(PVFormatDescriptionEqual(makeAudio(kStereoAAC, {}, kHEv2Cookie).get(),
                                       makeAudio(whole, kAudioChannelLayoutTag_Mono, kHEv2Cookie).get()));
  const Bytes damaged{0x12};
  EXPECT_FALSE(PVFormatDescriptionEqual(makeAudio(kStereoAAC, {}, damaged).get(),
                                        makeAudio(whole, {}, damaged).get()));
}

TEST(AudioFormatService, NothingIsDecodableInAnUnknownFormat) {
  AudioStreamBasicDescription unknown = kStereoPCM;
  unknown.formatID = 0x7A7A7A7A;
  const ErrorsSince errors;
  EXPECT_EQ(PVAudioFormatDescriptionGetRichestDecodableFormat(makeAudio(unknown).get()), nullptr);
  EXPECT_EQ(errors.count(), 0u);
  EXPECT_NE(PVAudioFormatDescriptionGetRichestDecodableFormat(makeAudio(kStereoPCM).get()), nullptr);
}

TEST(AudioFormatService, NamesTheLayoutInTheText) {
  const Audio audio = makeAudio(kStereoPCM, LayoutBytes::of({3, 1, 2, 5, 6, 4}));
  auto text = br::Ref<const BRString>::adopt(BRCopyDescription(audio.get()));
  EXPECT_NE(std::string(BRStringGetUTF8(text.get())).find("channelLayout: 5.1 (C L R Ls Rs LFE)"),
            std::string::npos);
}

}  // namespace
