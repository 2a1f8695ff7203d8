// The least and greatest times of a store, with the result of a scan from the head in which a candidate
// replaces the best only when it is strictly better.
//
// Representation, for each extreme that somebody has asked for since it was last unknown: the store is a
// front and a back. Each entry of the front names the best from itself to the end of the front, or a better
// one of the back, so that the front loses its head without a look at the others; of the back only the best
// is known. When the front is used up and the back loses its best, the extreme is unknown, and the next
// question makes all entries the front. An entry is walked over that way once, on the whole, and an insertion
// changes a few names at most: asking costs constant time on average. What nobody asks for costs nothing.
#ifndef PEVRIN_QUEUES_BUFFER_EXTREMES_HPP
#define PEVRIN_QUEUES_BUFFER_EXTREMES_HPP

#include "queues/buffer_store.hpp"

namespace pv {

class BufferExtremes {
 public:
  // The extreme of the store's buffers; kPVTimeInvalid when none of them has a valid time.
  PVTime of(Extreme extreme, const BufferStore& store);

  // To be told after each insertion, before each removal of the head, and when the store was emptied.
  void inserted(size_t index, const BufferStore& store) {
    if (knownCount_) insertedIntoKnown(index, store);
  }
  void removesHead(const BufferStore& store) {
    if (knownCount_) removesKnownHead(store);
  }
  void forget() { *this = BufferExtremes(); }

 private:
  struct Known {
    bool isKnown = false;
    size_t frontCount = 0;
    StoreEntry* bestOfBack = nullptr;  // null when no entry of the back has a valid time
  };
  void learn(Extreme extreme, const BufferStore& store);
  void insertedIntoKnown(size_t index, const BufferStore& store);
  void removesKnownHead(const BufferStore& store);
  void insertedIntoFront(Extreme extreme, size_t index, const BufferStore& store);
  void insertedIntoBack(Extreme extreme, size_t index, const BufferStore& store);
  void cutFront(Extreme extreme, size_t index, StoreEntry* candidate, StoreEntry* following);
  void unlearn(Known& known);

  Known known_[kExtremes];
  uint32_t knownCount_ = 0;
};

}  // namespace pv

#endif
