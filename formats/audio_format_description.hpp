// What audio descriptions keep in derived storage.
#ifndef PEVRIN_FORMATS_AUDIO_FORMAT_DESCRIPTION_HPP
#define PEVRIN_FORMATS_AUDIO_FORMAT_DESCRIPTION_HPP

#include <kiv/audio_format_description.h>

#include <atomic>
#include <span>

namespace pv::audio {

// A channel layout and its size; none is null and 0.
struct Layout {
  const AudioChannelLayout* header = nullptr;
  size_t sizeBytes = 0;

  // Whether all that it declares is there. Only then may anybody look beyond the tag.
  bool isWhole() const;
  uint32_t channelCount() const;
};

// The ways to decode a stream, in one block: this, the items, and for each of them a layout with its tag
// alone.
struct FormatList {
  size_t count;
  AudioChannelLayout* layouts;

  AudioFormatListItem* items() { return reinterpret_cast<AudioFormatListItem*>(this + 1); }
  const AudioFormatListItem* items() const { return reinterpret_cast<const AudioFormatListItem*>(this + 1); }
};

struct Storage {
  AudioStreamBasicDescription description;
  Layout layout;
  std::span<const uint8_t> cookie;
  // Null until somebody asks; the first list that is put here stays.
  std::atomic<FormatList*> formatList;
};
// A new description's storage is zeros, and one that nobody fills remains so.
static_assert(std::atomic<FormatList*>::is_always_lock_free);

// An audio description's storage. Null, and signalled, for null and other media types.
Storage* storageOf(PVFormatDescriptionRef description, const char* file = __builtin_FILE(),
                   int32_t line = __builtin_LINE(), const char* function = __builtin_FUNCTION());

// The format list, made now if need be. Null, and signalled, when memory runs out.
const FormatList* formatListOf(PVFormatDescriptionRef description, Storage& storage);

// A new string: the lines of an audio description's text.
BRStringRef copyDebugDescription(PVFormatDescriptionRef description);

}  // namespace pv::audio

#endif
