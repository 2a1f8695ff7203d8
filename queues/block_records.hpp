// The records of a memory pool's blocks, and the two places where they stand: a table of those in use, by
// address, and the list of those that wait to be used again.
//
// Records carry all their links, so that neither place can refuse one. Only the tables' chains take memory of
// their own, to grow; without it they get longer.
#ifndef PEVRIN_QUEUES_BLOCK_RECORDS_HPP
#define PEVRIN_QUEUES_BLOCK_RECORDS_HPP

#include <cstddef>
#include <cstdint>
#include <utility>

namespace pv {

// A region of pages of its own.
struct BlockRecord {
  size_t sizeBytes;
  void* address;
  int64_t expiryNs = 0;  // of host uptime, while it waits

  BlockRecord* chain = nullptr;  // in a table
  // While it waits: its neighbours by time of release, and those among the blocks of its size.
  BlockRecord* older = nullptr;
  BlockRecord* newer = nullptr;
  BlockRecord* olderOfSize = nullptr;
  BlockRecord* newerOfSize = nullptr;
};

// Records by a number, each number once. Memory provides allocate(bytes) and free(block).
template <class Memory>
class BlockTable {
 public:
  explicit BlockTable(Memory& memory) : memory_(memory) {}
  ~BlockTable() {
    if (chains_ != first_) memory_.free(chains_);
  }
  BlockTable(const BlockTable&) = delete;
  BlockTable& operator=(const BlockTable&) = delete;

  size_t count() const { return count_; }

  // The link to the record for which keyOf gives the key; a link to null when there is none.
  template <class KeyOf>
  BlockRecord** find(uint64_t key, KeyOf keyOf) {
    BlockRecord** link = &chains_[indexOf(key)];
    while (*link && keyOf(**link) != key) link = &(*link)->chain;
    return link;
  }
  template <class KeyOf>
  void insert(BlockRecord* record, KeyOf keyOf) {
    if (count_ == size_t{1} << bits_) grow(keyOf);
    ++count_;
    put(record, keyOf);
  }
  BlockRecord* remove(BlockRecord** link) {
    --count_;
    return std::exchange(*link, (*link)->chain);
  }
  static void replace(BlockRecord** link, BlockRecord* with) {
    with->chain = (*link)->chain;
    *link = with;
  }
  // Calls visit(record) for each, which may free it.
  template <class Visit>
  void forEach(Visit visit) const {
    for (size_t i = 0; i >> bits_ == 0; ++i)
      for (BlockRecord *record = chains_[i], *next; record; record = next) {
        next = record->chain;
        visit(*record);
      }
  }

 private:
  static constexpr unsigned kFirstBits = 5;

  size_t indexOf(uint64_t key) const { return key * 0x9E3779B97F4A7C15u >> (64 - bits_); }
  template <class KeyOf>
  void put(BlockRecord* record, KeyOf keyOf) {
    BlockRecord*& chain = chains_[indexOf(keyOf(*record))];
    record->chain = std::exchange(chain, record);
  }
  template <class KeyOf>
  void grow(KeyOf keyOf) {
    const size_t chains = size_t{2} << bits_;
    auto** grown = static_cast<BlockRecord**>(memory_.allocate(chains * sizeof(BlockRecord*)));
    if (!grown) return;
    for (size_t i = 0; i < chains; ++i) grown[i] = nullptr;
    const size_t before = size_t{1} << bits_;
    BlockRecord** old = std::exchange(chains_, grown);
    ++bits_;
    for (size_t i = 0; i < before; ++i)
      for (BlockRecord *record = old[i], *next; record; record = next) {
        next = record->chain;
        put(record, keyOf);
      }
    if (old != first_) memory_.free(old);
  }

  Memory& memory_;
  BlockRecord* first_[size_t{1} << kFirstBits] = {};
  BlockRecord** chains_ = first_;
  unsigned bits_ = kFirstBits;
  size_t count_ = 0;
};

// The waiting blocks in order of release. The last released of each size also stands in a table by size and
// leads those of its size: what a search from the newest on would find is found at once. The newest of all is
// entered there when the next one comes, since mostly it is taken before.
template <class Memory>
class WaitingBlocks {
 public:
  explicit WaitingBlocks(Memory& memory) : bySize_(memory) {}

  size_t count() const { return count_; }
  BlockRecord* newest() const { return newest_; }
  BlockRecord* oldest() const { return oldest_; }

  void add(BlockRecord* record) {
    if (newest_ && !isNewestEntered_) enter(newest_);
    isNewestEntered_ = false;
    record->newer = nullptr;
    record->older = newest_;
    (newest_ ? newest_->newer : oldest_) = record;
    newest_ = record;
    ++count_;
  }
  // Takes out the last released block of exactly the size; null when there is none.
  BlockRecord* take(size_t sizeBytes) {
    const bool isNewest = newest_ && newest_->sizeBytes == sizeBytes;
    BlockRecord* record = isNewest ? newest_ : *bySize_.find(sizeBytes, sizeOf);
    if (record) remove(record);
    return record;
  }
  void remove(BlockRecord* record) {
    if (record != newest_ || isNewestEntered_) leave(record);
    if (record == newest_) isNewestEntered_ = true;  // as all older ones are
    (record->newer ? record->newer->older : newest_) = record->older;
    (record->older ? record->older->newer : oldest_) = record->newer;
    --count_;
  }

 private:
  static uint64_t sizeOf(const BlockRecord& record) { return record.sizeBytes; }

  // As the leader of its size.
  void enter(BlockRecord* record) {
    BlockRecord** link = bySize_.find(record->sizeBytes, sizeOf);
    record->newerOfSize = nullptr;
    record->olderOfSize = *link;
    if (!*link) return bySize_.insert(record, sizeOf);
    (*link)->newerOfSize = record;
    bySize_.replace(link, record);
  }
  void leave(BlockRecord* record) {
    BlockRecord* next = record->olderOfSize;
    if (next) next->newerOfSize = record->newerOfSize;
    if (record->newerOfSize) {
      record->newerOfSize->olderOfSize = next;
      return;
    }
    BlockRecord** link = bySize_.find(record->sizeBytes, sizeOf);
    next ? bySize_.replace(link, next) : void(bySize_.remove(link));
  }

  BlockRecord* newest_ = nullptr;
  BlockRecord* oldest_ = nullptr;
  bool isNewestEntered_ = true;
  size_t count_ = 0;
  BlockTable<Memory> bySize_;
};

}  // namespace pv

#endif
