// What the files about video format descriptions share.
#ifndef PEVRIN_FORMATS_VIDEO_FORMAT_DESCRIPTION_HPP
#define PEVRIN_FORMATS_VIDEO_FORMAT_DESCRIPTION_HPP

#include <bedra/data.h>
#include <pevrin/video_format_description.h>

#include <span>

namespace pv::video {

// The derived storage.
struct Storage {
  PVVideoCodecType codecType;
  int32_t width;
  int32_t height;
};

// Of a video description, else null.
const Storage* storageOf(PVFormatDescriptionRef description);

// The keys that image buffers and video descriptions share, in their fixed order.
std::span<const BRStringRef* const> keysCommonWithImageBuffers();

// The first payload of an atom among the extensions; null when there is none that is data.
BRDataRef firstAtom(BRDictionaryRef extensions, BRStringRef atomKey);

// True for the codec types whose parameter sets are known.
bool hasParameterSets(PVVideoCodecType codecType);

}  // namespace pv::video

#endif
