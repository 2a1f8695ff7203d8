// Timer sources.
//
// Representation: all sources that are set wait in one heap, by the latest time at which each is to fire. One
// thread of the work queues' pool, the watcher, sleeps on the kernel's timer until the first of these. A
// source whose time has come leaves the heap and gives its call to its queue; when that call runs it counts
// the ticks that have passed and, if it repeats, goes back into the heap. So a queue that is busy costs no
// wake-ups.
//
// The watcher runs the first call that is due itself when the queue is idle, which saves waking another
// thread. Meanwhile nobody watches, if that can do no harm: when only sources of that same queue are waiting,
// none of which could run. Otherwise, and as soon as another source is set, the watch is handed to another
// thread of the pool, and the former watcher is a plain thread of the pool again. watchNumber tells it so.
//
// A source is retained while it is in the heap, and by its call while that is queued.
//
// Lock order: the one lock of all sources before a queue's lock. No handler runs with either held.
#include <bedra/time.h>
#include <bedra/timer_source.h>
#include <bedra/ref.hpp>

#include <algorithm>

#include "src/timer_descriptor.hpp"
#include "src/timer_heap.hpp"
#include "src/work_queue.hpp"

using br::kNeverNs;

struct BRTimerSource : BRObject, br::TimerNode {
  static constexpr const char* className = "BRTimerSource";

  BRTimerSource(BRWorkQueueRef target, BRTimerSourceHandler function, const BRTimerSourceContext& copied)
      : queue(br::Ref<BRWorkQueue>::retain(target)),
        handler(function),
        context(copied),
        call{nullptr, run, this, br::WorkCallOwner::kFunction, false} {}
  ~BRTimerSource() { releaseInfo(); }

  static void run(void* context);
  void releaseInfo() {
    if (std::exchange(ownsInfo, false) && context.release) context.release(context.info);
  }
  uint64_t takeFires();

  const br::Ref<BRWorkQueue> queue;
  const BRTimerSourceHandler handler;
  BRTimerSourceContext context;
  br::WorkCall call;
  bool ownsInfo = true;
  // Guarded by the lock of all sources:
  int64_t dueNs = kNeverNs;
  int64_t intervalNs = 0;  // 0: fires once
  int64_t leewayNs = 0;
  bool isWaiting = false;  // in the heap
  bool isDue = false;      // as it is set now; its call is queued
  bool isQueued = false;   // the call, though it may find that nothing is due any more
  bool isRunning = false;  // the handler
  bool isCancelled = false;
};

namespace {

int64_t nowMonotonicNs() { return static_cast<int64_t>(BRHostTimeGetUptimeNs()); }

int64_t sumNs(int64_t a, int64_t b) {
  int64_t sum;
  return __builtin_add_overflow(a, b, &sum) ? kNeverNs : sum;
}

struct TimerService {
  bool start();
  void insert(BRTimerSourceRef source);
  void remove(BRTimerSourceRef source);
  br::TimerNode* takeDue();
  void appointWatcher();
  void sleep(std::unique_lock<std::mutex>& held);
  void watch();

  std::mutex lock;
  // Guarded by lock:
  br::TimerHeap waiting;
  size_t waitingCount = 0;
  uint64_t lastOrder = 0;
  br::TimerDescriptor descriptor;
  int64_t wakesNs = kNeverNs;  // when the watcher will look by itself
  bool isWatcherAsleep = false;
  BRWorkQueueRef watcherQueue = nullptr;  // whose call the watcher runs, to look again after it
  uint64_t watchNumber = 0;               // grows each time a new watcher is appointed
  br::WorkPoolRoom room;                  // of the watcher to be
  bool hasStarted = false;
};

// Lives as long as the process, as its thread does.
TimerService& service() {
  static TimerService& made = *new TimerService;
  return made;
}

// False when there is no descriptor or no thread to be had.
bool TimerService::start() {
  std::lock_guard guard(lock);
  if (hasStarted) return true;
  if (!descriptor.open() || !br::addWorkPoolThread()) return false;
  hasStarted = true;
  appointWatcher();
  return true;
}

// The source is not in the heap; gives it a reference.
void TimerService::insert(BRTimerSourceRef source) {
  BRRetain(source);
  source->isWaiting = true;
  source->timeNs = sumNs(source->dueNs, source->leewayNs);
  source->order = ++lastOrder;
  waiting.insert(source);
  ++waitingCount;
  ++source->queue->waitingTimers;
  if (isWatcherAsleep) {
    if (source->timeNs >= wakesNs) return;
    wakesNs = source->timeNs;
    descriptor.set(wakesNs);
  } else if (watcherQueue && watcherQueue != source->queue.get()) {
    appointWatcher();
  }
}

// The heap's reference is now the caller's.
void TimerService::remove(BRTimerSourceRef source) {
  waiting.remove(source);
  source->isWaiting = false;
  --waitingCount;
  --source->queue->waitingTimers;
}

// Whoever was the watcher is so no longer.
void TimerService::appointWatcher() {
  ++watchNumber;
  watcherQueue = nullptr;
  br::runOnWorkPool([](void* context) { static_cast<TimerService*>(context)->watch(); }, this, room,
                    br::WorkPoolTurn::kSoon);
}

// Those whose time has come, linked by TimerNode::next, for their calls to be queued.
br::TimerNode* TimerService::takeDue() {
  br::TimerNode* due = nullptr;
  br::TimerNode** last = &due;
  const int64_t nowNs = nowMonotonicNs();
  while (br::TimerNode* node = waiting.first()) {
    auto* source = static_cast<BRTimerSourceRef>(node);
    if (source->dueNs > nowNs) break;
    remove(source);
    source->isDue = true;
    if (std::exchange(source->isQueued, true)) {
      BRRelease(source);  // never the last reference: the queued call has one
    } else {
      *last = node;  // the heap's reference is now the call's
      last = &node->next;
    }
  }
  return due;
}

void TimerService::sleep(std::unique_lock<std::mutex>& held) {
  wakesNs = waiting.first() ? waiting.first()->timeNs : kNeverNs;
  descriptor.set(wakesNs);
  isWatcherAsleep = true;
  held.unlock();
  descriptor.wait();
  held.lock();
  isWatcherAsleep = false;
}

void queueCalls(br::TimerNode* due) {
  while (due) {
    auto* source = static_cast<BRTimerSourceRef>(due);
    due = std::exchange(due->next, nullptr);
    source->queue->add(&source->call);
  }
}

void TimerService::watch() {
  std::unique_lock held(lock);
  const uint64_t mine = watchNumber;
  while (watchNumber == mine) {
    br::TimerNode* due = takeDue();
    if (!due) {
      sleep(held);
      continue;
    }
    auto* first = static_cast<BRTimerSourceRef>(due);
    auto queue = first->queue;
    const bool runsFirst = queue->takeIdle();
    if (runsFirst && waitingCount == queue->waitingTimers)
      watcherQueue = queue.get();
    else if (runsFirst)
      appointWatcher();
    held.unlock();
    if (runsFirst) due = std::exchange(due->next, nullptr);
    queueCalls(due);
    if (runsFirst) queue->runTaken(&first->call);
    queue = nullptr;
    held.lock();
    if (watchNumber == mine) watcherQueue = nullptr;
  }
}

}  // namespace

