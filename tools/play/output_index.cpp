#include "output_index.hpp"

#include <algorithm>

OutputIndex::OutputIndex(TrackSamples samples) : samples_(std::move(samples)) {
  SampleCursor cursor(samples_.places());
  for (MovieSample place;;) {
    if (times_.size() % kBlock == 0) marks_.push_back(cursor);
    if (!cursor.next(place) || times_.size() == UINT32_MAX) break;
    const EditMap::Shown shown = samples_.edits().at(place.composition, place.duration);
    if (!shown.hidden) {
      order_.push_back(static_cast<uint32_t>(times_.size()));
      end_ = PVTimeMaximum(end_, PVTimeAdd(shown.time, samples_.durationOf(place)));
    }
    times_.push_back(shown.time);
  }
  std::ranges::stable_sort(order_,
                           [&](uint32_t a, uint32_t b) { return PVTimeCompare(times_[a], times_[b]) < 0; });
}

size_t OutputIndex::positionAt(PVTime time) const {
  const auto found = std::ranges::partition_point(
      order_, [&](uint32_t place) { return PVTimeCompare(times_[place], time) < 0; });
  return static_cast<size_t>(found - order_.begin());
}

PVStatus OutputIndex::create(size_t position, PVSampleBufferRef* bufferOut) {
  const size_t place = order_[position];
  if (place / kBlock != openBlock_) {
    openBlock_ = place / kBlock;
    block_.clear();
    SampleCursor cursor = marks_[openBlock_];
    for (MovieSample next; block_.size() < kBlock && cursor.next(next);) block_.push_back(next);
  }
  return samples_.createShown(block_[place % kBlock], bufferOut);
}
