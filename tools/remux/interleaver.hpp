// The order in which samples stand in a movie file: chunks of the tracks by turns.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "movie/movie_track.hpp"
#include "movie/sample_cursor.hpp"

struct OutputChunk {
  size_t track = 0;
  uint32_t description = 0;
  std::vector<MovieSample> samples;  // one or more, in decoding order
};

// Gives out the samples of all tracks in decoding order, half a second of a track at a time, always of the
// track whose next sample is decoded first on the movie's timeline. The same movie gives the same chunks each
// time, also when it was written in them.
class Interleaver {
 public:
  struct Source {
    const MovieTrack* samples;
    uint32_t timescale;
    int64_t start;  // where the first sample is decoded on the movie's timeline
  };
  explicit Interleaver(const std::vector<Source>& sources);

  // False behind the last one.
  bool next(OutputChunk& chunk);

 private:
  struct Track {
    SampleCursor cursor;
    uint32_t timescale;
    std::optional<MovieSample> upcoming;
    __int128 shift;  // from decoding times to the movie's timeline
    void advance();
  };
  static bool isEarlier(const Track& one, const Track& other);

  std::vector<Track> tracks_;
};
