// The sample tables of a track that is being written (ISO/IEC 14496-12 8.6.1 to 8.7.5).
#pragma once

#include <kiv/atom_writer.h>

#include <cstdint>
#include <utility>
#include <vector>

#include "interleaver.hpp"

// Takes the chunks of one track in their order and keeps what the tables say, run-length coded where the
// tables are.
class TrackTables {
 public:
  explicit TrackTables(const MovieTrack& samples) : samples_(samples) {}

  // offset: of the chunk's bytes, from the start of the media data.
  void add(const OutputChunk& chunk, uint64_t offset);
  // Behind the last chunk.
  void finish();

  // Writes all tables but the descriptions into an 'stbl'. mediaOffset: of the media data in the file; wide:
  // with 64-bit offsets. quickTime: composition offsets are signed in version 0, too.
  void write(KivAtomWriter& stbl, uint64_t mediaOffset, bool wide, bool quickTime) const;

  uint64_t sampleCount() const { return sampleCount_; }
  int64_t firstDecode() const { return firstDecode_; }
  int64_t duration() const { return duration_; }
  // Where the last picture that is shown ends, from the first decoding time.
  int64_t shownEnd() const { return shownEnd_; }

 private:
  struct Run {
    uint32_t count;
    int64_t value;
  };
  struct Chunk {
    uint64_t offset;
    uint32_t samples, description;
  };
  static void addTo(std::vector<Run>& runs, int64_t value, uint64_t count);
  void addSample(const MovieSample& sample);
  void writeTimes(KivAtomWriter& stbl, bool quickTime) const;
  void writeSizes(KivAtomWriter& stbl) const;
  void writeChunks(KivAtomWriter& stbl, uint64_t mediaOffset, bool wide) const;

  const MovieTrack& samples_;
  uint64_t sampleCount_ = 0;
  int64_t firstDecode_ = 0, lastDecode_ = 0, lastDuration_ = 0, duration_ = 0, shownEnd_ = 0;
  std::vector<Run> times_, offsets_;
  std::vector<uint32_t> sizes_, syncs_;
  std::vector<uint8_t> dependencies_;
  std::vector<Chunk> chunks_;
  bool allSync_ = true, anyDependency_ = false;
};
