// What audio format descriptions make of the answers, and of the failures, of the audio format service.
#include "tests/formats/audio_support.hpp"
#include "tests/formats/with_scripted_service/scripted_tonvik.hpp"

namespace {

using namespace br::literals;
using namespace test;

[[maybe_unused]] const bool kScriptedService = useTonvikAt(SCRIPTED_TONVIK);

constexpr AudioStatus kOddStatus = 4711;

AudioFormatListItem item(AudioFormatID formatID, uint32_t channels, AudioChannelLayoutTag tag) {
  AudioFormatListItem made{};
  made.streamBasicDescription.sampleRate = 48000;
  made.streamBasicDescription.formatID = formatID;
  made.streamBasicDescription.channelsPerFrame = channels;
  made.channelLayoutTag = tag;
  return made;
}

const std::vector<AudioFormatListItem> kLayers = {
    item(kAudioFormatMPEG4AAC_HE_V2, 2, kAudioChannelLayoutTag_Stereo),
    item(kAudioFormatMPEG4AAC_HE, 1, kAudioChannelLayoutTag_Mono),
    item(kAudioFormatMPEG4AAC, 1, kAudioChannelLayoutTag_Unknown)};

class AudioFormatList : public testing::Test {
 protected:
  AudioFormatList() {
    script.formatList = ScriptedAnswer::of(kLayers);
    script.firstPlayable = script.decodable = script.equivalence = script.name = ScriptedAnswer();
    script.listQuestions = 0;
  }

