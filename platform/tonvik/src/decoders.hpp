// Which formats the libavcodec that is there can decode.
#ifndef TONVIK_DECODERS_HPP
#define TONVIK_DECODERS_HPP

#include <tonvik/audio_types.h>

#include <cstddef>

namespace tonvik {

bool isDecodable(AudioFormatID formatID);

inline constexpr size_t kMaxDecodableFormats = 64;

// Writes them in ascending order and returns their number.
size_t listDecodableFormats(AudioFormatID (&formatIDs)[kMaxDecodableFormats]);

}  // namespace tonvik

#endif
