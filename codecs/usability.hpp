// What the usability information of H.264 and HEVC has in common (Annex E of either): the syntax from
// aspect_ratio_info_present_flag to chroma_sample_loc_type_bottom_field, and the answers that come from it.
#ifndef PEVRIN_CODECS_USABILITY_HPP
#define PEVRIN_CODECS_USABILITY_HPP

#include <kiv/bridge.h>

#include "runtime/bit_reader.hpp"

namespace pv::nal {

// What the standards infer of a set without usability information.
void inferUsability(KivVideoUsability& vui);

// Reads the common beginning; what is not coded gets the value that the standards infer. A part that cannot
// be read to its end, or stands behind one, counts as not present.
void readUsabilityBeginning(BitReader& reader, KivVideoUsability& vui);

// num_units_in_tick and time_scale, which follow at a different place in each standard.
void readTiming(BitReader& reader, KivVideoUsability& vui);

// The part was the last one read, unless it could not be.
void endPart(const BitReader& reader, KivVideoUsability& vui, uint8_t part);

// The questions. Each answers, signalled, kKivBridgeError_InvalidParameter when there is no usability
// information (vuiPresent false) or not that part of it, and kKivBridgeError_UnreadableData when that part
// could not be read; a null output is not written.
PVStatus aspectRatio(bool vuiPresent, const KivVideoUsability& vui, uint32_t* horizontalOut,
                     uint32_t* verticalOut);
PVStatus colourDescription(bool vuiPresent, const KivVideoUsability& vui, uint32_t* primariesOut,
                           uint32_t* transferOut, uint32_t* matrixOut);
PVStatus fullRange(bool vuiPresent, const KivVideoUsability& vui, bool* fullRangeOut);
PVStatus chromaLocation(bool vuiPresent, const KivVideoUsability& vui, uint32_t* topOut, uint32_t* bottomOut);
// Reads as "not there" when either number is 0. The output is required.
PVStatus timing(bool vuiPresent, const KivVideoUsability& vui, double* ticksPerSecondOut);

}  // namespace pv::nal

#endif