  ScriptedTonvik& script = scriptedTonvik();
};

TEST_F(AudioFormatList, IsTheServicesUnlessThatFails) {
  const ScriptedAnswer good = script.formatList;
  ScriptedAnswer noSize = good, noList = good, shortSize = good, shortList = good, grown = good,
                 ragged = good;
  noSize.infoStatus = kOddStatus;
  noList.status = kOddStatus;
  shortSize.toldSize = 43;
  shortList.value.resize(43);
  grown.value.resize(200);
  ragged.value.resize(100);
  struct {
    const char* name;
    ScriptedAnswer answer;
    size_t expectedItems;
    AudioFormatID expectedFirst;
  } const cases[] = {
      {"three layers", good, 3, kAudioFormatMPEG4AAC_HE_V2},
      {"no whole last item", ragged, 2, kAudioFormatMPEG4AAC_HE_V2},
      {"the size is not told", noSize, 1, kAudioFormatLinearPCM},
      {"the list is not given", noList, 1, kAudioFormatLinearPCM},
      {"a size below that of an item", shortSize, 1, kAudioFormatLinearPCM},
      {"a list shorter than an item", shortList, 1, kAudioFormatLinearPCM},
      {"more than there was room for", grown, 1, kAudioFormatLinearPCM},
  };
  for (const auto& it : cases) {
    script.formatList = it.answer;
    FailingAllocator allocator;
    const Audio audio = makeAudio(kStereoPCM, kAudioChannelLayoutTag_Stereo, {}, allocator);
    const ErrorsSince errors;
    size_t size = 0;
    const AudioFormatListItem* items = PVAudioFormatDescriptionGetFormatList(audio.get(), &size);
    ASSERT_EQ(size, 44 * it.expectedItems) << it.name;
    EXPECT_EQ(items[0].streamBasicDescription.formatID, it.expectedFirst) << it.name;
    EXPECT_EQ(items[0].channelLayoutTag, AudioChannelLayoutTag{kAudioChannelLayoutTag_Stereo}) << it.name;
    EXPECT_EQ(PVAudioFormatDescriptionGetMostCompatibleFormat(audio.get()), items + it.expectedItems - 1);
    EXPECT_EQ(errors.count(), 0u) << it.name;
  }
}

TEST_F(AudioFormatList, RichestDecodableIsAskedForInTwoWays) {
  const auto playable = [](uint32_t index) { return ScriptedAnswer::of(std::vector<uint32_t>{index}); };
  const auto decodable = [](std::vector<AudioFormatID> ids) { return ScriptedAnswer::of(ids); };
  const ScriptedAnswer unsupported(kAudioFormatUnsupportedPropertyError);
  ScriptedAnswer noIDs = decodable({kAudioFormatMPEG4AAC}), shortIDs = noIDs, fewerIDs = noIDs;
  noIDs.status = kOddStatus;
  shortIDs.toldSize = 3;
  fewerIDs.toldSize = 400;  // those that are not given count as none
  struct {
    const char* name;
    ScriptedAnswer firstPlayable, decodable;
    int expected;  // -1: none
    uint64_t errors;
  } const cases[] = {
      {"told", playable(1), {}, 1, 0},
      {"beyond the list", playable(3), {}, -1, 0},
      {"none", ScriptedAnswer(kAudioFormatUnsupportedDataFormatError), decodable({kAudioFormatMPEG4AAC}), -1,
       0},
      {"another failure", ScriptedAnswer(kOddStatus), decodable({kAudioFormatMPEG4AAC}), -1, 1},
      {"by what can be decoded", unsupported, decodable({kAudioFormatMPEG4AAC, kAudioFormatMPEG4AAC_HE}), 1,
       0},
      {"of which there is none", unsupported, decodable({kAudioFormatLinearPCM}), -1, 0},
      {"whose size is not told", unsupported, ScriptedAnswer(kOddStatus), -1, 1},
      {"which is not given", unsupported, noIDs, -1, 1},
      {"whose size is too small", unsupported, shortIDs, -1, 1},
      {"fewer than were told", unsupported, fewerIDs, 2, 0},
  };
  for (const auto& it : cases) {
    script.firstPlayable = it.firstPlayable;
    script.decodable = it.decodable;
    FailingAllocator allocator;
    const Audio audio = makeAudio(kStereoPCM, {}, {}, allocator);
    const AudioFormatListItem* items = PVAudioFormatDescriptionGetFormatList(audio.get(), nullptr);
    const ErrorsSince errors;
    EXPECT_EQ(PVAudioFormatDescriptionGetRichestDecodableFormat(audio.get()),
              it.expected < 0 ? nullptr : items + it.expected)
        << it.name;
    EXPECT_EQ(errors.count(), it.errors) << it.name;
  }
}

TEST_F(AudioFormatList, AFormatComesWithTheLayoutThatFitsIt) {
  LayoutBytes cutOff = LayoutBytes::of({1, 2});
  cutOff.words.pop_back();
  const LayoutBytes headless = [] {
    LayoutBytes layout(kAudioChannelLayoutTag_Stereo);
    layout.words.resize(2);
    return layout;
  }();
  struct {
    const char* name;
    LayoutBytes own;
    uint32_t playable;
    size_t expectedSize;
    AudioChannelLayoutTag expectedTag;
  } const cases[] = {
      {"no own one", {}, 0, 12, kAudioChannelLayoutTag_Stereo},
      {"of another layer", {}, 1, 12, kAudioChannelLayoutTag_Mono},
      {"neither own one nor tag", {}, 2, 0, 0},
      {"own one by tag", kAudioChannelLayoutTag_MidSide, 0, 12, kAudioChannelLayoutTag_MidSide},
      {"own one by bitmap", {kAudioChannelLayoutTag_UseChannelBitmap, 6}, 0, 12, 0x10000},
      {"own one by descriptions", LayoutBytes::of({1, 2}), 0, 52, 0},
      {"own one for a format without a tag", kAudioChannelLayoutTag_Mono, 2, 12, kAudioChannelLayoutTag_Mono},
      {"own one of too many channels", kAudioChannelLayoutTag_MPEG_5_1_D, 1, 12, kAudioChannelLayoutTag_Mono},
      {"own one that is cut off", cutOff, 0, 12, kAudioChannelLayoutTag_Stereo},
      {"own one without a whole header", headless, 0, 12, kAudioChannelLayoutTag_Stereo},
  };
  for (const auto& it : cases) {
    script.firstPlayable = ScriptedAnswer::of(std::vector<uint32_t>{it.playable});
    const Audio audio = makeAudio(kStereoAAC, it.own);
    size_t size = 77;
    const AudioChannelLayout* layout = nullptr;
    ASSERT_TRUE(
        KivAudioFormatDescriptionGetRichestDecodableFormatAndChannelLayout(audio.get(), &size, &layout));
    EXPECT_EQ(size, it.expectedSize) << it.name;
    EXPECT_EQ(layout ? layout->channelLayoutTag : 0, it.expectedTag) << it.name;
    EXPECT_EQ(layout == nullptr, it.expectedSize == 0) << it.name;
    const bool isMadeUp = layout && !it.own.get();
    EXPECT_EQ(isMadeUp ? layout->channelBitmap | layout->numberChannelDescriptions : 0, 0u) << it.name;

    const AudioChannelLayout* plainest = layout;
    EXPECT_TRUE(
        KivAudioFormatDescriptionGetMostCompatibleFormatAndChannelLayout(audio.get(), &size, &plainest));
    const bool isForOneChannel = it.own.words == LayoutBytes(kAudioChannelLayoutTag_Mono).words;
    EXPECT_EQ(plainest != nullptr, isForOneChannel) << it.name;
  }
  script.firstPlayable = ScriptedAnswer(kAudioFormatUnsupportedDataFormatError);
  size_t size = 77;
  const AudioChannelLayout* layout = LayoutBytes().get();
  EXPECT_FALSE(KivAudioFormatDescriptionGetRichestDecodableFormatAndChannelLayout(makeAudio(kStereoAAC).get(),
                                                                                  &size, &layout));
  EXPECT_EQ(size, 0u);
}

TEST_F(AudioFormatList, EqualityIsThatOfTheRichestFormats) {
  constexpr PVAudioFormatDescriptionMask kMask =
      PVAudioFormatDescriptionMask_StreamBasicDescription | PVAudioFormatDescriptionMask_ChannelLayout;
  const Audio pcm = makeAudio(kStereoPCM), aac = makeAudio(kStereoAAC, kAudioChannelLayoutTag_MPEG_5_1_D);
  const auto equalityUnder = [&](ScriptedAnswer equivalence, const Audio& a, const Audio& b) {
    script.equivalence = equivalence;
    PVAudioFormatDescriptionMask mask = 77;
    PVAudioFormatDescriptionEqual(a.get(), b.get(), kMask, &mask);
    return mask;
  };
  const ScriptedAnswer yes = ScriptedAnswer::of(std::vector<uint32_t>{1});
  EXPECT_EQ(equalityUnder(yes, pcm, aac), kMask) << "their lists are the same";
  const auto* layouts = reinterpret_cast<const AudioChannelLayout* const*>(script.lastSpecifier.data());
  ASSERT_EQ(script.lastSpecifier.size(), sizeof(void*) * 2);
  for (int i = 0; i < 2; ++i)
    EXPECT_EQ(layouts[i]->channelLayoutTag, AudioChannelLayoutTag{kAudioChannelLayoutTag_Stereo})
        << "not its own";
  EXPECT_EQ(equalityUnder(ScriptedAnswer::of(std::vector<uint32_t>{0}), pcm, aac), kMask & 1);
  EXPECT_EQ(equalityUnder(ScriptedAnswer(kOddStatus), pcm, aac), kMask & 1);

  script.formatList = ScriptedAnswer::of(std::vector{kLayers[2]});  // no tag: the own layouts
  const Audio other = makeAudio(kStereoAAC, {kAudioChannelLayoutTag_UseChannelBitmap, 3}),
              none = makeAudio(kStereoAAC);
  script.lastSpecifier.clear();
  EXPECT_EQ(equalityUnder(yes, other, makeAudio(kStereoPCM, kAudioChannelLayoutTag_MidSide)), kMask);
  EXPECT_EQ(script.lastSpecifier.size(), sizeof(void*) * 2);
  EXPECT_EQ(equalityUnder(yes, other, none), kMask & 1) << "a layout on one side only";
  EXPECT_EQ(equalityUnder(ScriptedAnswer(), none, makeAudio(kStereoPCM)), kMask) << "none on either";
  LayoutBytes cutOff = LayoutBytes::of({1, 2});
  cutOff.words.pop_back();
  EXPECT_EQ(equalityUnder(yes, makeAudio(kStereoAAC, cutOff), other), kMask & 1) << "cut off";
}

TEST_F(AudioFormatList, TheTextHasTheNameOfTheLayout) {
  const BRStringRef name = "Quadrille"_br;
  script.name = ScriptedAnswer::of(std::vector<BRStringRef>{name});
  const Audio audio = makeAudio(kStereoPCM, LayoutBytes::of({1, 2}));
  auto text = br::Ref<const BRString>::adopt(BRCopyDescription(audio.get()));
  EXPECT_NE(std::string(BRStringGetUTF8(text.get())).find("channelLayout: Quadrille"), std::string::npos);
  EXPECT_EQ(script.lastSpecifier.size(), 52u);
}

TEST_F(AudioFormatList, MemoryMayRunOutAnywhere) {
  script.decodable = ScriptedAnswer::of(std::vector<AudioFormatID>{kAudioFormatMPEG4AAC_HE});
  walkAllocationFailures([](BRAllocatorRef allocator) {
    Audio audio;
    if (PVAudioFormatDescriptionCreate(allocator, &kStereoAAC, 0, nullptr, 0, nullptr, nullptr,
                                       audio.out()) != 0)
      return Outcome::kOutOfMemory;
    const ErrorsSince errors;
    size_t size = 77;
    const AudioChannelLayout* layout = nullptr;
    if (!KivAudioFormatDescriptionGetRichestDecodableFormatAndChannelLayout(audio.get(), &size, &layout)) {
      EXPECT_TRUE(size == 0 && layout == nullptr && errors.count() == 1);
      EXPECT_NE(PVAudioFormatDescriptionGetRichestDecodableFormat(audio.get()), nullptr)
          << "there is memory again";
      return Outcome::kOutOfMemory;
    }
    EXPECT_EQ(layout->channelLayoutTag, AudioChannelLayoutTag{kAudioChannelLayoutTag_Mono});
    return Outcome::kSucceeded;
  });
}

using AudioFormatListThreads = AudioFormatList;

TEST_F(AudioFormatListThreads, AllGetTheSameList) {
  for (int round = 0; round < 50; ++round) {
    FailingAllocator allocator;
    const Audio audio = makeAudio(kStereoPCM, {}, {}, allocator);
    const AudioFormatListItem* lists[4] = {};
    const AudioChannelLayout* layouts[4] = {};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
      threads.emplace_back([&, i] {
        size_t size = 0;
        lists[i] = PVAudioFormatDescriptionGetFormatList(audio.get(), &size);
        EXPECT_EQ(size, 132u);
        KivAudioFormatDescriptionGetMostCompatibleFormatAndChannelLayout(audio.get(), &size, &layouts[i]);
        EXPECT_EQ(lists[i][2].streamBasicDescription.formatID, AudioFormatID{kAudioFormatMPEG4AAC});
      });
    for (std::thread& thread : threads) thread.join();
    for (int i = 1; i < 4; ++i) EXPECT_TRUE(lists[i] == lists[0] && layouts[i] == layouts[0]);
  }
  EXPECT_GE(script.listQuestions, 50);
  EXPECT_LE(script.listQuestions, 200);
}

}  // namespace
