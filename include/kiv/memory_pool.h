/* Memory pools, for sibling media layers: what a pool holds and what it has done.
 *
 *   KivMemoryPoolStatistics now;
 *   if (KivMemoryPoolGetStatistics(pool, &now) == 0 && now.systemAllocations > 2 * now.reuses) ... // sizes vary
 */
#ifndef KIV_MEMORY_POOL_H
#define KIV_MEMORY_POOL_H

#include <pevrin/memory_pool.h>

PV_BEGIN_DECLS

/* Bytes are those of whole pages. The last three count from the creation of the pool. */
typedef struct KivMemoryPoolStatistics {
  uint64_t blocksInUse;
  uint64_t blocksForReuse; /* freed, and waiting */
  uint64_t bytesInUse;
  uint64_t bytesForReuse;
  uint64_t reuses;            /* requests met by a block that waited */
  uint64_t systemAllocations; /* blocks that the system gave */
  uint64_t systemReleases;    /* blocks that went back to it */
} KivMemoryPoolStatistics;

/* Tells how the pool stands; all numbers are of one moment. Nothing changes: blocks that are due stay until the next
 * allocation or free. Any thread.
 * kPVBaseObjectError_ParamErr: pool or statisticsOut is NULL. */
PV_EXPORT PVStatus KivMemoryPoolGetStatistics(PVMemoryPoolRef pool, KivMemoryPoolStatistics *statisticsOut);

PV_END_DECLS

#endif
