// Making audio descriptions in tests, and choosing the audio format service of a test program.
#ifndef TESTS_FORMATS_AUDIO_SUPPORT_HPP
#define TESTS_FORMATS_AUDIO_SUPPORT_HPP

#include <kiv/audio_format_description.h>
#include <kiv/error.h>

#include "tests/support/test.hpp"

namespace test {

using Audio = br::Ref<PVFormatDescription>;
using Bytes = std::vector<uint8_t>;

// The service is looked for once in a process: a program says before main where.
inline bool useTonvikAt(const char* path) { return setenv("PEVRIN_TONVIK_PATH", path, 1) == 0; }

constexpr AudioStreamBasicDescription kStereoPCM{44100, kAudioFormatLinearPCM, 12, 4, 1, 4, 2, 16, 0};
constexpr AudioStreamBasicDescription kStereoAAC{44100, kAudioFormatMPEG4AAC, 0, 0, 1024, 0, 2, 0, 0};

// A layout with what follows it. None: no layout.
struct LayoutBytes {
  LayoutBytes() = default;
  LayoutBytes(AudioChannelLayoutTag tag, AudioChannelBitmap bitmap = 0) : words{tag, bitmap, 0} {}
  static LayoutBytes of(std::initializer_list<AudioChannelLabel> labels) {
    LayoutBytes layout(0u);
    for (AudioChannelLabel label : labels) layout.words.insert(layout.words.end(), {label, 0, 0, 0, 0});
    layout.words[2] = static_cast<uint32_t>(labels.size());
    return layout;
  }
  const AudioChannelLayout* get() const {
    return words.empty() ? nullptr : reinterpret_cast<const AudioChannelLayout*>(words.data());
  }
  size_t size() const { return words.size() * sizeof words[0]; }

  std::vector<uint32_t> words;
};

inline Audio makeAudio(const AudioStreamBasicDescription& description, const LayoutBytes& layout = {},
                       const Bytes& cookie = {}, BRAllocatorRef allocator = nullptr) {
  Audio audio;
  EXPECT_EQ(PVAudioFormatDescriptionCreate(allocator, &description, layout.size(), layout.get(),
                                           cookie.size(), cookie.data(), nullptr, audio.out()),
            0);
  return audio;
}

// Counts the errors signalled since it was made.
class ErrorsSince {
 public:
  uint64_t count() const { return KivGetErrorCount() - before_; }

 private:
  uint64_t before_ = KivGetErrorCount();
};

}  // namespace test

#endif
