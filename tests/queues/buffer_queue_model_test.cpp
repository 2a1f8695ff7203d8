// Random use, beside a plain model that scans.
#include "tests/queues/frames.hpp"

namespace {

using namespace test;

bool areSame(const PVTime& a, const PVTime& b) {
  return a.value == b.value && a.timescale == b.timescale && a.flags == b.flags && a.epoch == b.epoch;
}

struct Model {
  // The described scan: a candidate replaces the best only when it is strictly better.
  template <class GetTime>
  PVTime scan(int sign, GetTime getTime) const {
    PVTime best = kPVTimeInvalid;
    for (const FrameRef& frame : frames) {
      const PVTime time = getTime(*frame);
      if (PVTimeIsValid(time) && (PVTimeIsInvalid(best) || sign * PVTimeCompare(time, best) > 0)) best = time;
    }
    return best;
  }
  PVTime minPresentation() const {
    return scan(-1, [](const Frame& frame) { return frame.presentation; });
  }
  PVTime maxPresentation() const {
    return scan(1, [](const Frame& frame) { return frame.presentation; });
  }
  void keepNumeric() {
    if (!PVTimeIsNumeric(duration)) duration = PVTimeSubtract(maxPresentation(), minPresentation());
  }
  void enqueue(FrameRef frame) {
    auto place = isSorted ? std::upper_bound(frames.begin(), frames.end(), frame,
                                             [](auto& a, auto& b) { return a->key < b->key; })
                          : frames.end();
    duration = PVTimeAdd(duration, frame->duration);
    size += frame->size;
    frames.insert(place, std::move(frame));
    keepNumeric();
  }
  FrameRef dequeue() {
    if (frames.empty()) return nullptr;
    FrameRef frame = frames.front();
    frames.erase(frames.begin());
    duration = PVTimeSubtract(duration, frame->duration);
    size -= frame->size;
    if (frames.empty() || PVTimeCompare(duration, kPVTimeZero) == 0) duration = kPVTimeZero;
    keepNumeric();
    return frame;
  }
  void reset() {
    frames.clear();
    duration = kPVTimeZero;
    size = 0;
  }

  bool isSorted;
  std::vector<FrameRef> frames{};
  PVTime duration = kPVTimeZero;
  size_t size = 0;
};

class Player {
 public:
  Player(bool isSorted, uint32_t seed)
      : random_(seed),
        model_{isSorted},
        queue_(makeQueue(isSorted ? sortedFrameCallbacks() : frameCallbacks())) {}

  void step(bool fills) {
    const uint32_t dice = random_() % 1000;
    if (dice == 0) {
      PVBufferQueueReset(queue_.get());
      model_.reset();
    } else if (dice % 10 < (fills ? 7u : 3u)) {
      FrameRef frame = randomFrame();
      enqueue(queue_, frame);
      model_.enqueue(frame);
    } else {
      EXPECT_EQ(dequeue(queue_).get(), model_.dequeue().get());
    }
    // Not all at each step, so that all meet changes made while nobody asked.
    if (random_() % 2) check();
  }

 private:
  PVTime randomTime(int64_t value) {
    switch (random_() % 40) {
      case 0:
        return kPVTimeInvalid;
      case 1:
        return kPVTimeIndefinite;
      case 2:
        return kPVTimePositiveInfinity;
      case 3:
        return kPVTimeNegativeInfinity;
      case 4:
        return PVTimeMakeWithEpoch(value, 10, 1);
      default:
        return random_() % 2 ? PVTimeMake(value, 10) : PVTimeMake(value * 3, 30);
    }
  }
  FrameRef randomFrame() {
    const int64_t place = ++made_ / 2 + static_cast<int64_t>(random_() % 8);
    FrameRef frame =
        makeFrame(randomTime(place), random_() % 50 ? PVTimeMake(random_() % 9, 30) : kPVTimeIndefinite);
    frame->decode = randomTime(place / 2);
    frame->key = random_() % 8 ? place : static_cast<int64_t>(random_() % 100);
    frame->size = random_() % 100;
    return frame;
  }
  void check() {
    PVBufferQueueRef queue = queue_.get();
    const bool all = random_() % 4 == 0;
    ASSERT_TRUE(areSame(PVBufferQueueGetDuration(queue), model_.duration));
    ASSERT_EQ(PVBufferQueueGetTotalSize(queue), model_.size);
    ASSERT_TRUE(areSame(PVBufferQueueGetMinPresentationTimeStamp(queue), model_.minPresentation()));
    if (!all) return;
    ASSERT_TRUE(areSame(PVBufferQueueGetMaxPresentationTimeStamp(queue), model_.maxPresentation()));
    ASSERT_TRUE(areSame(PVBufferQueueGetMinDecodeTimeStamp(queue),
                        model_.scan(-1, [](const Frame& frame) { return frame.decode; })));
    ASSERT_TRUE(areSame(
        PVBufferQueueGetEndPresentationTimeStamp(queue),
        model_.scan(1, [](const Frame& frame) { return PVTimeAdd(frame.presentation, frame.duration); })));
    ASSERT_EQ(PVBufferQueueGetBufferCount(queue), static_cast<int64_t>(model_.frames.size()));
  }

  std::mt19937 random_;
  Model model_;
  QueueRef queue_;
  int64_t made_ = 0;
};

TEST(BufferQueueModel, AgreesWithAScan) {
  for (uint32_t seed = 1; seed <= 20; ++seed) {
    Player player(seed % 2, seed);
    for (int step = 0; step < 3000 && !testing::Test::HasFailure(); ++step) player.step(step / 200 % 2 == 0);
    ASSERT_FALSE(testing::Test::HasFailure()) << "seed " << seed;
  }
  EXPECT_EQ(Frame::alive, 0);
}

TEST(BufferQueueModel, OfEqualTimesTheOneNearestToTheHeadIsTold) {
  auto queue = makeQueue(sortedFrameCallbacks());
  auto put = [&](int64_t key, PVTime presentation) {
    auto frame = makeFrame(presentation);
    frame->key = key;
    enqueue(queue, frame);
  };
  for (int64_t key = 0; key < 40; ++key) put(key, kPVTimeZero);
  put(100, PVTimeMake(60, 30));
  EXPECT_EQ(PVBufferQueueGetMaxPresentationTimeStamp(queue.get()).timescale, 30);
  put(50, PVTimeMake(20, 10));
  EXPECT_EQ(PVBufferQueueGetMaxPresentationTimeStamp(queue.get()).timescale, 10);
}

// Questions and places cost what they cost in a shallow queue: counted, not timed.
TEST(BufferQueueModel, CostDoesNotGrowWithDepthInBFrameOrder) {
  int compared = 0;
  Asked asked = [&](const char* question) { compared += question[0] == 'c'; };
  auto queue = makeQueue(sortedFrameCallbacks(&asked));
  auto push = [&](int64_t n) { enqueue(queue, frameAt(n == 0 ? 0 : n % 3 == 1 ? n + 2 : n - 1)); };
  for (int64_t n = 0; n < 4096; ++n) push(n);
  compared = 0;
  for (int64_t n = 4096; n < 4096 + 300; ++n) {
    EXPECT_EQ(dequeue(queue)->key, n - 4096);
    push(n);
  }
  EXPECT_EQ(compared, 500);
  compared = 0;
  enqueue(queue, frameAt(1000));
  EXPECT_LE(compared, 16);
}

}  // namespace
