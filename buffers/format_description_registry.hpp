// The registry of media types: one entry each, added once and never changed or taken away.
#ifndef PEVRIN_BUFFERS_FORMAT_DESCRIPTION_REGISTRY_HPP
#define PEVRIN_BUFFERS_FORMAT_DESCRIPTION_REGISTRY_HPP

#include <kiv/format_description.h>

namespace pv::format {

using Entry = KivDerivedFormatDescriptionCallbacks;

// The entry of exactly this media type, or null. Takes no lock.
const Entry* findEntry(PVMediaType mediaType);

// The entry for new descriptions of a media type: its own, registered now if it is a built-in one, or else
// the generic one. Signals what goes wrong.
PVStatus entryForCreation(PVMediaType mediaType, const Entry** entryOut);

}  // namespace pv::format

#endif
