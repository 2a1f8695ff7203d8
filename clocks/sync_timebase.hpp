// What the sync functions ask of timebases, in a table that the timebase type hands in when it registers
// itself: so clocks and sync stand without timebases, which stand on them.
//
// A timebase is an object of the table's type. No object of it exists before the table is handed in.
#ifndef PEVRIN_CLOCKS_SYNC_TIMEBASE_HPP
#define PEVRIN_CLOCKS_SYNC_TIMEBASE_HPP

#include <kiv/sync.h>

namespace pv {

// All take a timebase of the type, never null, and look through read-only ones at their targets. What they
// fail with they have signalled.
struct SyncTimebases {
  BRTypeID typeID;
  PVTime (*getTime)(BRTypeRef timebase);
  // The end of the chain of masters, retained, and the number of links to it; null when there is none.
  PVClockRef (*copyUltimateMasterClockAndHeight)(BRTypeRef timebase, int64_t* heightOut);
  // The master, a timebase or a clock, retained.
  BRTypeRef (*copyMaster)(BRTypeRef timebase);
  PVStatus (*getTransformRelativeToUltimateMasterClock)(BRTypeRef timebase, KivSyncDirection direction,
                                                        PVSyncTransform* transformOut);
  // To the master that is `height` links up, at least one.
  PVStatus (*getTransformRelativeToMasterAtHeight)(BRTypeRef timebase, int64_t height,
                                                   KivSyncDirection direction, PVSyncTransform* transformOut);
};

// Once, before the first timebase is made; the table lives as long as the process.
void setSyncTimebases(const SyncTimebases* timebases);

}  // namespace pv

#endif
