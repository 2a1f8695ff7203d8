// What a memory pool does, without its lock: blocks of whole pages that are handed out, taken back, kept for
// a while and handed out again.
//
// System provides what lies below, and is chosen at compile time, so that tests bring pages that run out and
// a clock of their own:
//
//   size_t pageBytes() const;                    a power of two
//   void* map(size_t sizeBytes);                 zero-filled pages anywhere; null when there are none
//   void unmap(void* address, size_t sizeBytes);
//   int64_t nowNs();                             host uptime
//   void* allocate(size_t sizeBytes);            for the pool's own records
//   void free(void* block);
#ifndef PEVRIN_QUEUES_RECYCLER_HPP
#define PEVRIN_QUEUES_RECYCLER_HPP

#include <kiv/memory_pool.h>

#include <algorithm>
#include <new>

#include "queues/block_records.hpp"

namespace pv {

template <class System>
class Recycler {
 public:
  Recycler(System& system, int64_t ageOutNs) : system_(system), ageOutNs_(ageOutNs) {}
  // Blocks that are still in use stay mapped: their users may be reading them.
  ~Recycler() {
    ageOut(kForced);
    inUse_.forEach([this](BlockRecord& record) { system_.free(&record); });
  }

  bool isRecycling() const { return isRecycling_; }
  KivMemoryPoolStatistics statistics() const {
    KivMemoryPoolStatistics now = counts_;
    now.blocksInUse = inUse_.count();
    now.blocksForReuse = waiting_.count();
    return now;
  }
  const BlockTable<System>& inUse() const { return inUse_; }
  const WaitingBlocks<System>& waiting() const { return waiting_; }

  void* allocate(size_t sizeBytes) {
    if (sizeBytes == 0) return nullptr;
    const size_t rounded = roundedUp(sizeBytes);
    BlockRecord* record = waiting_.take(rounded);
    if (record) {
      ++counts_.reuses;
      counts_.bytesForReuse -= rounded;
    } else {
      record = mapBlock(rounded);
    }
    if (record) {
      inUse_.insert(record, addressOf);
      counts_.bytesInUse += rounded;
    }
    ageOut(kDue);
    return record ? record->address : nullptr;
  }

  // The rounded size of a block in use; 0 for any other address.
  size_t sizeOf(const void* address) {
    BlockRecord* record = *find(address);
    return record ? record->sizeBytes : 0;
  }

  void deallocate(void* address) {
    BlockRecord** link = find(address);
    if (!*link) return;
    BlockRecord* record = inUse_.remove(link);
    counts_.bytesInUse -= record->sizeBytes;
    if (!isRecycling_) {
      unmapBlock(record);
      return ageOut(kDue);
    }
    const int64_t now = system_.nowNs();
    record->expiryNs = now > INT64_MAX - ageOutNs_ ? INT64_MAX : now + ageOutNs_;
    waiting_.add(record);
    counts_.bytesForReuse += record->sizeBytes;
    earliestExpiryNs_ = std::min(earliestExpiryNs_, record->expiryNs);
    ageOut(kDue, now);
  }

  void flush() {
    if (isRecycling_) ageOut(kForced);
  }
  void invalidate() {
    flush();
    isRecycling_ = false;
  }

 private:
  enum Extent { kDue, kForced };
  static constexpr int64_t kLongestPassNs = 5'000'000;
  static constexpr unsigned kClockEvery = 16;

  static uint64_t addressOf(const BlockRecord& record) { return reinterpret_cast<uintptr_t>(record.address); }
  BlockRecord** find(const void* address) {
    return inUse_.find(reinterpret_cast<uintptr_t>(address), addressOf);
  }
  // 0 when that is more than there can be.
  size_t roundedUp(size_t sizeBytes) const {
    const size_t mask = system_.pageBytes() - 1;
    return (sizeBytes + mask) & ~mask;
  }

  BlockRecord* mapBlock(size_t sizeBytes) {
    if (sizeBytes == 0) return nullptr;
    void* room = system_.allocate(sizeof(BlockRecord));
    if (!room) return nullptr;
    void* address = system_.map(sizeBytes);
    if (!address) {
      system_.free(room);
      return nullptr;
    }
    ++counts_.systemAllocations;
    return new (room) BlockRecord{sizeBytes, address};
  }
  void unmapBlock(BlockRecord* record) {
    ++counts_.systemReleases;
    system_.unmap(record->address, record->sizeBytes);
    system_.free(record);
  }

  void ageOut(Extent extent) {
    if (waiting_.count() != 0) ageOut(extent, system_.nowNs());
  }
  // From the newest block to the oldest. A pass that takes too long leaves the earliest expiry as it is, so
  // that the next call goes on.
  void ageOut(Extent extent, int64_t beganNs) {
    if (extent == kDue && beganNs < earliestExpiryNs_) return;
    int64_t earliestKeptNs = INT64_MAX;
    unsigned position = 0;
    for (BlockRecord *record = waiting_.newest(), *older; record; record = older) {
      if (extent == kDue && position != 0 && position % kClockEvery == 0 &&
          system_.nowNs() - beganNs > kLongestPassNs)
        return;
      ++position;
      older = record->older;
      if (extent == kForced || record->expiryNs <= beganNs) {
        waiting_.remove(record);
        counts_.bytesForReuse -= record->sizeBytes;
        unmapBlock(record);
      } else {
        earliestKeptNs = std::min(earliestKeptNs, record->expiryNs);
      }
    }
    earliestExpiryNs_ = earliestKeptNs;
  }

  System& system_;
  const int64_t ageOutNs_;
  int64_t earliestExpiryNs_ = 0;  // of the waiting blocks, or a time before
  bool isRecycling_ = true;
  KivMemoryPoolStatistics counts_{};  // but for the numbers of blocks, which their places know
  BlockTable<System> inUse_{system_};
  WaitingBlocks<System> waiting_{system_};
};

}  // namespace pv

#endif
