// What a memory pool does, over pages and a clock of the test's own.
#include <map>

#include "queues/recycler.hpp"
#include "tests/support/test.hpp"

namespace {

constexpr size_t kPage = 4096;
constexpr int64_t kAgeOutNs = 100'000'000;

// Counts requests of both kinds and can fail one; everything must be back at its end.
struct FakeSystem {
  FakeSystem() = default;
  FakeSystem(const FakeSystem&) = delete;
  ~FakeSystem() {
    EXPECT_EQ(records, 0);
    for (const auto& [address, size] : mapped) std::free(address);
  }
  size_t pageBytes() const { return kPage; }
  void* map(size_t sizeBytes) {
    EXPECT_EQ(sizeBytes % kPage, 0u);
    if (fails() || sizeBytes > (size_t{1} << 40)) return nullptr;
    void* address = std::calloc(1, sizeBytes);
    mapped[address] = sizeBytes;
    return address;
  }
  void unmap(void* address, size_t sizeBytes) {
    EXPECT_EQ(mapped[address], sizeBytes);
    mapped.erase(address);
    std::free(address);
    now += unmapNs;
  }
  int64_t nowNs() const { return now; }
  void* allocate(size_t sizeBytes) {
    if (fails()) return nullptr;
    ++records;
    return std::malloc(sizeBytes);
  }
  void free(void* block) {
    --records;
    std::free(block);
  }
  bool fails() { return ++requests == failingRequest; }

  int64_t now = 1'000'000'000, unmapNs = 0;
  int requests = 0, failingRequest = 0, records = 0;
  std::map<void*, size_t> mapped;
};

using Recycler = pv::Recycler<FakeSystem>;

struct Waiting {
  void* address;
  size_t size;
  int64_t expiry;
};

// The rules, done to an array from its end.
struct Model {
  void* take(size_t size) {
    for (size_t i = waiting.size(); i-- > 0;)
      if (waiting[i].size == size) {
        void* address = waiting[i].address;
        waiting.erase(waiting.begin() + static_cast<ptrdiff_t>(i));
        return address;
      }
    return nullptr;
  }
  void free(void* address, size_t size, int64_t now) {
    waiting.push_back({address, size, now + kAgeOutNs});
    earliest = std::min(earliest, waiting.back().expiry);
  }
  // Time goes on by unmapNs for each block that is returned.
  void pass(int64_t began) {
    if (began < earliest) return;
    int64_t now = began, kept = INT64_MAX;
    size_t position = 0;
    for (size_t i = waiting.size(); i-- > 0; ++position) {
      if (position != 0 && position % 16 == 0 && now - began > 5'000'000) return;
      if (waiting[i].expiry > began) {
        kept = std::min(kept, waiting[i].expiry);
      } else {
        waiting.erase(waiting.begin() + static_cast<ptrdiff_t>(i));
        now += unmapNs;
      }
    }
    earliest = kept;
  }

  const int64_t& unmapNs;
  std::vector<Waiting> waiting = {};
  int64_t earliest = 0;
};

void expectSame(const Recycler& recycler, const Model& model) {
  const pv::BlockRecord* record = recycler.waiting().oldest();
  for (const Waiting& expected : model.waiting) {
    ASSERT_TRUE(record);
    ASSERT_EQ(record->address, expected.address);
    ASSERT_EQ(record->sizeBytes, expected.size);
    ASSERT_EQ(record->expiryNs, expected.expiry);
    record = record->newer;
  }
  ASSERT_EQ(record, nullptr);
  ASSERT_EQ(recycler.statistics().blocksForReuse, model.waiting.size());
}

TEST(RecyclerTest, FindsReusesAndReturnsWhatASearchOfAnArrayWould) {
  FakeSystem system;
  {
    Recycler recycler(system, kAgeOutNs);
    Model model{system.unmapNs};
    std::mt19937 random(5);
    std::vector<std::pair<void*, size_t>> inUse;
    for (int step = 0; step < 20000; ++step) {
      // Phases of many blocks and of few, of quick and of slow unmapping; now and then everything is due.
      const size_t most = step / 1000 % 2 ? 150 : 20;
      system.unmapNs = step / 500 % 2 ? 700'000 : 0;
      system.now += random() % 50 == 0 ? random() % (2 * kAgeOutNs) : random() % 1'000'000;
      const int64_t now = system.now;
      if (inUse.empty() || (inUse.size() < most && random() % 2)) {
        const size_t pages = 1 + random() % (step / 2000 % 2 ? 50 : 3);
        void* expected = model.take(pages * kPage);
        void* address = recycler.allocate(pages * kPage - random() % kPage);
        ASSERT_TRUE(address);
        if (expected) {
          ASSERT_EQ(address, expected);
        }
        inUse.emplace_back(address, pages * kPage);
      } else {
        std::swap(inUse[random() % inUse.size()], inUse.back());
        const auto [address, size] = inUse.back();
        inUse.pop_back();
        model.free(address, size, now);
        recycler.deallocate(address);
      }
      model.pass(now);
      expectSame(recycler, model);
      if (HasFatalFailure()) return;
    }
    EXPECT_GT(recycler.statistics().reuses, 1000u);
    EXPECT_GT(recycler.statistics().systemReleases, 1000u);
    for (const auto& [address, size] : inUse) recycler.deallocate(address);
  }
  EXPECT_TRUE(system.mapped.empty());
}

TEST(RecyclerTest, RunningOutAtAnyRequestGivesNoBlockAndLosesNone) {
  int requests = 1;
  for (int failing = 0; failing <= requests; ++failing) {
    FakeSystem system;
    system.failingRequest = failing;
    {
      Recycler recycler(system, kAgeOutNs);
      std::vector<void*> blocks;
      for (size_t i = 0; i < 40; ++i)  // enough for the tables to grow
        if (void* block = recycler.allocate(i * kPage + 1)) blocks.push_back(block);
      EXPECT_EQ(recycler.statistics().blocksInUse, blocks.size());
      EXPECT_GE(blocks.size(), failing ? 39u : 40u);
      for (auto* block : blocks) {
        EXPECT_NE(recycler.sizeOf(block), 0u);
        recycler.deallocate(block);
      }
      EXPECT_EQ(recycler.statistics().blocksForReuse, blocks.size());
    }
    EXPECT_TRUE(system.mapped.empty());
    requests = std::max(requests, system.requests);
  }
  EXPECT_GT(requests, 80);
}

TEST(RecyclerTest, ARequestThatFailsStillReturnsWhatIsDue) {
  FakeSystem system;
  Recycler recycler(system, kAgeOutNs);
  recycler.deallocate(recycler.allocate(1));
  system.now += kAgeOutNs;
  for (const size_t size : {SIZE_MAX, SIZE_MAX - kPage + 1, SIZE_MAX - kPage, SIZE_MAX / 2})
    EXPECT_EQ(recycler.allocate(size), nullptr);
  EXPECT_EQ(recycler.statistics().blocksForReuse, 0u);
  EXPECT_EQ(recycler.allocate(0), nullptr);
}

}  // namespace
