// The samples of a movie's track as sample buffers.
#pragma once

#include <pevrin/block_buffer.h>
#include <pevrin/sample_buffer.h>

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "movie/edit_map.hpp"
#include "movie/movie_track.hpp"
#include "movie_facts.hpp"
#include "sample_descriptions.hpp"

// Attaches to each sample of the buffer what is known of sync and dependencies.
PVStatus attachFacts(PVSampleBufferRef buffer, const MovieSample& place);

// How the uncompressed sound of each description is packed.
std::vector<MovieTrack::Packing> packingsOf(std::span<const SampleDescription> descriptions);

// Samples become buffers over references to the movie's bytes: none is read. A buffer whose bytes are not all
// in the file has no data and is not ready.
class TrackSamples {
 public:
  // media: the movie's bytes, or null; it, the track and the descriptions must stay. The timescale is
  // positive.
  TrackSamples(const TrackFacts& facts, std::optional<uint32_t> movieTimescale, const MovieTrack& samples,
               std::span<const SampleDescription> descriptions, PVBlockBufferRef media);

  // As it stands in the media, with what is known of sync and dependencies attached. The samples of a chunk
  // of uncompressed sound share one timing and one size entry.
  PVStatus create(const MovieSample& place, PVSampleBufferRef* bufferOut) const;
  // The same with its output time on the movie's timeline, and its speed; one that no edit shows is attached
  // "DoNotDisplay".
  PVStatus createShown(const MovieSample& place, PVSampleBufferRef* bufferOut) const;

  bool isMissing(const MovieSample& place) const {
    return place.size > 0 && (place.offset < 0 || place.size > mediaLength_ - place.offset);
  }
  PVTime durationOf(const MovieSample& place) const { return PVTimeMake(place.duration, timescale_); }
  const MovieTrack& places() const { return samples_; }
  const EditMap& edits() const { return edits_; }

 private:
  const MovieTrack& samples_;
  int32_t timescale_;
  EditMap edits_;
  std::vector<PVFormatDescriptionRef> formats_;  // by description from 1, lent
  PVBlockBufferRef media_;
  int64_t mediaLength_;
};

// What the first sample's dictionary says, if it does; and whether it says yes.
std::optional<bool> answerAttached(PVSampleBufferRef buffer, BRStringRef key);
bool isAttached(PVSampleBufferRef buffer, BRStringRef key);
