// A hash table of records that carry their own link, so that putting one in cannot fail. The user brings the
// lock.
//
//   struct Gate { const void* object; Gate* next; uint64_t hash; };
//   constinit LinkedTable<Gate, &Gate::next, &Gate::hash> gates;
//   gates.insert(gate, hash);
//   Gate* found = gates.find(hash, [&](const Gate& gate) { return gate.object == object; });
#ifndef PEVRIN_NOTIFICATIONS_LINKED_TABLE_HPP
#define PEVRIN_NOTIFICATIONS_LINKED_TABLE_HPP

#include <cstddef>
#include <cstdint>

namespace pv {

template <class Record, Record* Record::*Next, uint64_t Record::*Hash>
class LinkedTable {
 public:
  void insert(Record* record, uint64_t hash) {
    record->*Hash = hash;
    Record*& head = chains_[indexOf(hash)];
    record->*Next = head;
    head = record;
  }
  template <class Matches>
  Record* find(uint64_t hash, Matches matches) const {
    Record* record = chains_[indexOf(hash)];
    while (record && !(record->*Hash == hash && matches(*record))) record = record->*Next;
    return record;
  }
  void remove(Record* record) {
    Record** link = &chains_[indexOf(record->*Hash)];
    while (*link != record) link = &((*link)->*Next);
    *link = record->*Next;
  }

 private:
  static constexpr size_t kChainBits = 10;
  static size_t indexOf(uint64_t hash) { return hash * 0x9E3779B97F4A7C15u >> (64 - kChainBits); }

  Record* chains_[size_t{1} << kChainBits] = {};
};

}  // namespace pv

#endif
