#include "output_order.hpp"

UpcomingTimes::UpcomingTimes(const MovieTrack& track, const EditMap& edits) : cursor_(track), edits_(edits) {
  PVTime time;
  for (; take(time); ++sampleCount_) {
    if (sampleCount_ % kBlock == 0) blocks_.push_back(time);
    blocks_.back() = PVTimeMinimum(blocks_.back(), time);
  }
  blocks_.push_back(kPVTimePositiveInfinity);
  for (size_t i = blocks_.size() - 1; i > 0; --i) blocks_[i - 1] = PVTimeMinimum(blocks_[i - 1], blocks_[i]);
  cursor_ = SampleCursor(track);
  upcoming_.reserve(kBlock);
}

PVTime UpcomingTimes::next() {
  if (at_ == upcoming_.size()) openBlock();
  return at_ < upcoming_.size() ? upcoming_[at_++] : kPVTimePositiveInfinity;
}

bool UpcomingTimes::take(PVTime& time) {
  MovieSample sample;
  if (!cursor_.next(sample)) return false;
  time = edits_.at(sample.composition, sample.duration).time;
  return true;
}

void UpcomingTimes::openBlock() {
  upcoming_.clear();
  at_ = 0;
  PVTime time;
  while (upcoming_.size() < kBlock && take(time)) upcoming_.push_back(time);
  if (upcoming_.empty()) return;
  PVTime earliest = blocks_[++nextBlock_];
  for (size_t i = upcoming_.size(); i > 0; --i) {
    time = upcoming_[i - 1];
    upcoming_[i - 1] = earliest;
    earliest = PVTimeMinimum(earliest, time);
  }
}