// ---- A source's call, on its queue

void BRTimerSource::run(void* context) {
  auto source = br::Ref<BRTimerSource>::adopt(static_cast<BRTimerSourceRef>(context));
  std::unique_lock held(service().lock);
  source->isQueued = false;
  if (source->isCancelled) {
    held.unlock();
    if (source->context.cancelled) source->context.cancelled(source.get(), source->context.info);
    source->releaseInfo();
    return;
  }
  if (!source->isDue) return;  // set anew meanwhile
  const uint64_t fires = source->takeFires();
  source->isRunning = true;
  held.unlock();
  source->handler(source.get(), fires, source->context.info);
  held.lock();
  source->isRunning = false;
}

// Under the lock: counts what has come by now, and waits for the next tick.
uint64_t BRTimerSource::takeFires() {
  isDue = false;
  if (intervalNs == 0) return 1;
  const int64_t furtherTicks = (nowMonotonicNs() - dueNs) / intervalNs;
  dueNs = sumNs(dueNs + furtherTicks * intervalNs, intervalNs);
  if (dueNs != kNeverNs) service().insert(this);
  return static_cast<uint64_t>(furtherTicks) + 1;
}

BRTypeID BRTimerSourceGetTypeID(void) { return br::typeID<BRTimerSource>(); }

uint64_t BRTimerSourceNowNs(void) { return BRHostTimeGetUptimeNs(); }

BRTimerSourceRef BRTimerSourceCreate(BRAllocatorRef allocator, BRWorkQueueRef queue,
                                     BRTimerSourceHandler handler, const BRTimerSourceContext* context) {
  if (!queue || !handler || (context && context->version != 0) || !service().start()) return nullptr;
  auto* source =
      br::create<BRTimerSource>(allocator, 0, queue, handler, context ? *context : BRTimerSourceContext{});
  if (source && source->context.retain)
    source->context.info = const_cast<void*>(source->context.retain(context->info));
  return source;
}

void BRTimerSourceSetTimer(BRTimerSourceRef source, uint64_t startNs, uint64_t intervalNs,
                           uint64_t leewayNs) {
  if (!source) return;
  auto clamp = [](uint64_t ns) { return static_cast<int64_t>(std::min<uint64_t>(ns, INT64_MAX)); };
  const int64_t dueNs = startNs == kBRTimerSourceStartNow ? nowMonotonicNs() : clamp(startNs);
  TimerService& timers = service();
  std::unique_lock held(timers.lock);
  if (source->isCancelled) return;
  const bool wasWaiting = source->isWaiting;
  if (wasWaiting) timers.remove(source);
  source->isDue = false;
  source->dueNs = dueNs;
  source->intervalNs = clamp(intervalNs);
  source->leewayNs = intervalNs == 0 ? clamp(leewayNs) : std::min(clamp(leewayNs), clamp(intervalNs) / 2);
  if (dueNs != kNeverNs) timers.insert(source);
  held.unlock();
  if (wasWaiting) BRRelease(source);
}

bool BRTimerSourceCancel(BRTimerSourceRef source) {
  if (!source) return false;
  TimerService& timers = service();
  std::unique_lock held(timers.lock);
  const bool isRunning = source->isRunning;
  if (std::exchange(source->isCancelled, true)) return isRunning;
  const bool wasWaiting = source->isWaiting;
  if (wasWaiting) timers.remove(source);
  if (!wasWaiting) BRRetain(source);  // one way or the other there is a reference, for the call
  const bool wasQueued = std::exchange(source->isQueued, true);
  held.unlock();
  if (wasQueued)
    BRRelease(source);
  else
    source->queue->add(&source->call);
  return isRunning;
}

bool BRTimerSourceIsCancelled(BRTimerSourceRef source) {
  if (!source) return false;
  std::lock_guard guard(service().lock);
  return source->isCancelled;
}
