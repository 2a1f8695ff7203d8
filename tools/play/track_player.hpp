// One track that is being played: its queue, its timer, what became of its samples.
#pragma once

#include <bedra/run_loop.h>
#include <pevrin/buffer_queue.h>
#include <pevrin/timebase.h>
#include <pevrin/timebase_timer.h>

#include <bedra/ref.hpp>
#include <cstdint>
#include <memory>
#include <vector>

#include "output_index.hpp"

// How late samples were, in seconds of the host's clock.
struct Lateness {
  double p50 = 0, p99 = 0, maximum = 0;
};

// Samples go into a queue that is sorted by output presentation time, in the direction of play. A trigger
// says when it holds too little, another one when it holds enough. A timer of the timebase fires when the
// next sample is due, which is then delivered: its bytes are there to be looked at.
class TrackPlayer {
 public:
  // from, to: what of the movie's timeline is played, from < to. The timebase and the run loop stay.
  TrackPlayer(std::unique_ptr<OutputIndex> index, PVTimebaseRef timebase, BRRunLoopRef runLoop, PVTime from,
              PVTime to);
  ~TrackPlayer();
  TrackPlayer(const TrackPlayer&) = delete;
  TrackPlayer& operator=(const TrackPlayer&) = delete;

  // Begins anew at the timebase's time, in the direction of the rate.
  void restart(bool backwards);
  // Everything in the range has been delivered.
  bool isAtEnd() const { return PVBufferQueueIsAtEndOfData(queue_.get()); }

  uint64_t delivered() const { return delivered_; }
  uint64_t dropped() const { return dropped_; }
  uint64_t outOfOrder() const { return outOfOrder_; }
  double lastLateness() const { return lateness_.empty() ? 0 : lateness_.back(); }
  PVTime queued() const { return PVBufferQueueGetDuration(queue_.get()); }
  Lateness lateness() const;

 private:
  void createQueue();
  void fill();
  void deliverDue();
  void deliver(PVSampleBufferRef sample, PVTime now);
  void setTimer();
  bool isDue(PVTime time, PVTime now) const;

  std::unique_ptr<OutputIndex> index_;
  PVTimebaseRef timebase_;
  PVTime from_, to_;
  br::Ref<PVBufferQueue> queue_;
  br::Ref<BRRunLoopTimer> timer_;
  bool backwards_ = false;
  bool needsMore_ = true;       // set and cleared by the queue's triggers
  size_t next_ = 0, left_ = 0;  // positions still to be read: the next one, and how many
  PVTime lastTime_ = kPVTimeInvalid;
  uint64_t delivered_ = 0, dropped_ = 0, outOfOrder_ = 0;
  std::vector<float> lateness_;
};
