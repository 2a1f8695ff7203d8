// Serial work queues, as their own file and the timer sources share them.
//
// Representation: a list of waiting calls under the queue's lock, and at most one thread that runs them
// (isRunning). While calls wait and nobody runs, one task of the queue is with the pool (isScheduled); it
// takes all that waits, runs it without the lock, and asks for another turn when more has come, so that
// queues share the pool's threads fairly. The task holds a reference to the queue.
//
// A thread that waits in BRWorkQueueSync runs the calls itself when nobody else does. So it does not matter
// to it whether the pool has a thread to spare, and queues that wait for each other in a chain cannot use the
// pool up.
#ifndef BEDRA_SRC_WORK_QUEUE_HPP
#define BEDRA_SRC_WORK_QUEUE_HPP

#include <bedra/work_queue.h>
#include <bedra/object.hpp>

#include <condition_variable>
#include <mutex>

#include "src/work_pool.hpp"

namespace br {

enum class WorkCallOwner : uint8_t {
  kQueue,          // allocated, and freed when it has run
  kWaitingThread,  // in BRWorkQueueSync
  kFunction,       // may be queued again, or be gone, once the function has begun
};

struct WorkCall {
  WorkCall* next;
  BRWorkFunction function;
  void* context;
  WorkCallOwner owner;
  bool isDone;  // for the thread that waits
};

}  // namespace br

struct BRWorkQueue : BRObject {
  static constexpr const char* className = "BRWorkQueue";

  BRStringRef copyDescription() const;
  const char* label() const { return reinterpret_cast<const char*>(this + 1); }

  // The call stands in the queue until its function begins.
  void add(br::WorkCall* call);
  // Makes the calling thread the one that runs the queue's calls, if nothing runs or waits. It then runs one
  // with runTaken, which ends this; the caller holds a reference to the queue.
  bool takeIdle();
  void runTaken(br::WorkCall* call);

  br::WorkCall* takeFirst();
  br::WorkCall* takeAll();
  void append(br::WorkCall* call);
  void run(br::WorkCall* call);
  void stopRunning(std::unique_lock<std::mutex>& held, br::WorkPoolTurn turn);
  void schedule(br::WorkPoolTurn turn);
  static void runFromPool(void* context);

  std::mutex lock;
  std::condition_variable changed;  // a call that a thread waits for has run, or nobody runs any more
  br::WorkCall* first = nullptr;    // guarded by lock, as all that follows
  br::WorkCall** last = &first;
  uint32_t waitingThreads = 0;
  bool isScheduled = false;
  bool isRunning = false;
  br::WorkPoolRoom room;  // of the task with the pool

  size_t waitingTimers = 0;  // for the timer sources, under their lock
};

#endif
