// What the files that walk chains need of transforms beyond <kiv/sync.h>.
#ifndef PEVRIN_CLOCKS_SYNC_TRANSFORM_HPP
#define PEVRIN_CLOCKS_SYNC_TRANSFORM_HPP

#include <kiv/sync.h>

namespace pv {

// Where every walk starts.
inline constexpr PVSyncTransform kIdentityTransform = {
    {0, 1, kPVTimeFlags_Valid, 0}, 1.0, {0, 1, kPVTimeFlags_Valid, 0}};

}  // namespace pv

#endif
