// The threads that work queues share: a pool that is made on first use and lives as long as the process.
#ifndef BEDRA_SRC_WORK_POOL_HPP
#define BEDRA_SRC_WORK_POOL_HPP

#include <cstddef>

namespace br {

// Room for what the pool keeps of a task. It is free again when the task starts.
struct alignas(16) WorkPoolRoom {
  char bytes[96];
};

enum class WorkPoolTurn {
  kSoon,      // wakes a thread if one sleeps
  kNextTurn,  // asked by a task of the pool as the last thing it does: its thread goes on with what is due
};

// Runs task(context) on one of the pool's threads. Never fails: the room serves for the pool's own record.
void runOnWorkPool(void (*task)(void*), void* context, WorkPoolRoom& room, WorkPoolTurn turn);

// One more thread for the pool, to make up for a task that waits for ever. False when the system refuses.
bool addWorkPoolThread();

}  // namespace br

#endif
