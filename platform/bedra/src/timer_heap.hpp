// What timers wait in: a pairing heap whose links stand in the timers, so that it needs no memory.
//
// A node's time is the latest at which it is to be called; among equal times the smaller order comes first.
// Inserting takes constant time, removing (the first or any other) O(log n) when averaged over the calls;
// moving a timer is a removal and an insertion, and touches few nodes while timers are mostly moved and
// seldom called.
#ifndef BEDRA_SRC_TIMER_HEAP_HPP
#define BEDRA_SRC_TIMER_HEAP_HPP

#include <cstdint>

namespace br {

struct TimerNode {
  int64_t timeNs = 0;
  uint64_t order = 0;
  TimerNode* child = nullptr;     // the first of the children, each of which comes no earlier
  TimerNode* next = nullptr;      // the next child of the same parent
  TimerNode* previous = nullptr;  // the one before, or the parent of a first child
};

class TimerHeap {
 public:
  TimerNode* first() const { return root_; }
  void insert(TimerNode* node) { root_ = root_ ? meld(root_, node) : node; }
  void remove(TimerNode* node);

 private:
  static TimerNode* meld(TimerNode* a, TimerNode* b);
  static TimerNode* meldSiblings(TimerNode* first);

  TimerNode* root_ = nullptr;
};

}  // namespace br

#endif
