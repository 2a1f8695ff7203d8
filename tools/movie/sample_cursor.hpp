// Goes through the samples of a track in decoding order, exactly and without an index of its own.
#pragma once

#include <cstdint>

#include "movie_track.hpp"

// A small record: copy it to remember a place. The track must stay as it is.
class SampleCursor {
 public:
  explicit SampleCursor(const MovieTrack& track);

  // False behind the last sample.
  bool next(MovieSample& sample) { return index_ < tableCount_ ? nextOfTables(sample) : nextOfRuns(sample); }

 private:
  bool nextOfTables(MovieSample& sample);
  bool nextOfRuns(MovieSample& sample);
  void openChunk();
  void openTimes();
  void openOffsets();
  void openSync();
  uint32_t unusualSize() const;
  void takeChunk(MovieSample& sample);

  const MovieTrack* track_;
  const uint8_t* sizes_ = nullptr;         // of 32 bits
  const uint8_t* dependencies_ = nullptr;  // if each sample has them
  uint64_t tableCount_;
  uint64_t index_ = 0;
  int64_t decode_ = 0, offset_ = 0;
  // How many samples are left of the entry that each table is at.
  uint64_t timesLeft_ = 0, offsetsLeft_ = 0, chunkLeft_ = 0;
  uint32_t duration_ = 0, samplesPerChunk_ = 0, description_ = 0;
  int32_t compositionOffset_ = 0;
  uint64_t syncAt_ = 0;  // the next sync sample; 0 when all are
  // Which entry comes next.
  uint64_t nextTime_ = 0, nextOffset_ = 0, nextChunk_ = 0, nextChunkRun_ = 0, nextSync_ = 0;
  size_t run_ = 0;
  uint32_t inRun_ = 0;
};
