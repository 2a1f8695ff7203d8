// Channel layouts, the questions that are put wrongly, and the functions that only answer that they cannot.
#include <bedra/runtime.h>
#include <bedra/string.h>
#include <gtest/gtest.h>
#include <tonvik/audio_converter.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

namespace {

// A layout with what follows it, in memory that ends where it ends.
class Layout {
 public:
  Layout(AudioChannelLayoutTag tag) : words_{tag, 0, 0} {}
  Layout(std::initializer_list<AudioChannelLabel> labels) : Layout(labels, 0) {}
  Layout(std::initializer_list<AudioChannelLabel> labels, float coordinate) : words_{0, 0, 0} {
    for (AudioChannelLabel label : labels) {
      const AudioChannelDescription description{label, 0, {coordinate, 0, 0}};
      uint32_t words[5];
      std::memcpy(words, &description, sizeof words);
      words_.insert(words_.end(), words, words + 5);
      ++words_[2];
    }
  }
  void setBitmap(AudioChannelBitmap bitmap) { words_[1] = bitmap; }
  const AudioChannelLayout* get() const { return reinterpret_cast<const AudioChannelLayout*>(words_.data()); }
  uint32_t size() const { return static_cast<uint32_t>(words_.size() * sizeof words_[0]); }

 private:
  std::vector<uint32_t> words_;
};

bool areEquivalent(const Layout& a, const Layout& b) {
  const AudioChannelLayout* layouts[2] = {a.get(), b.get()};
  uint32_t answer = 77, size = sizeof answer;
  EXPECT_EQ(AudioFormatGetProperty(kAudioFormatProperty_AreChannelLayoutsEquivalent, sizeof layouts, layouts,
                                   &size, &answer),
            0);
  EXPECT_TRUE(size == sizeof answer && answer <= 1);
  return answer != 0;
}

std::string nameOf(const Layout& layout) {
  BRStringRef name = nullptr;
  uint32_t size = sizeof name;
  const AudioStatus status = AudioFormatGetProperty(kAudioFormatProperty_ChannelLayoutName, layout.size(),
                                                    layout.get(), &size, &name);
  if (status == kAudioFormatUnsupportedDataFormatError) return "fmt?";
  EXPECT_EQ(status, 0);
  const std::string text = BRStringGetUTF8(name);
  BRRelease(name);
  return text;
}

Layout placed(std::initializer_list<AudioChannelLabel> labels, float coordinate) {
  return Layout(labels, coordinate);
}

Layout bitmap(AudioChannelBitmap bits) {
  Layout layout(kAudioChannelLayoutTag_UseChannelBitmap);
  layout.setBitmap(bits);
  return layout;
}

constexpr AudioChannelBitmap bit(AudioChannelLabel label) { return 1u << (label - 1); }
constexpr AudioChannelLabel L = kAudioChannelLabel_Left, R = kAudioChannelLabel_Right,
                            C = kAudioChannelLabel_Center, Ls = kAudioChannelLabel_LeftSurround,
                            Rs = kAudioChannelLabel_RightSurround;

TEST(ChannelLayout, AreEquivalentWhenTheyMeanTheSame) {
  const Layout tagged(kAudioChannelLayoutTag_MPEG_5_0_D);
  struct {
    const char* name;
    Layout a, b;
    bool expected;
  } const cases[] = {
      {"tag and descriptions", tagged, {C, L, R, Ls, Rs}, true},
      {"the order counts", tagged, {L, R, C, Ls, Rs}, false},
      {"a channel less", tagged, {C, L, R, Ls}, false},
      {"tag and bitmap", kAudioChannelLayoutTag_Stereo, bitmap(bit(L) | bit(R)), true},
      {"two tags of one meaning", kAudioChannelLayoutTag_Quadraphonic, kAudioChannelLayoutTag_ITU_2_2, true},
      {"two tags with the same channels otherwise arranged", tagged, kAudioChannelLayoutTag_MPEG_5_0_A,
       false},
      {"mono is the centre alone", kAudioChannelLayoutTag_Mono, {kAudioChannelLabel_Mono}, true},
      {"but not among others", {L, kAudioChannelLabel_Mono}, {L, C}, false},
      {"left and total left", kAudioChannelLayoutTag_Stereo, kAudioChannelLayoutTag_MatrixStereo, false},
      {"discrete channels", kAudioChannelLayoutTag_DiscreteInOrder | 2, {0x10000, 0x10001}, true},
      {"a tag that nobody knows", 0x07D00002, 0x07D00002, true},
      {"and another", 0x07D00002, 0x07D10002, false},
      {"unknown is no stereo", kAudioChannelLayoutTag_Unknown | 2, kAudioChannelLayoutTag_Stereo, false},
      {"equal coordinates", placed({kAudioChannelLabel_UseCoordinates}, 30),
       placed({kAudioChannelLabel_UseCoordinates}, 30), true},
      {"other coordinates", placed({kAudioChannelLabel_UseCoordinates}, 30),
       placed({kAudioChannelLabel_UseCoordinates}, 31), false},
      {"coordinates that do not count", placed({L, R}, 30), placed({L, R}, 31), true},
      {"layouts of nothing", bitmap(0), bitmap(0), false},
  };
  for (const auto& it : cases) {
    EXPECT_EQ(areEquivalent(it.a, it.b), it.expected) << it.name;
    EXPECT_EQ(areEquivalent(it.b, it.a), it.expected) << it.name << ", the other way round";
  }
}

TEST(ChannelLayout, HasANameForPeople) {
  EXPECT_EQ(nameOf(kAudioChannelLayoutTag_Mono), "Mono (C)");
  EXPECT_EQ(nameOf(kAudioChannelLayoutTag_AAC_7_1_B), "7.1 (C L R Ls Rs Rls Rrs LFE)");
  EXPECT_EQ(nameOf({C, L, R, Ls, Rs, kAudioChannelLabel_LFEScreen}), "5.1 (C L R Ls Rs LFE)");
  EXPECT_EQ(nameOf(bitmap(bit(L) | bit(R))), "Stereo (L R)");
  EXPECT_EQ(nameOf({L, R, kAudioChannelLabel_LeftWide, 999, kAudioChannelLabel_Unknown}), "L R Lw ? ?");
  EXPECT_EQ(nameOf(kAudioChannelLayoutTag_DiscreteInOrder | 2), "#1 #2");
  for (const Layout& nameless : {Layout(kAudioChannelLayoutTag_Unknown | 2), Layout(0x07D00002), Layout(0u),
                                 Layout(kAudioChannelLayoutTag_UseChannelBitmap), Layout(0xFFFFFFFF)})
    EXPECT_EQ(nameOf(nameless), "fmt?");
}

TEST(AudioFormat, AWrongQuestionIsAnsweredAndChangesNothing) {
  const AudioFormatInfo info{{44100, kAudioFormatLinearPCM, 0, 4, 1, 4, 2, 16, 0}, nullptr, 0};
  const Layout shortened({L, R});
  const AudioChannelLayout* halfAPair[2] = {shortened.get(), nullptr};
  struct {
    AudioFormatPropertyID property;
    uint32_t specifierSize;
    const void* specifier;
    uint32_t room;
    AudioStatus expected;
  } const cases[] = {
      {0x7A7A7A7A, sizeof info, &info, 64, kAudioFormatUnsupportedPropertyError},
      {kAudioFormatProperty_FormatList, sizeof info - 1, &info, 64, kAudioFormatBadSpecifierSizeError},
      {kAudioFormatProperty_FormatList, sizeof info, nullptr, 64, kAudioFormatUnspecifiedError},
      {kAudioFormatProperty_FormatList, sizeof info, &info, 43, kAudioFormatBadPropertySizeError},
      {kAudioFormatProperty_DecodeFormatIDs, 0, nullptr, 4, kAudioFormatBadPropertySizeError},
      {kAudioFormatProperty_FirstPlayableFormatFromList, 45, &info, 64, kAudioFormatBadSpecifierSizeError},
      {kAudioFormatProperty_AreChannelLayoutsEquivalent, 8, halfAPair, 64, kAudioFormatBadSpecifierSizeError},
      {kAudioFormatProperty_AreChannelLayoutsEquivalent, 16, halfAPair, 64, kAudioFormatUnspecifiedError},
      {kAudioFormatProperty_ChannelLayoutName, 11, shortened.get(), 64, kAudioFormatBadSpecifierSizeError},
      {kAudioFormatProperty_ChannelLayoutName, 12 + 39, shortened.get(), 64,
       kAudioFormatBadSpecifierSizeError},
      {kAudioFormatProperty_ChannelLayoutName, shortened.size(), shortened.get(), 7,
       kAudioFormatBadPropertySizeError},
  };
  for (const auto& it : cases) {
    uint8_t value[64] = {};
    uint32_t size = it.room;
    EXPECT_EQ(AudioFormatGetProperty(it.property, it.specifierSize, it.specifier, &size, value), it.expected);
    EXPECT_EQ(size, it.room);
    EXPECT_EQ(std::count(value, value + sizeof value, 0), static_cast<ptrdiff_t>(sizeof value));
    EXPECT_EQ(AudioFormatGetProperty(it.property, it.specifierSize, it.specifier, nullptr, value),
              kAudioFormatUnspecifiedError);
    EXPECT_EQ(AudioFormatGetProperty(it.property, it.specifierSize, it.specifier, &size, nullptr),
              kAudioFormatUnspecifiedError);
  }
  uint32_t size = 0;
  EXPECT_EQ(AudioFormatGetPropertyInfo(kAudioFormatProperty_ChannelLayoutName, 12, shortened.get(), &size),
            kAudioFormatBadSpecifierSizeError);
  EXPECT_EQ(AudioFormatGetPropertyInfo(kAudioFormatProperty_ChannelLayoutName, shortened.size(),
                                       shortened.get(), &size),
            0);
  EXPECT_EQ(size, sizeof(BRStringRef));
}

TEST(AudioConverter, ThereAreNoneAndNoDevices) {
  const AudioStreamBasicDescription pcm{44100, kAudioFormatLinearPCM, 0, 4, 1, 4, 2, 16, 0};
  int object = 0;
  auto converter = reinterpret_cast<AudioConverterRef>(&object);
  EXPECT_EQ(AudioConverterNew(&pcm, &pcm, &converter), kAudioConverterErr_FormatNotSupported);
  EXPECT_EQ(converter, nullptr);
  uint32_t size = sizeof object;
  EXPECT_EQ(AudioConverterGetProperty(nullptr, 0, &size, &object), kAudioConverterErr_InvalidConverter);
  EXPECT_EQ(AudioConverterSetProperty(nullptr, 0, size, &object), kAudioConverterErr_InvalidConverter);
  EXPECT_EQ(AudioConverterDispose(nullptr), kAudioConverterErr_InvalidConverter);
  EXPECT_EQ(AudioDeviceGetProperty(1, 0, false, 0, &size, &object), kAudioDeviceErr_BadDevice);
  EXPECT_TRUE(size == sizeof object && object == 0);
}

}  // namespace
