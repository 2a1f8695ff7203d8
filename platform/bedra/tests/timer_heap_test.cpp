// The heap of timers against a sorted set, over random insertions and removals.
#include <set>

#include "src/timer_heap.hpp"
#include "tests/support/test.hpp"

namespace {

TEST(TimerHeap, FirstIsTheEarliestWhateverWasRemoved) {
  using Key = std::pair<int64_t, uint64_t>;
  std::mt19937 random(20);
  std::vector<br::TimerNode> nodes(300);
  std::set<Key> waiting;
  br::TimerHeap heap;
  uint64_t order = 0;
  auto keyOf = [](const br::TimerNode& node) { return Key{node.timeNs, node.order}; };
  for (int step = 0; step < 50000; ++step) {
    // fills, then empties, then fills again
    br::TimerNode* node = &nodes[random() % nodes.size()];
    const bool isFilling = step / 5000 % 2 == 0;
    if (!isFilling && heap.first() && random() % 2) node = heap.first();
    if (waiting.erase(keyOf(*node)) != 0) heap.remove(node);
    if (isFilling || random() % 4 == 0) {
      node->timeNs = static_cast<int64_t>(random() % 100);
      node->order = ++order;
      heap.insert(node);
      waiting.insert(keyOf(*node));
    }
    ASSERT_EQ(heap.first() == nullptr, waiting.empty());
    if (!waiting.empty()) {
      ASSERT_EQ(keyOf(*heap.first()), *waiting.begin());
    }
  }
}

}  // namespace
