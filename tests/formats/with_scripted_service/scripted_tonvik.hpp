// An audio format service that answers as a test tells it to.
#ifndef TESTS_FORMATS_SCRIPTED_TONVIK_HPP
#define TESTS_FORMATS_SCRIPTED_TONVIK_HPP

#include <tonvik/audio_format.h>

#include <atomic>
#include <string>
#include <vector>

namespace test {

// One answer: what is told of its size, the statuses of both questions, and the bytes that are given.
struct ScriptedAnswer {
  AudioStatus infoStatus = kAudioFormatUnsupportedPropertyError;
  uint32_t toldSize = 0;
  AudioStatus status = kAudioFormatUnsupportedPropertyError;
  std::vector<uint8_t> value;

  ScriptedAnswer() = default;
  explicit ScriptedAnswer(AudioStatus failure) : infoStatus(failure), status(failure) {}
  template <class T>
  static ScriptedAnswer of(const std::vector<T>& elements) {
    ScriptedAnswer answer(0);
    const auto* bytes = reinterpret_cast<const uint8_t*>(elements.data());
    answer.value.assign(bytes, bytes + elements.size() * sizeof(T));
    answer.toldSize = static_cast<uint32_t>(answer.value.size());
    return answer;
  }
};

struct ScriptedTonvik {
  ScriptedAnswer formatList, firstPlayable, decodable, equivalence, name;
  std::vector<uint8_t> lastSpecifier;  // of the last question for a value, outside the Threads tests
  std::atomic<int> listQuestions{0};

  ScriptedAnswer* answerTo(AudioFormatPropertyID property);
};

BR_EXPORT ScriptedTonvik& scriptedTonvik();

}  // namespace test

#endif
