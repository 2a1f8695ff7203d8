#include "tests/formats/with_scripted_service/scripted_tonvik.hpp"

#include <tonvik/audio_converter.h>

#include <algorithm>
#include <cstring>

namespace test {

ScriptedTonvik& scriptedTonvik() {
  static ScriptedTonvik script;
  return script;
}

ScriptedAnswer* ScriptedTonvik::answerTo(AudioFormatPropertyID property) {
  switch (property) {
    case kAudioFormatProperty_FormatList:
      return &formatList;
    case kAudioFormatProperty_FirstPlayableFormatFromList:
      return &firstPlayable;
    case kAudioFormatProperty_DecodeFormatIDs:
      return &decodable;
    case kAudioFormatProperty_AreChannelLayoutsEquivalent:
      return &equivalence;
    case kAudioFormatProperty_ChannelLayoutName:
      return &name;
    default:
      return nullptr;
  }
}

}  // namespace test

using test::scriptedTonvik;

AudioStatus AudioFormatGetPropertyInfo(AudioFormatPropertyID property, uint32_t, const void*,
                                       uint32_t* sizeOut) {
  const test::ScriptedAnswer& answer = *scriptedTonvik().answerTo(property);
  *sizeOut = answer.toldSize;
  return answer.infoStatus;
}

#ifndef INCOMPLETE
AudioStatus AudioFormatGetProperty(AudioFormatPropertyID property, uint32_t specifierSize,
                                   const void* specifier, uint32_t* ioSize, void* valueOut) {
  test::ScriptedTonvik& script = scriptedTonvik();
  const test::ScriptedAnswer& answer = *script.answerTo(property);
  if (property == kAudioFormatProperty_FormatList) {
    ++script.listQuestions;
  } else {
    const auto* bytes = static_cast<const uint8_t*>(specifier);
    script.lastSpecifier.assign(bytes, bytes + specifierSize);
  }
  if (answer.status == 0) {
    std::memcpy(valueOut, answer.value.data(), std::min<size_t>(*ioSize, answer.value.size()));
    *ioSize = static_cast<uint32_t>(answer.value.size());
  }
  return answer.status;
}
#endif

AudioStatus AudioConverterNew(const AudioStreamBasicDescription*, const AudioStreamBasicDescription*,
                              AudioConverterRef*) {
  return kAudioConverterErr_FormatNotSupported;
}
AudioStatus AudioConverterDispose(AudioConverterRef) { return kAudioConverterErr_InvalidConverter; }
AudioStatus AudioConverterGetProperty(AudioConverterRef, AudioConverterPropertyID, uint32_t*, void*) {
  return kAudioConverterErr_InvalidConverter;
}
AudioStatus AudioConverterSetProperty(AudioConverterRef, AudioConverterPropertyID, uint32_t, const void*) {
  return kAudioConverterErr_InvalidConverter;
}
AudioStatus AudioDeviceGetProperty(uint32_t, uint32_t, bool, uint32_t, uint32_t*, void*) {
  return kAudioDeviceErr_BadDevice;
}
