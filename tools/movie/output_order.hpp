// What is needed to give out samples in the order in which they are shown while they come in decoding order.
#pragma once

#include <cstdint>
#include <vector>

#include "edit_map.hpp"
#include "sample_cursor.hpp"

// Tells, sample by sample in decoding order, the earliest time at which any later sample is shown: whatever
// is shown by then can go out. So never more samples wait than the order demands, be it the two of a pair of
// B-frames or the whole track that is shown backwards. Kept is one time for every 256 samples.
class UpcomingTimes {
 public:
  UpcomingTimes(const MovieTrack& track, const EditMap& edits);

  uint64_t sampleCount() const { return sampleCount_; }  // a chunk given out whole counts as one
  // After the first, second, ... sample. Positive infinity after the last.
  PVTime next();

 private:
  static constexpr size_t kBlock = 256;

  bool take(PVTime& time);
  void openBlock();

  SampleCursor cursor_;
  const EditMap& edits_;
  uint64_t sampleCount_ = 0;
  std::vector<PVTime> blocks_;  // the earliest from a block's first sample to the track's end
  size_t nextBlock_ = 0;
  std::vector<PVTime> upcoming_;  // of the current block: after each of its samples
  size_t at_ = 0;
};
