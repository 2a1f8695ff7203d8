// A movie's samples as sample buffers, in the order in which they are shown.
#pragma once

#include <pevrin/block_buffer.h>
#include <pevrin/buffer_queue.h>
#include <pevrin/sample_buffer.h>

#include <bedra/ref.hpp>
#include <cstdint>
#include <functional>
#include <span>
#include <unordered_map>
#include <vector>

#include "movie/edit_map.hpp"
#include "movie/movie_index.hpp"
#include "output.hpp"
#include "progress.hpp"
#include "sample_descriptions.hpp"

// One sample, or one chunk of uncompressed sound, as it leaves the queue. The times are on the movie's
// timeline.
struct ListedSample {
  uint64_t index = 0, count = 1;
  PVTime decode, presentation, duration;
  size_t size = 0;
  int64_t offset = 0;  // negative when there is no such place in a file
  bool sync = true;
  bool hidden = false;   // no edit shows it
  bool missing = false;  // its bytes are not all in the file
};

// How the uncompressed sound of each description is packed.
std::vector<MovieTrack::Packing> packingsOf(std::span<const SampleDescription> descriptions);

class SampleListing {
 public:
  using Use = std::function<void(const ListedSample&)>;

  SampleListing(const MovieFacts& facts, const MovieIndex& index, const SampleDescriptions& descriptions,
                PVBlockBufferRef media, int64_t fileSize, const Output& output, Progress& progress,
                std::vector<Damage>& damages);

  // Gives every sample of the track to use and tells the longest that the queue was.
  PVTime list(size_t track, const Use& use);

 private:
  struct Waiting {
    MovieSample place;
    bool missing;
  };
  // What the samples of one track have in common.
  struct Track {
    const MovieTrack& samples;
    int32_t timescale;
    EditMap edits;
    std::vector<PVFormatDescriptionRef> formats;  // by description from 1, lent
    std::unordered_map<PVSampleBufferRef, Waiting> waiting;
    uint64_t missingCount = 0, firstMissing = 0;
  };

  PVStatus enqueue(Track& track, const MovieSample& place, PVBufferQueueRef queue) const;
  PVStatus create(const Track& track, const MovieSample& place, bool missing,
                  PVSampleBufferRef* bufferOut) const;
  bool isInFile(const MovieSample& place) const {
    return place.offset >= 0 && place.size <= fileSize_ - place.offset;
  }
  void useHead(Track& track, PVBufferQueueRef queue, const Use& use) const;
  void reportTimeless(size_t number);
  void report(const Track& track, size_t number, PVStatus status);

  const MovieFacts& facts_;
  const MovieIndex& index_;
  const SampleDescriptions& descriptions_;
  PVBlockBufferRef media_;
  int64_t fileSize_;
  const Output& output_;
  Progress& progress_;
  std::vector<Damage>& damages_;
};
