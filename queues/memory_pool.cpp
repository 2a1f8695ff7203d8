// A pool and its allocator share a state: a recycler behind a lock. The allocator owns the state, the pool
// owns a reference to the allocator. Once the pool has gone, the blocks in use together own one: so a block
// can be freed through the allocator although nobody else kept it.
#include <bedra/dictionary.h>
#include <bedra/number.h>
#include <bedra/string.h>
#include <bedra/time.h>
#include <kiv/memory_pool.h>
#include <pevrin/base_object.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <bedra/literal.hpp>
#include <bedra/object.hpp>
#include <bedra/ref.hpp>
#include <cstring>

#include "queues/recycler.hpp"
#include "runtime/error.hpp"
#include "runtime/reentrant_mutex.hpp"

namespace {

using namespace br::literals;
using pv::signalError;
using Allocator = br::Ref<const BRAllocator>;
using Text = br::Ref<BRString>;

constexpr int64_t kDefaultAgeOutNs = 500'000'000;

class HostSystem {
 public:
  size_t pageBytes() const { return pageBytes_; }
  void* map(size_t sizeBytes) {
    void* address = mmap(nullptr, sizeBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return address == MAP_FAILED ? nullptr : address;
  }
  // Unmapping fails when it would split a mapping and the process may have no more of them: the memory behind
  // the addresses can still be given back.
  void unmap(void* address, size_t sizeBytes) {
    if (munmap(address, sizeBytes) != 0) madvise(address, sizeBytes, MADV_DONTNEED);
  }
  int64_t nowNs() { return static_cast<int64_t>(BRHostTimeGetUptimeNs()); }
  void* allocate(size_t sizeBytes) { return BRAllocatorAllocate(nullptr, sizeBytes); }
  void free(void* block) { BRAllocatorDeallocate(nullptr, block); }

 private:
  const size_t pageBytes_ = static_cast<size_t>(sysconf(_SC_PAGESIZE));
};

using Recycler = pv::Recycler<HostSystem>;

struct PoolState {
  explicit PoolState(int64_t ageOutNs) : recycler(system, ageOutNs) {}

  // After the pool has gone: a reference to drop when the lock has been left, or null.
  BRAllocatorRef keepAllocatorWhileInUse() {
    const bool isInUse = recycler.inUse().count() != 0;
    if (isInUse && !keptAllocator) keptAllocator = Allocator::retain(allocator);
    return isInUse ? nullptr : keptAllocator.detach();
  }

  HostSystem system;
  pv::ReentrantMutex mutex;
  Recycler recycler;
  BRAllocatorRef allocator = nullptr;  // owns this
  bool hasPool = true;
  Allocator keptAllocator;
};

// Holds the lock for as long as it lives. At its end the state may go.
class Turn {
 public:
  explicit Turn(PoolState& state) : state_(state) { state.mutex.lock(); }
  ~Turn() {
    BRAllocatorRef dropped = state_.hasPool ? nullptr : state_.keepAllocatorWhileInUse();
    state_.mutex.unlock();
    if (dropped) BRRelease(dropped);
  }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;
  Recycler* operator->() { return &state_.recycler; }

 private:
  PoolState& state_;
};

PoolState& stateOf(void* info) { return *static_cast<PoolState*>(info); }

void* allocate(size_t sizeBytes, void* info) { return Turn(stateOf(info))->allocate(sizeBytes); }

void deallocate(void* address, void* info) { Turn(stateOf(info))->deallocate(address); }

// The lock is left for the copy: until it is freed the old block is the caller's, the new one is nobody
// else's.
void* reallocate(void* address, size_t newSizeBytes, void* info) {
  const size_t oldSizeBytes = Turn(stateOf(info))->sizeOf(address);
  void* moved = oldSizeBytes ? allocate(newSizeBytes, info) : nullptr;
  if (!moved) return nullptr;
  memcpy(moved, address, std::min(oldSizeBytes, newSizeBytes));
  deallocate(address, info);
  return moved;
}

void destroyState(const void* info) {
  auto* state = static_cast<PoolState*>(const_cast<void*>(info));
  state->~PoolState();
  BRAllocatorDeallocate(nullptr, state);
}

BRStringRef copyAllocatorDescription(const void*) {
  return static_cast<BRStringRef>(BRRetain("KivMemoryPoolAllocator"_br));
}

int64_t ageOutNsFrom(BRDictionaryRef options) {
  constexpr double kNsPerSecond = 1e9, kTooLongNs = 0x1p63;
  BRTypeRef value = options ? BRDictionaryGetValue(options, kPVMemoryPoolOption_AgeOutPeriod) : nullptr;
  if (!value || BRGetTypeID(value) != BRNumberGetTypeID()) return kDefaultAgeOutNs;
  double seconds = 0;
  BRNumberGetValue(static_cast<BRNumberRef>(value), kBRNumberTypeFloat64, &seconds);
  if (!(seconds > 0)) return kDefaultAgeOutNs;
  const double ns = seconds * kNsPerSecond;
  return ns >= kTooLongNs ? INT64_MAX : static_cast<int64_t>(ns);
}

void appendRecord(BRMutableStringRef text, const pv::BlockRecord& record) {
  BRStringAppendFormat(text, " %p: %zu", record.address, record.sizeBytes);
}

}  // namespace

extern "C" {
constinit const BRStringRef kPVMemoryPoolOption_AgeOutPeriod = "KivMemoryPool_AgeOutPeriod"_br;
}

struct PVMemoryPool : BRObject {
  static constexpr const char* className = "KivMemoryPool";

