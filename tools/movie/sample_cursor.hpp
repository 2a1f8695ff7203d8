// Goes through the samples of a track in decoding order, exactly and without an index of its own.
#pragma once

#include <cstdint>

#include "movie_track.hpp"

// A small record: copy it to remember a place. The track must stay as it is.
class SampleCursor {
 public:
  explicit SampleCursor(const MovieTrack& track) : track_(&track) {}

  // False behind the last sample.
  bool next(MovieSample& sample) {
    return index_ < track_->tables.sampleCount ? nextOfTables(sample) : nextOfRuns(sample);
  }

 private:
  bool nextOfTables(MovieSample& sample);
  bool nextOfRuns(MovieSample& sample);
  void openChunk();
  int64_t sizeInTables() const;
  void takeChunk(MovieSample& sample);

  const MovieTrack* track_;
  uint64_t index_ = 0;
  int64_t decode_ = 0, offset_ = 0;
  // How many samples are left of what each table is at, and which entry comes next.
  uint64_t timesLeft_ = 0, nextTime_ = 0, offsetsLeft_ = 0, nextOffset_ = 0;
  uint64_t chunkLeft_ = 0, nextChunk_ = 0, nextChunkRun_ = 0, nextSync_ = 0;
  uint32_t duration_ = 0, samplesPerChunk_ = 0, description_ = 0;
  int32_t compositionOffset_ = 0;
  size_t run_ = 0;
  uint32_t inRun_ = 0;
};
