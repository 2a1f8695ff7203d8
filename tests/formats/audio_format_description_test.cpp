// Audio format descriptions where there is no audio format service, and the search for it.
#include "tests/formats/audio_support.hpp"
#include "tests/support/objects.hpp"

namespace {

using namespace br::literals;
using namespace test;

[[maybe_unused]] const bool kWithoutService = useTonvikAt("/nonexistent/libtonvik.so.0");

constexpr PVAudioFormatDescriptionMask kAll = PVAudioFormatDescriptionMask_All,
                                       kFormat = PVAudioFormatDescriptionMask_StreamBasicDescription,
                                       kCookie = PVAudioFormatDescriptionMask_MagicCookie,
                                       kLayout = PVAudioFormatDescriptionMask_ChannelLayout,
                                       kExtensions = PVAudioFormatDescriptionMask_Extensions;

TEST(AudioFormatDescription, HoldsCopiesOfWhatItIsCreatedWith) {
  walkAllocationFailures([](BRAllocatorRef allocator) {
    AudioStreamBasicDescription description = kStereoAAC;
    LayoutBytes layout = LayoutBytes::of({kAudioChannelLabel_Left, kAudioChannelLabel_Right});
    Bytes cookie{0x12, 0x10};
    const Dictionary extensions = dictionary({{"k"_br, "v"_br}});
    Audio audio;
    if (PVStatus status =
            PVAudioFormatDescriptionCreate(allocator, &description, layout.size(), layout.get(),
                                           cookie.size(), cookie.data(), extensions.get(), audio.out())) {
      EXPECT_EQ(status, kPVFormatDescriptionError_AllocationFailed);
      EXPECT_FALSE(audio);
      return Outcome::kOutOfMemory;
    }
    description.channelsPerFrame = 7;
    layout.words[3] = 9;
    cookie[0] = 0;

    EXPECT_EQ(PVFormatDescriptionGetMediaType(audio.get()), PVMediaType{kPVMediaType_Audio});
    EXPECT_EQ(PVFormatDescriptionGetMediaSubType(audio.get()), AudioFormatID{kAudioFormatMPEG4AAC});
    EXPECT_EQ(std::memcmp(PVAudioFormatDescriptionGetStreamBasicDescription(audio.get()), &kStereoAAC, 40),
              0);
    EXPECT_EQ(PVAudioFormatDescriptionGetChannelCount(audio.get()), 2u);
    size_t size = 0;
    EXPECT_EQ(
        PVAudioFormatDescriptionGetChannelLayout(audio.get(), &size)->channelDescriptions[0].channelLabel,
        AudioChannelLabel{kAudioChannelLabel_Left});
    EXPECT_EQ(size, layout.size());
    EXPECT_EQ(*static_cast<const uint8_t*>(PVAudioFormatDescriptionGetMagicCookie(audio.get(), &size)), 0x12);
    EXPECT_EQ(size, 2u);
    EXPECT_EQ(PVFormatDescriptionGetExtension(audio.get(), "k"_br), "v"_br);
    const AudioFormatListItem* items = PVAudioFormatDescriptionGetFormatList(audio.get(), &size);
    EXPECT_EQ(size, items ? 44u : 0u);
    return items ? Outcome::kSucceeded : Outcome::kOutOfMemory;
  });
}

TEST(AudioFormatDescription, ChecksOnlyTheSampleRateAndThePointers) {
  const auto create = [](double sampleRate, size_t layoutSize, const void* bytes, size_t cookieSize,
                         Audio& audio) {
    AudioStreamBasicDescription description = kStereoPCM;
    description.sampleRate = sampleRate;
    return PVAudioFormatDescriptionCreate(nullptr, &description, layoutSize,
                                          static_cast<const AudioChannelLayout*>(bytes), cookieSize, bytes,
                                          nullptr, audio.out());
  };
  const LayoutBytes stereo(kAudioChannelLayoutTag_Stereo);
  Audio audio;
  EXPECT_EQ(create(0, 12, stereo.get(), 12, audio), kPVFormatDescriptionError_InvalidParameter);
  EXPECT_FALSE(audio);
  EXPECT_EQ(create(-0.0, 12, stereo.get(), 12, audio), kPVFormatDescriptionError_InvalidParameter);
  EXPECT_EQ(create(std::nan(""), 0, stereo.get(), 0, audio), 0);
  size_t size = 77;
  EXPECT_EQ(PVAudioFormatDescriptionGetChannelLayout(audio.get(), &size), nullptr);
  EXPECT_EQ(size, 0u);
  EXPECT_EQ(PVAudioFormatDescriptionGetMagicCookie(audio.get(), &size), nullptr);
  EXPECT_EQ(create(-1, 12, nullptr, 12, audio), 0);
  EXPECT_EQ(PVAudioFormatDescriptionGetMagicCookie(audio.get(), &size), nullptr);
  EXPECT_EQ(size, 0u);

  EXPECT_EQ(PVAudioFormatDescriptionCreate(nullptr, nullptr, 0, nullptr, 0, nullptr, nullptr, audio.out()),
            -12710);
  EXPECT_EQ(PVAudioFormatDescriptionCreate(nullptr, &kStereoPCM, 0, nullptr, 0, nullptr, nullptr, nullptr),
            -12710);
}

TEST(AudioFormatDescription, GettersRefuseWhatIsNoAudio) {
  Audio text;
  ASSERT_EQ(PVFormatDescriptionCreate(nullptr, kPVMediaType_Text, 1, nullptr, text.out()), 0);
  for (PVFormatDescriptionRef other : {PVFormatDescriptionRef{nullptr}, text.get()}) {
    const ErrorsSince errors;
    size_t size = 77;
    const auto* layout = reinterpret_cast<const AudioChannelLayout*>(&size);
    EXPECT_EQ(PVAudioFormatDescriptionGetStreamBasicDescription(other), nullptr);
    EXPECT_EQ(PVAudioFormatDescriptionGetChannelCount(other), 0u);
    EXPECT_EQ(PVAudioFormatDescriptionGetMagicCookie(other, &size), nullptr);
    EXPECT_EQ(std::exchange(size, 77), 0u);
    EXPECT_EQ(PVAudioFormatDescriptionGetChannelLayout(other, &size), nullptr);
    EXPECT_EQ(std::exchange(size, 77), 0u);
    EXPECT_EQ(PVAudioFormatDescriptionGetFormatList(other, &size), nullptr);
    EXPECT_EQ(std::exchange(size, 77), 0u);
    EXPECT_EQ(PVAudioFormatDescriptionGetMostCompatibleFormat(other), nullptr);
    EXPECT_EQ(PVAudioFormatDescriptionGetRichestDecodableFormat(other), nullptr);
    EXPECT_EQ(KivAudioFormatDescriptionGetRichestDecodableFormatAndChannelLayout(other, &size, &layout),
              nullptr);
    EXPECT_TRUE(size == 0 && layout == nullptr);
    EXPECT_EQ(KivAudioFormatDescriptionGetMostCompatibleFormatAndChannelLayout(other, nullptr, nullptr),
              nullptr);
    EXPECT_EQ(errors.count(), 9u);
  }
}

TEST(AudioFormatDescription, WithoutServiceTheListIsItsOwnFormat) {
  struct {
    LayoutBytes layout;
    AudioChannelLayoutTag expected;
  } const cases[] = {
      {{}, kAudioChannelLayoutTag_Unknown},
      {kAudioChannelLayoutTag_Stereo, kAudioChannelLayoutTag_Stereo},
      {kAudioChannelLayoutTag_Unknown | 2, kAudioChannelLayoutTag_Unknown},
      {{kAudioChannelLayoutTag_UseChannelBitmap, 3}, kAudioChannelLayoutTag_Unknown},
      {LayoutBytes::of({1, 2}), kAudioChannelLayoutTag_Unknown},
  };
  for (const auto& it : cases) {
    const Audio audio = makeAudio(kStereoAAC, it.layout, {0x12, 0x10});
    size_t size = 0;
    const AudioFormatListItem* items = PVAudioFormatDescriptionGetFormatList(audio.get(), &size);
    ASSERT_EQ(size, 44u);
    EXPECT_EQ(std::memcmp(&items->streamBasicDescription, &kStereoAAC, 40), 0);
    EXPECT_EQ(items->channelLayoutTag, it.expected);
    EXPECT_EQ(PVAudioFormatDescriptionGetFormatList(audio.get(), nullptr), items);
    EXPECT_EQ(PVAudioFormatDescriptionGetMostCompatibleFormat(audio.get()), items);
    const ErrorsSince errors;
    EXPECT_EQ(PVAudioFormatDescriptionGetRichestDecodableFormat(audio.get()), nullptr);
    EXPECT_EQ(errors.count(), 1u) << "the service is unavailable";
  }
}

TEST(AudioFormatDescription, EqualityTellsWhatDiffers) {
  AudioStreamBasicDescription reserved = kStereoPCM, mono = kStereoPCM;
  reserved.reserved = 1;
  mono.channelsPerFrame = 1;
  const LayoutBytes stereo(kAudioChannelLayoutTag_Stereo), cut = {};
  const Audio plain = makeAudio(kStereoPCM), withCookie = makeAudio(kStereoPCM, {}, {1, 2}),
              withLayout = makeAudio(kStereoPCM, stereo);
  struct {
    const char* name;
    Audio a, b;
    PVAudioFormatDescriptionMask mask, expected;
  } const cases[] = {
      {"all the same", plain, makeAudio(kStereoPCM), kAll, kAll},
      {"one object", withLayout, withLayout, kAll | 16, kAll},
      {"the reserved field has no say", plain, makeAudio(reserved), kAll, kAll},
      {"another format", plain, makeAudio(mono), kAll, kAll & ~kFormat},
      {"and nobody asked", plain, makeAudio(mono), kCookie | kLayout, kCookie | kLayout},
      {"the same cookie", withCookie, makeAudio(kStereoPCM, {}, {1, 2}), kCookie, kCookie},
      {"another cookie", withCookie, makeAudio(kStereoPCM, {}, {1, 3}), kAll, kAll & ~kCookie},
      {"a longer cookie", withCookie, makeAudio(kStereoPCM, {}, {1, 2, 0}), kAll, kAll & ~kCookie},
      {"no cookie", withCookie, plain, kAll, kAll & ~kCookie},
      {"a layout on one side", withLayout, plain, kAll, kAll & ~kLayout},
      {"nobody to compare layouts", withLayout, makeAudio(kStereoPCM, stereo), kAll, kAll & ~kLayout},
      {"nothing is alike", withCookie, makeAudio(mono, stereo), kAll, kExtensions},
      {"nothing is asked", withCookie, makeAudio(mono, stereo), 0, 0},
      {"extensions are not compared", withCookie, makeAudio(mono, stereo), kExtensions, kExtensions},
  };
  for (const auto& it : cases) {
    PVAudioFormatDescriptionMask mask = 77;
    const bool expected = it.expected == (it.mask & kAll);
    EXPECT_EQ(PVAudioFormatDescriptionEqual(it.a.get(), it.b.get(), it.mask, &mask), expected) << it.name;
    EXPECT_EQ(mask, it.expected) << it.name;
    EXPECT_EQ(PVAudioFormatDescriptionEqual(it.b.get(), it.a.get(), it.mask, nullptr), expected) << it.name;
  }
}

TEST(AudioFormatDescription, EqualityWantsTwoAudioDescriptions) {
  const Audio audio = makeAudio(kStereoPCM);
  Audio text;
  ASSERT_EQ(PVFormatDescriptionCreate(nullptr, kPVMediaType_Text, 1, nullptr, text.out()), 0);
  for (PVFormatDescriptionRef other : {PVFormatDescriptionRef{nullptr}, text.get()}) {
    const ErrorsSince errors;
    PVAudioFormatDescriptionMask mask = 77;
    EXPECT_FALSE(PVAudioFormatDescriptionEqual(audio.get(), other, 0, &mask));
    EXPECT_EQ(mask, 0u);
    EXPECT_FALSE(PVAudioFormatDescriptionEqual(other, other, 0, nullptr));
    EXPECT_EQ(errors.count(), 2u);
  }
  // the common equality: the extensions have no say
  const Dictionary extensions = dictionary({{"k"_br, "v"_br}});
  Audio extended;
  ASSERT_EQ(PVAudioFormatDescriptionCreate(nullptr, &kStereoPCM, 0, nullptr, 0, nullptr, extensions.get(),
                                           extended.out()),
            0);
  EXPECT_TRUE(PVFormatDescriptionEqual(audio.get(), extended.get()));
  EXPECT_FALSE(PVFormatDescriptionEqual(audio.get(), makeAudio(kStereoPCM, {}, {1}).get()));
}

TEST(AudioFormatDescription, OneThatWasMadeByTheCommonFunctionIsZeros) {
  Audio bare, other;
  ASSERT_EQ(
      PVFormatDescriptionCreate(nullptr, kPVMediaType_Audio, kAudioFormatLinearPCM, nullptr, bare.out()), 0);
  ASSERT_EQ(
      PVFormatDescriptionCreate(nullptr, kPVMediaType_Audio, kAudioFormatLinearPCM, nullptr, other.out()), 0);
  EXPECT_EQ(PVAudioFormatDescriptionGetStreamBasicDescription(bare.get())->sampleRate, 0);
  size_t size = 0;
  EXPECT_NE(PVAudioFormatDescriptionGetFormatList(bare.get(), &size), nullptr);
  EXPECT_EQ(size, 44u);
  EXPECT_TRUE(PVFormatDescriptionEqual(bare.get(), other.get()));
}

TEST(AudioFormatDescription, HasATextForPeople) {
  const auto textOf = [](const Audio& audio) {
    auto text = br::Ref<const BRString>::adopt(BRCopyDescription(audio.get()));
    const std::string all = BRStringGetUTF8(text.get());
    const size_t begin = all.find("mediaSpecific: {\n") + 17;
    return all.substr(begin, all.find(" \n\t} \n\textensions") - begin);
  };
  EXPECT_EQ(textOf(makeAudio(kStereoAAC, kAudioChannelLayoutTag_Stereo, {0x12, 0x10})),
            "\t\tsampleRate: 44100 formatID: 'aac ' formatFlags: 0x0 bytesPerPacket: 0 framesPerPacket: 1024 "
            "bytesPerFrame: 0 channelsPerFrame: 2 bitsPerChannel: 0\n"
            "\t\tmagicCookie: <2 bytes: 1210>\n"
            "\t\tchannelLayout: without a name");
  EXPECT_TRUE(textOf(makeAudio(kStereoPCM)).ends_with("\t\tmagicCookie: (null)\n\t\tchannelLayout: none"));
}

void askTwiceAt(const char* path) {
  useTonvikAt(path);
  for (int i = 0; i < 2; ++i) {
    size_t size = 0;
    if (!PVAudioFormatDescriptionGetFormatList(makeAudio(kStereoPCM).get(), &size) || size != 44)
      std::exit(1);
  }
  std::exit(KivGetErrorCount() == 0 ? 0 : 2);
}

TEST(AudioFormatServiceDeathTest, SaysOnceWhatIsMissing) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // each in a process of its own
  const auto success = testing::ExitedWithCode(0);
  EXPECT_EXIT(askTwiceAt("/nonexistent/libtonvik.so.0"), success, "^Failed to get Tonvik bundle!\n$");
  EXPECT_EXIT(askTwiceAt(""), success, "^Failed to get Tonvik bundle!\n$");
  EXPECT_EXIT(askTwiceAt(INCOMPLETE_TONVIK), success,
              "^Failed to get Tonvik symbol \\(pAudioFormatGetProperty\\)!\n$");
}

}  // namespace
