#include "src/work_queue.hpp"

#include <bedra/allocator.h>
#include <bedra/string.h>

#include <cstring>

using br::WorkCall;
using br::WorkCallOwner;

namespace {

// The queues whose calls this thread is running, innermost first.
struct RunningCall {
  BRWorkQueueRef queue;
  RunningCall* outer;
};
constinit thread_local RunningCall* runningCalls = nullptr;

}  // namespace

BRStringRef BRWorkQueue::copyDescription() const {
  return BRStringCreateWithFormat(nullptr, "<BRWorkQueue %p \"%s\">", static_cast<const void*>(this),
                                  label());
}

void BRWorkQueue::append(WorkCall* call) {
  call->next = nullptr;
  *last = call;
  last = &call->next;
}

void BRWorkQueue::add(WorkCall* call) {
  std::unique_lock held(lock);
  append(call);
  if (isScheduled || isRunning) return;
  isScheduled = true;
  BRRetain(this);  // as soon as the lock is given up the call may run, and let go of the queue
  held.unlock();
  br::runOnWorkPool(runFromPool, this, room, br::WorkPoolTurn::kSoon);
}

bool BRWorkQueue::takeIdle() {
  std::lock_guard guard(lock);
  if (isRunning || first) return false;
  return isRunning = true;
}

void BRWorkQueue::runTaken(WorkCall* call) {
  run(call);
  std::unique_lock held(lock);
  stopRunning(held, br::WorkPoolTurn::kSoon);
}

WorkCall* BRWorkQueue::takeFirst() {
  WorkCall* call = first;
  first = call->next;
  if (!first) last = &first;
  return call;
}

WorkCall* BRWorkQueue::takeAll() {
  WorkCall* all = first;
  first = nullptr;
  last = &first;
  return all;
}

// Without the lock, by the thread that runs.
void BRWorkQueue::run(WorkCall* call) {
  const WorkCallOwner owner = call->owner;
  RunningCall running{this, runningCalls};
  runningCalls = &running;
  call->function(call->context);
  runningCalls = running.outer;
  if (owner == WorkCallOwner::kQueue) BRAllocatorDeallocate(BRGetAllocator(this), call);
  if (owner != WorkCallOwner::kWaitingThread) return;
  std::lock_guard guard(lock);
  call->isDone = true;  // the record may be gone once the lock is given up
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
    WorkCall* call = queue->takeAll();
    held.unlock();
    while (call) {
      WorkCall* next = call->next;
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
  auto* call = static_cast<WorkCall*>(BRAllocatorAllocate(BRGetAllocator(queue), sizeof(WorkCall)));
  if (!call) return false;
  *call = {nullptr, function, context, WorkCallOwner::kQueue, false};
  queue->add(call);
  return true;
}

bool BRWorkQueueSync(BRWorkQueueRef queue, BRWorkFunction function, void* context) {
  if (!queue || !function || BRWorkQueueIsCurrent(queue)) return false;
  WorkCall call{nullptr, function, context, WorkCallOwner::kWaitingThread, false};
  BRRetain(queue);
  std::unique_lock held(queue->lock);
  queue->append(&call);
  ++queue->waitingThreads;
  while (!call.isDone && queue->isRunning) queue->changed.wait(held);
  --queue->waitingThreads;
  if (!call.isDone) {
    queue->isRunning = true;
    while (!call.isDone) {
      WorkCall* next = queue->takeFirst();
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