  PVMemoryPool() = default;
  ~PVMemoryPool() {
    if (!state) return;
    Turn turn(*state);
    turn->invalidate();
    state->hasPool = false;
  }
  BRStringRef copyDescription() const {
    return BRStringCreateWithFormat(nullptr, "[KivMemoryPool %p]", static_cast<const void*>(this));
  }
  BRStringRef copyDebugDescription() const;

  PoolState* state = nullptr;  // lives while the allocator does
  Allocator allocator;
};

BRTypeID PVMemoryPoolGetTypeID(void) { return br::typeID<PVMemoryPool>(); }

PVMemoryPoolRef PVMemoryPoolCreate(BRDictionaryRef options) {
  auto pool = br::Ref<PVMemoryPool>::adopt(br::create<PVMemoryPool>(nullptr, 0));
  void* room = pool ? BRAllocatorAllocate(nullptr, sizeof(PoolState)) : nullptr;
  if (!room) {
    signalError(kPVStatus_OutOfMemory);
    return nullptr;
  }
  auto* state = new (room) PoolState(ageOutNsFrom(options));
  BRAllocatorContext context{};
  context.info = state;
  context.release = destroyState;
  context.copyDescription = copyAllocatorDescription;
  context.allocate = allocate;
  context.reallocate = reallocate;
  context.deallocate = deallocate;
  pool->allocator = Allocator::adopt(BRAllocatorCreate(nullptr, &context));
  if (!pool->allocator) {
    destroyState(state);
    signalError(kPVStatus_OutOfMemory);
    return nullptr;
  }
  state->allocator = pool->allocator.get();
  pool->state = state;
  return pool.detach();
}

BRAllocatorRef PVMemoryPoolGetAllocator(PVMemoryPoolRef pool) {
  if (pool) return pool->allocator.get();
  signalError(kPVBaseObjectError_ParamErr);
  return nullptr;
}

void PVMemoryPoolFlush(PVMemoryPoolRef pool) {
  if (!pool) return void(signalError(kPVBaseObjectError_ParamErr));
  Turn(*pool->state)->flush();
}

void PVMemoryPoolInvalidate(PVMemoryPoolRef pool) {
  if (!pool) return void(signalError(kPVBaseObjectError_ParamErr));
  Turn(*pool->state)->invalidate();
}

PVStatus KivMemoryPoolGetStatistics(PVMemoryPoolRef pool, KivMemoryPoolStatistics* statisticsOut) {
  if (!pool || !statisticsOut) return signalError(kPVBaseObjectError_ParamErr);
  *statisticsOut = Turn(*pool->state)->statistics();
  return kPVStatus_Success;
}

// The two places of blocks follow as their addresses and what stands there, address: size.
BRStringRef PVMemoryPool::copyDebugDescription() const {
  auto inUse = Text::adopt(BRStringCreateMutable(nullptr, 0));
  auto waiting = Text::adopt(BRStringCreateMutable(nullptr, 0));
  if (!inUse || !waiting) return nullptr;
  Turn turn(*state);
  BRStringAppendFormat(inUse.get(), "{");
  turn->inUse().forEach([&](const pv::BlockRecord& record) { appendRecord(inUse.get(), record); });
  BRStringAppendFormat(inUse.get(), " }");
  BRStringAppendFormat(waiting.get(), "(");
  for (auto* record = turn->waiting().oldest(); record; record = record->newer)
    appendRecord(waiting.get(), *record);
  BRStringAppendFormat(waiting.get(), " )");
  return BRStringCreateWithFormat(
      nullptr,
      "KivMemoryPool %p retainCount: %d %s poolingAllocator: %p blocksInUse: %p %@ blocksForReuse: %p %@",
      static_cast<const void*>(this), static_cast<int>(BRGetRetainCount(this)),
      turn->isRecycling() ? "recyclingEnabled" : "recyclingDisabled",
      static_cast<const void*>(allocator.get()), static_cast<const void*>(&turn->inUse()), inUse.get(),
      static_cast<const void*>(&turn->waiting()), waiting.get());
}
