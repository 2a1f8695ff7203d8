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
#include <mutex>

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

class PoolState {
 public:
  explicit PoolState(int64_t ageOutNs) : recycler_(system_, ageOutNs) {}

  void setAllocator(BRAllocatorRef allocator) { allocator_ = allocator; }

  // Calls use(recycler) under the lock. Nothing of the state is touched after the lock is left: by then it
  // may have gone.
  template <class Use>
  auto with(Use use) {
    Allocator dropped;
    std::lock_guard guard(mutex_);
    Finally settling{*this, dropped};
    return use(recycler_);
  }
  void poolGoes() {
    Allocator dropped;
    std::lock_guard guard(mutex_);
    Finally settling{*this, dropped};
    recycler_.invalidate();
    hasPool_ = false;
  }

 private:
  struct Finally {
    PoolState& state;
    Allocator& dropped;
    ~Finally() {
      if (!state.hasPool_) state.keepAllocatorWhileInUse(dropped);
    }
  };

  // What is dropped is released when the lock has been left.
  void keepAllocatorWhileInUse(Allocator& dropped) {
    const bool isInUse = recycler_.inUse().count() != 0;
    if (isInUse && !keptAllocator_) keptAllocator_ = Allocator::retain(allocator_);
    if (!isInUse) dropped = std::move(keptAllocator_);
  }

  HostSystem system_;
  pv::ReentrantMutex mutex_;
  Recycler recycler_;
  BRAllocatorRef allocator_ = nullptr;  // owns this
  bool hasPool_ = true;
  Allocator keptAllocator_;
};

PoolState& stateOf(void* info) { return *static_cast<PoolState*>(info); }

void* allocate(size_t sizeBytes, void* info) {
  return stateOf(info).with([=](Recycler& recycler) { return recycler.allocate(sizeBytes); });
}

void deallocate(void* address, void* info) {
  stateOf(info).with([=](Recycler& recycler) { recycler.deallocate(address); });
}

// The lock is left for the copy: until it is freed the old block is the caller's, the new one is nobody
// else's.
void* reallocate(void* address, size_t newSizeBytes, void* info) {
  size_t oldSizeBytes = 0;
  void* moved = stateOf(info).with([&](Recycler& recycler) -> void* {
    oldSizeBytes = recycler.sizeOf(address);
    return oldSizeBytes ? recycler.allocate(newSizeBytes) : nullptr;
  });
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
    if (state) state->poolGoes();
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
  state->setAllocator(pool->allocator.get());
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
  pool->state->with([](Recycler& recycler) { recycler.flush(); });
}

void PVMemoryPoolInvalidate(PVMemoryPoolRef pool) {
  if (!pool) return void(signalError(kPVBaseObjectError_ParamErr));
  pool->state->with([](Recycler& recycler) { recycler.invalidate(); });
}

PVStatus KivMemoryPoolGetStatistics(PVMemoryPoolRef pool, KivMemoryPoolStatistics* statisticsOut) {
  if (!pool || !statisticsOut) return signalError(kPVBaseObjectError_ParamErr);
  *statisticsOut = pool->state->with([](Recycler& recycler) { return recycler.statistics(); });
  return kPVStatus_Success;
}

// The two places of blocks follow as their addresses and what stands there, address: size.
BRStringRef PVMemoryPool::copyDebugDescription() const {
  auto inUse = Text::adopt(BRStringCreateMutable(nullptr, 0));
  auto waiting = Text::adopt(BRStringCreateMutable(nullptr, 0));
  if (!inUse || !waiting) return nullptr;
  return state->with([&](Recycler& recycler) {
    BRStringAppendFormat(inUse.get(), "{");
    recycler.inUse().forEach([&](const pv::BlockRecord& record) { appendRecord(inUse.get(), record); });
    BRStringAppendFormat(inUse.get(), " }");
    BRStringAppendFormat(waiting.get(), "(");
    for (auto* record = recycler.waiting().oldest(); record; record = record->newer)
      appendRecord(waiting.get(), *record);
    BRStringAppendFormat(waiting.get(), " )");
    return BRStringCreateWithFormat(
        nullptr,
        "KivMemoryPool %p retainCount: %d %s poolingAllocator: %p blocksInUse: %p %@ blocksForReuse: %p %@",
        static_cast<const void*>(this), static_cast<int>(BRGetRetainCount(this)),
        recycler.isRecycling() ? "recyclingEnabled" : "recyclingDisabled",
        static_cast<const void*>(allocator.get()), static_cast<const void*>(&recycler.inUse()), inUse.get(),
        static_cast<const void*>(&recycler.waiting()), waiting.get());
  });
}
