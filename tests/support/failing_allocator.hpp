// An allocator that counts what is out and can fail one request, for tests of ownership and of running out of memory.
//
//   walkAllocationFailures([](BRAllocatorRef allocator) {
//     auto string = br::Ref<const BRString>::adopt(BRStringCreateCopy(allocator, "text"_br));
//     return string ? Outcome::kSucceeded : Outcome::kOutOfMemory;
//   });
#ifndef TESTS_SUPPORT_FAILING_ALLOCATOR_HPP
#define TESTS_SUPPORT_FAILING_ALLOCATOR_HPP

#include <bedra/allocator.h>
#include <bedra/runtime.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>

namespace test {

// Owns an allocator; at the end of its life every block must be back and nobody may hold the allocator.
class FailingAllocator {
 public:
  // Fails the request with that number, counted from 1; 0 fails none.
  explicit FailingAllocator(int failingRequest = 0) : failingRequest_(failingRequest) {
    BRAllocatorContext context{};
    context.info = this;
    context.allocate = [](size_t sizeBytes, void* info) { return self(info)->allocate(sizeBytes); };
    context.reallocate = [](void* block, size_t sizeBytes, void* info) {
      return self(info)->fails() ? nullptr : std::realloc(block, sizeBytes);
    };
    context.deallocate = [](void* block, void* info) {
      --self(info)->live_;
      std::free(block);
    };
    allocator_ = BRAllocatorCreate(nullptr, &context);
  }
  ~FailingAllocator() {
    EXPECT_EQ(live_, 0) << "blocks not given back";
    EXPECT_EQ(BRGetRetainCount(allocator_), 1u) << "the allocator is still held";
    BRRelease(allocator_);
  }
  FailingAllocator(const FailingAllocator&) = delete;
  FailingAllocator& operator=(const FailingAllocator&) = delete;

  operator BRAllocatorRef() const { return allocator_; }
  int liveBlocks() const { return live_; }
  int requests() const { return requests_; }
  // Fails the n-th request from now on, counted from 1.
  void failRequest(int n) { failingRequest_ = requests_ + n; }
  bool failed() const { return failingRequest_ != 0 && requests_ >= failingRequest_; }

 private:
  static FailingAllocator* self(void* info) { return static_cast<FailingAllocator*>(info); }
  bool fails() { return ++requests_ == failingRequest_; }
  void* allocate(size_t sizeBytes) {
    if (fails()) return nullptr;
    ++live_;
    return std::malloc(sizeBytes);
  }

  BRAllocatorRef allocator_;
  std::atomic<int> live_{0};
  std::atomic<int> requests_{0};
  std::atomic<int> failingRequest_;
};

enum class Outcome { kSucceeded, kOutOfMemory };

// Runs the action with an allocator that fails its first request, then its second, and so on, until a run asks for so
// few that none fails; that one must succeed. A run in which a request failed may succeed all the same (when the
// request was not needed) or answer "out of memory"; either way nothing may leak. Returns the number of requests.
template <class Action>
int walkAllocationFailures(Action action) {
  for (int failing = 1; failing < 10000; ++failing) {
    FailingAllocator allocator(failing);
    const Outcome outcome = action(static_cast<BRAllocatorRef>(allocator));
    if (!allocator.failed()) {
      EXPECT_EQ(outcome, Outcome::kSucceeded) << "failed although every request was met";
      return allocator.requests();
    }
  }
  ADD_FAILURE() << "the action never runs out of requests";
  return 0;
}

}  // namespace test

#endif
