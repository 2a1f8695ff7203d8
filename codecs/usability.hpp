// What the usability information of H.264 and HEVC has in common (Annex E of either): the syntax from
// aspect_ratio_info_present_flag to chroma_sample_loc_type_bottom_field, and the answers that come from it.
#ifndef PEVRIN_CODECS_USABILITY_HPP
#define PEVRIN_CODECS_USABILITY_HPP

#include <kiv/bridge.h>

#include "runtime/bit_reader.hpp"

namespace pv::nal {

// Reads the common beginning; what is not coded gets the value that the standards infer.
void readUsabilityBeginning(BitReader& reader, KivVideoUsability& vui);

// num_units_in_tick and time_scale, which follow at a different place in each standard.
void readTiming(BitReader& reader, KivVideoUsability& vui);

// The questions. Each answers kKivBridgeError_InvalidParameter, signalled, when there is no usability
// information (vuiPresent false) or not that part of it; a null output is not written.
PVStatus aspectRatio(bool vuiPresent, const KivVideoUsability& vui, uint32_t* horizontalOut,
                     uint32_t* verticalOut);
PVStatus colourDescription(bool vuiPresent, const KivVideoUsability& vui, uint32_t* primariesOut,
                           uint32_t* transferOut, uint32_t* matrixOut);
PVStatus fullRange(bool vuiPresent, const KivVideoUsability& vui, bool* fullRangeOut);
PVStatus chromaLocation(bool vuiPresent, const KivVideoUsability& vui, uint32_t* topOut, uint32_t* bottomOut);

}  // namespace pv::nal

#endif
