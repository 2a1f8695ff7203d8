// A movie's samples as sample buffers, in the order in which they are shown.
#pragma once

#include <pevrin/block_buffer.h>
#include <pevrin/buffer_queue.h>
#include <pevrin/sample_buffer.h>

#include <bedra/ref.hpp>
#include <cstdint>
#include <functional>
#include <optional>
#include <unordered_map>
#include <vector>

#include "movie/movie_index.hpp"
#include "output.hpp"
#include "progress.hpp"
#include "sample_descriptions.hpp"
#include "track_samples.hpp"

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
  std::optional<bool> dependsOnOthers, isDependedOnByOthers, hasRedundantCoding;  // where the file tells
};

class SampleListing {
 public:
  using Use = std::function<void(const ListedSample&)>;

  SampleListing(const MovieFacts& facts, const MovieIndex& index, const SampleDescriptions& descriptions,
                PVBlockBufferRef media, const Output& output, Progress& progress,
                std::vector<Damage>& damages);

  // Gives every sample of the track to use and tells the longest that the queue was.
  PVTime list(size_t track, const Use& use);

 private:
  struct Waiting {
    MovieSample place;
    bool missing;
  };
  struct Track {
    TrackSamples samples;
    std::unordered_map<PVSampleBufferRef, Waiting> waiting;
    uint64_t missingCount = 0, firstMissing = 0;
  };

  PVStatus enqueue(Track& track, const MovieSample& place, PVBufferQueueRef queue) const;
  void useHead(Track& track, PVBufferQueueRef queue, const Use& use) const;
  void reportTimeless(size_t number);
  void report(const Track& track, size_t number, PVStatus status);

  const MovieFacts& facts_;
  const MovieIndex& index_;
  const SampleDescriptions& descriptions_;
  PVBlockBufferRef media_;
  const Output& output_;
  Progress& progress_;
  std::vector<Damage>& damages_;
};
