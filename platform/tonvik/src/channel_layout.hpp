// What channel layouts mean: the channels, in their order.
#ifndef TONVIK_CHANNEL_LAYOUT_HPP
#define TONVIK_CHANNEL_LAYOUT_HPP

#include <tonvik/audio_types.h>

namespace tonvik {

bool areEquivalent(const AudioChannelLayout& a, const AudioChannelLayout& b);

// Whether the layout tells its channels, and has any.
bool hasChannels(const AudioChannelLayout& layout);

// A name for people; null when memory runs out. The layout has channels.
BRStringRef copyName(const AudioChannelLayout& layout);

}  // namespace tonvik

#endif
