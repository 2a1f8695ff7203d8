// Serial work queues.
//
// Representation: a list of waiting calls under the queue's lock, and at most one thread that runs them
// (isRunning). While calls wait and nobody runs, one task of the queue is with the pool (isScheduled); it
// takes all that waits, runs it without the lock, and asks for another turn when more has come, so that
// queues share the pool's threads fairly. The task holds a reference to the queue.
//
// A thread that waits in BRWorkQueueSync runs the calls itself when nobody else does. So it does not matter
// to it whether the pool has a thread to spare, and queues that wait for each other in a chain cannot use the
// pool up.
#include <bedra/allocator.h>
#include <bedra/string.h>
#include <bedra/work_queue.h>
#include <bedra/object.hpp>

#include <condition_variable>
#include <cstring>
#include <mutex>

#include "src/work_pool.hpp"

namespace {

struct Call {
  Call* next;
  BRWorkFunction function;
  void* context;
  bool* done;  // of a thread that waits for the call and owns this record; null when the queue owns it
};

// The queues whose calls this thread is running, innermost first.
struct RunningCall {
  BRWorkQueueRef queue;
  RunningCall* outer;
};
constinit thread_local RunningCall* runningCalls = nullptr;

}  // namespace

struct BRWorkQueue : BRObject {
  static constexpr const char* className = "BRWorkQueue";

  BRStringRef copyDescription() const;
  const char* label() const { return reinterpret_cast<const char*>(this + 1); }

  bool enqueue(Call* call);
  Call* takeFirst();
  Call* takeAll();
  void run(Call* call);
  void stopRunning(std::unique_lock<std::mutex>& held, br::WorkPoolTurn turn);
  void schedule(br::WorkPoolTurn turn);
  static void runFromPool(void* context);

  std::mutex lock;
  std::condition_variable changed;  // a call that a thread waits for has run, or nobody runs any more
  Call* first = nullptr;            // guarded by lock, as all that follows
  Call** last = &first;
  uint32_t waitingThreads = 0;
  bool isScheduled = false;
  bool isRunning = false;
  br::WorkPoolRoom room;  // of the task with the pool
};

BRStringRef BRWorkQueue::copyDescription() const {
  return BRStringCreateWithFormat(nullptr, "<BRWorkQueue %p \"%s\">", static_cast<const void*>(this),
                                  label());
}

// True when the caller has to schedule the queue.
bool BRWorkQueue::enqueue(Call* call) {
  call->next = nullptr;
  *last = call;
  last = &call->next;
  if (isScheduled || isRunning) return false;
  isScheduled = true;
  return true;
}

Call* BRWorkQueue::takeFirst() {
  Call* call = first;
  first = call->next;
  if (!first) last = &first;
  return call;
}

Call* BRWorkQueue::takeAll() {
  Call* all = first;
  first = nullptr;
  last = &first;
  return all;
}

// Without the lock, by the thread that runs.
void BRWorkQueue::run(Call* call) {
  RunningCall running{this, runningCalls};
  runningCalls = &running;
  call->function(call->context);
  runningCalls = running.outer;
  if (!call->done) {
    BRAllocatorDeallocate(BRGetAllocator(this), call);
    return;
  }
  std::lock_guard guard(lock);
  *call->done = true;  // the record may be gone once the lock is given up
  changed.notify_all();
}

// Ends this thread's turn; gives up the lock.
void BRWorkQueue::stopRunning(std::unique_lock<std::mutex>& held, br::WorkPoolTurn turn) {
  isRunning = false;
  const bool more = first && !isScheduled;
  if (more) isScheduled = true;
  if (waitingThreads != 0) changed.notify_all();
  held.unlock();
  if (more) schedule(turn);
}

void BRWorkQueue::schedule(br::WorkPoolTurn turn) {
  BRRetain(this);
  br::runOnWorkPool(runFromPool, this, room, turn);
}

void BRWorkQueue::runFromPool(void* context) {
  auto* queue = static_cast<BRWorkQueue*>(context);
  std::unique_lock held(queue->lock);
  queue->isScheduled = false;
  // A thread in BRWorkQueueSync may have come first.
  if (!queue->isRunning && queue->first) {
    queue->isRunning = true;
    Call* call = queue->takeAll();
    held.unlock();
    while (call) {
      Call* next = call->next;
      queue->run(call);
      call = next;
    }
    held.lock();
    queue->stopRunning(held, br::WorkPoolTurn::kNextTurn);
  } else {
    held.unlock();
  }
  BRRelease(queue);
}

BRTypeID BRWorkQueueGetTypeID(void) { return br::typeID<BRWorkQueue>(); }

BRWorkQueueRef BRWorkQueueCreate(BRAllocatorRef allocator, const char* label) {
  if (!label) label = "";
  const size_t labelBytes = std::strlen(label) + 1;
  BRWorkQueue* queue = br::create<BRWorkQueue>(allocator, labelBytes);
  if (queue) std::memcpy(br::extra<char>(queue), label, labelBytes);
  return queue;
}

const char* BRWorkQueueGetLabel(BRWorkQueueRef queue) { return queue ? queue->label() : nullptr; }

bool BRWorkQueueAsync(BRWorkQueueRef queue, BRWorkFunction function, void* context) {
  if (!queue || !function) return false;
  auto* call = static_cast<Call*>(BRAllocatorAllocate(BRGetAllocator(queue), sizeof(Call)));
  if (!call) return false;
  *call = {nullptr, function, context, nullptr};
  std::unique_lock held(queue->lock);
  const bool mustSchedule = queue->enqueue(call);
  held.unlock();
  if (mustSchedule) queue->schedule(br::WorkPoolTurn::kSoon);
  return true;
}

bool BRWorkQueueSync(BRWorkQueueRef queue, BRWorkFunction function, void* context) {
  if (!queue || !function || BRWorkQueueIsCurrent(queue)) return false;
  bool done = false;
  Call call{nullptr, function, context, &done};
  BRRetain(queue);
  std::unique_lock held(queue->lock);
  *queue->last = &call;
  queue->last = &call.next;
  ++queue->waitingThreads;
  while (!done && queue->isRunning) queue->changed.wait(held);
  --queue->waitingThreads;
  if (!done) {
    queue->isRunning = true;
    while (!done) {
      Call* next = queue->takeFirst();
      held.unlock();
      queue->run(next);
      held.lock();
    }
    queue->stopRunning(held, br::WorkPoolTurn::kSoon);
  } else {
    held.unlock();
  }
  BRRelease(queue);
  return true;
}

bool BRWorkQueueIsCurrent(BRWorkQueueRef queue) {
  for (const RunningCall* running = runningCalls; running; running = running->outer)
    if (running->queue == queue) return true;
  return false;
}
