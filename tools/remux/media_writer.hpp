// Sample buffers on their way into a file's media data.
#pragma once

#include <kiv/atom_writer.h>
#include <pevrin/buffer_queue.h>
#include <pevrin/sample_buffer.h>

#include <bedra/ref.hpp>
#include <cstdint>
#include <functional>
#include <vector>

#include "movie/movie_track.hpp"
#include "progress.hpp"

// Makes the buffer of a track's sample, as PVSampleBufferCreate does.
using SampleMaker = std::function<PVStatus(size_t track, const MovieSample&, PVSampleBufferRef*)>;

// Samples of a track go through a queue, in decoding order, and leave it as bytes of an 'mdat'.
class MediaWriter {
 public:
  // Samples are made by create, of media that are mapped.
  MediaWriter(SampleMaker create, PVBlockBufferRef media, uint64_t totalBytes, Progress& progress);

  // Appends the data of samples of one track.
  void append(KivAtomWriter& mdat, size_t track, const std::vector<MovieSample>& samples);
  // Before the atom ends.
  void flush(KivAtomWriter& mdat);

 private:
  void appendData(KivAtomWriter& mdat, PVSampleBufferRef sample);

  SampleMaker create_;
  PVBlockBufferRef media_;
  br::Ref<PVBufferQueue> queue_;
  std::vector<uint8_t> pending_;
  uint64_t totalBytes_, doneBytes_ = 0, mappedBytes_ = 0;
  Progress& progress_;
};
