// A track's samples in the order in which they are shown, found by number.
#pragma once

#include <pevrin/sample_buffer.h>

#include <cstdint>
#include <vector>

#include "movie/sample_cursor.hpp"
#include "track_samples.hpp"

// What playing backwards and from anywhere takes: 28 bytes for each sample, and a mark in the tables now and
// then.
class OutputIndex {
 public:
  explicit OutputIndex(TrackSamples samples);

  // Samples that no edit shows are not counted.
  size_t count() const { return order_.size(); }
  PVTime timeAt(size_t position) const { return times_[order_[position]]; }
  // The first position not before a time; the count when there is none.
  size_t positionAt(PVTime time) const;
  // Where the last one ends.
  PVTime end() const { return end_; }

  // The sample as a buffer with its output time.
  PVStatus create(size_t position, PVSampleBufferRef* bufferOut);

 private:
  static constexpr size_t kBlock = 256;

  TrackSamples samples_;
  std::vector<PVTime> times_;        // by place in decoding order
  std::vector<uint32_t> order_;      // positions: places, by time
  std::vector<SampleCursor> marks_;  // before every kBlock-th place
  std::vector<MovieSample> block_;   // the places from openBlock_ * kBlock on
  size_t openBlock_ = SIZE_MAX;
  PVTime end_ = kPVTimeZero;
};
