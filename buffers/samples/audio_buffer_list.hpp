// How the data of an audio sample buffer are divided among the buffers of an audio buffer list.
#ifndef PEVRIN_BUFFERS_SAMPLES_AUDIO_BUFFER_LIST_HPP
#define PEVRIN_BUFFERS_SAMPLES_AUDIO_BUFFER_LIST_HPP

#include "buffers/samples/sample_buffer.hpp"

namespace pv::sample {

inline bool isPlanar(const AudioStreamBasicDescription& stream) {
  return stream.formatID == kAudioFormatLinearPCM && (stream.formatFlags & kAudioFormatFlagIsNonInterleaved);
}

// One buffer with all channels, or one for each (none of 0 channels).
struct ListLayout {
  explicit ListLayout(const AudioStreamBasicDescription& stream)
      : buffers(isPlanar(stream) ? stream.channelsPerFrame : 1),
        channelsOfEach(isPlanar(stream) ? 1 : stream.channelsPerFrame) {}

  size_t listBytes() const { return sizeof(AudioBufferList) + (size_t{buffers} - 1) * sizeof(AudioBuffer); }

  uint32_t buffers;
  uint32_t channelsOfEach;
};

// The buffers of a list that says it has that many.
template <class List>
auto buffersOf(List* list) {
  return std::span(list->buffers, list->numberBuffers);
}

}  // namespace pv::sample

#endif
