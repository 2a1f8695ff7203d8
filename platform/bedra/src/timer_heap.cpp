#include "src/timer_heap.hpp"

#include <utility>

namespace br {

// Two roots become one: the later is the first child of the earlier.
TimerNode* TimerHeap::meld(TimerNode* a, TimerNode* b) {
  const bool isBEarlier = b->timeNs < a->timeNs || (b->timeNs == a->timeNs && b->order < a->order);
  if (isBEarlier) std::swap(a, b);
  b->previous = a;
  b->next = a->child;
  if (a->child) a->child->previous = b;
  a->child = b;
  return a;
}

// Neighbours are melded in pairs, then the pairs from the last to the first: this order is what keeps the
// heap shallow.
TimerNode* TimerHeap::meldSiblings(TimerNode* first) {
  TimerNode* pairs = nullptr;  // linked by next, the last pair first
  while (first) {
    TimerNode* second = first->next;
    TimerNode* rest = second ? std::exchange(second->next, nullptr) : nullptr;
    first->next = nullptr;
    TimerNode* pair = second ? meld(first, second) : first;
    pair->next = pairs;
    pairs = pair;
    first = rest;
  }
  TimerNode* root = pairs;
  if (root) pairs = std::exchange(root->next, nullptr);
  while (pairs) {
    TimerNode* rest = std::exchange(pairs->next, nullptr);
    root = meld(root, pairs);
    pairs = rest;
  }
  return root;
}

void TimerHeap::remove(TimerNode* node) {
  TimerNode* orphans = meldSiblings(std::exchange(node->child, nullptr));
  if (orphans) orphans->previous = nullptr;
  if (node == root_) {
    root_ = orphans;
    return;
  }
  (node->previous->child == node ? node->previous->child : node->previous->next) = node->next;
  if (node->next) node->next->previous = node->previous;
  node->next = node->previous = nullptr;
  if (orphans) root_ = meld(root_, orphans);
}

}  // namespace br
