// What timecode descriptions and their records share.
#ifndef PEVRIN_FORMATS_TIMECODE_FORMAT_DESCRIPTION_HPP
#define PEVRIN_FORMATS_TIMECODE_FORMAT_DESCRIPTION_HPP

#include <pevrin/timecode_format_description.h>

namespace pv {

// Whether it is one of the four subtypes.
bool isTimeCodeFormatType(PVFourCharCode type);

}  // namespace pv

#endif
