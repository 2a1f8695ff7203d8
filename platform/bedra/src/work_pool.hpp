// The threads that work queues share: a pool that is made on first use and lives as long as the process.
#ifndef BEDRA_SRC_WORK_POOL_HPP
#define BEDRA_SRC_WORK_POOL_HPP

#include <cstddef>

namespace br {

// Room for what the pool keeps of a task. It is free again when the task starts.
struct alignas(16) WorkPoolRoom {
  char bytes[96];
};

// Runs task(context) on one of the pool's threads. Never fails: the room serves for the pool's own record.
void runOnWorkPool(void (*task)(void*), void* context, WorkPoolRoom& room);

}  // namespace br

#endif
