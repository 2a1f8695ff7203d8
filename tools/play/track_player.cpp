#include "track_player.hpp"

#include <pevrin/sample_buffer_data.h>

#include <algorithm>
#include <cmath>

namespace {

// Of the movie's time that waits in a queue: below the first it is filled, up to the second.
constexpr double kLowWaterSeconds = 1, kHighWaterSeconds = 2;
// A timer that only the timebase sets.
constexpr double kIntervalSeconds = 10 * 365 * 86400.0;

PVSampleBufferRef asSample(PVBufferRef buffer) {
  return static_cast<PVSampleBufferRef>(const_cast<void*>(buffer));
}

BRComparisonResult compareBackwards(PVBufferRef a, PVBufferRef b, void* refcon) {
  return PVBufferQueueGetCallbacksForSampleBuffersSortedByOutputPTS()->compare(b, a, refcon);
}

}  // namespace

TrackPlayer::TrackPlayer(std::unique_ptr<OutputIndex> index, PVTimebaseRef timebase, BRRunLoopRef runLoop,
                         PVTime from, PVTime to)
    : index_(std::move(index)), timebase_(timebase), from_(from), to_(to) {
  const BRRunLoopTimerContext context{0, this, nullptr, nullptr};
  timer_ = br::Ref<BRRunLoopTimer>::adopt(BRRunLoopTimerCreate(
      nullptr, INFINITY, kIntervalSeconds,
      [](BRRunLoopTimerRef, void* info) { static_cast<TrackPlayer*>(info)->deliverDue(); }, &context));
  BRRunLoopAddTimer(runLoop, timer_.get(), kBRRunLoopDefaultMode);
  PVTimebaseAddTimer(timebase_, timer_.get(), runLoop);
}

TrackPlayer::~TrackPlayer() {
  PVTimebaseRemoveTimer(timebase_, timer_.get());
  BRRunLoopTimerInvalidate(timer_.get());
}

void TrackPlayer::createQueue() {
  PVBufferCallbacks callbacks = *PVBufferQueueGetCallbacksForSampleBuffersSortedByOutputPTS();
  if (backwards_) callbacks.compare = compareBackwards;
  PVBufferQueueCreate(nullptr, 0, &callbacks, queue_.out());
  PVBufferQueueTriggerToken token;
  PVBufferQueueInstallTrigger(
      queue_.get(),
      [](void* self, PVBufferQueueTriggerToken) { static_cast<TrackPlayer*>(self)->needsMore_ = true; }, this,
      kPVBufferQueueTrigger_WhenDurationBecomesLessThan, PVTimeMakeWithSeconds(kLowWaterSeconds, 1000),
      &token);
  PVBufferQueueInstallTrigger(
      queue_.get(),
      [](void* self, PVBufferQueueTriggerToken) { static_cast<TrackPlayer*>(self)->needsMore_ = false; },
      this, kPVBufferQueueTrigger_WhenDurationBecomesGreaterThanOrEqualTo,
      PVTimeMakeWithSeconds(kHighWaterSeconds, 1000), &token);
}

void TrackPlayer::restart(bool backwards) {
  backwards_ = backwards;
  lastTime_ = kPVTimeInvalid;
  createQueue();
  const PVTime now = PVTimebaseGetTime(timebase_);
  const size_t first = index_->positionAt(from_), behind = index_->positionAt(to_);
  const size_t here = std::clamp(index_->positionAt(now), first, behind);
  next_ = here;  // backwards, the one before it
  left_ = backwards ? here - first : behind - here;
  fill();
  setTimer();
}

// Triggers may not change the queue: they say what to do, and it is done here.
void TrackPlayer::fill() {
  for (; needsMore_ && left_ > 0; --left_) {
    br::Ref<PVSampleBuffer> sample;
    const size_t position = backwards_ ? --next_ : next_++;
    if (index_->create(position, sample.out()) != kPVStatus_Success ||
        PVBufferQueueEnqueue(queue_.get(), sample.get()) != kPVStatus_Success)
      ++dropped_;
  }
  if (left_ == 0 && !PVBufferQueueContainsEndOfData(queue_.get())) PVBufferQueueMarkEndOfData(queue_.get());
}

bool TrackPlayer::isDue(PVTime time, PVTime now) const {
  const int32_t order = PVTimeCompare(time, now);
  return backwards_ ? order >= 0 : order <= 0;
}

void TrackPlayer::deliverDue() {
  while (PVBufferRef head = PVBufferQueueGetHead(queue_.get())) {
    const PVTime now = PVTimebaseGetTime(timebase_);
    if (!isDue(PVSampleBufferGetOutputPresentationTimeStamp(asSample(head)), now)) break;
    const auto sample = br::Ref<PVSampleBuffer>::adopt(asSample(PVBufferQueueDequeueAndRetain(queue_.get())));
    deliver(sample.get(), now);
    fill();
  }
  setTimer();
}

void TrackPlayer::deliver(PVSampleBufferRef sample, PVTime now) {
  const PVTime time = PVSampleBufferGetOutputPresentationTimeStamp(sample);
  if (!PVSampleBufferDataIsReady(sample)) {
    ++dropped_;
    return;
  }
  if (PVTimeIsNumeric(lastTime_) && !isDue(lastTime_, time)) ++outOfOrder_;
  lastTime_ = time;
  const double rate = std::abs(PVTimebaseGetRate(timebase_));
  const double late = std::abs(PVTimeGetSeconds(PVTimeSubtract(now, time)));
  lateness_.push_back(static_cast<float>(rate > 0 ? late / rate : 0));
  ++delivered_;
}

void TrackPlayer::setTimer() {
  PVBufferRef head = PVBufferQueueGetHead(queue_.get());
  PVTimebaseSetTimerNextFireTime(
      timebase_, timer_.get(),
      head ? PVSampleBufferGetOutputPresentationTimeStamp(asSample(head)) : kPVTimeInvalid, 0);
}

Lateness TrackPlayer::lateness() const {
  if (lateness_.empty()) return {};
  std::vector<float> sorted = lateness_;
  std::ranges::sort(sorted);
  const auto at = [&](double share) {
    return static_cast<double>(sorted[static_cast<size_t>(share * static_cast<double>(sorted.size() - 1))]);
  };
  return {at(0.5), at(0.99), at(1)};
}
