// The samples of an elementary stream in byte stream format: one track of video.
#pragma once

#include <pevrin/block_buffer.h>
#include <pevrin/sample_buffer.h>

#include <bedra/ref.hpp>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <set>
#include <span>
#include <utility>
#include <vector>

#include "access_units.hpp"
#include "damage.hpp"
#include "frame_rate.hpp"
#include "movie/movie_track.hpp"

// A sample is an access unit; in H.264 the two fields of a frame, which are two, are one sample. Its data are
// its NAL units with length fields of four bytes. Access unit delimiters and all other units stay in it,
// except for parameter sets: when no set of the stream replaces another one, and the pictures have one size,
// they are all in the format description ('avc1', 'hvc1'). Otherwise those that stand before the first
// picture are, and the samples keep theirs ('avc3', 'hev1').
//
// Every sample lasts one frame of a constant rate, or one picture: HEVC pictures may be fields. Samples are
// shown in the order of their picture order counts, sequence after sequence, as early as lets none of them be
// shown before it is decoded. Fields without their other field last as long as frames.
//
// Not samples are pictures before the first one whose parameter sets are there, and units behind the last
// picture that announce another one.
//
// Kept in memory are 24 bytes for each sample; of pictures that wait to be shown no more than decoders keep.
class ElementaryVideo {
 public:
  // How far it is, called now and then.
  using Progressed = std::function<void(int64_t offset)>;

  // Goes through the stream, one piece of memory (<movie/media_map.hpp>), or null for one that could not be
  // mapped. Without a rate it is the one that the stream tells.
  ElementaryVideo(br::Ref<PVBlockBuffer> stream, Codec codec, std::optional<FrameRate> rate,
                  const Progressed& progressed = nullptr);

  // Why there are no samples: the rest is then not to be asked for.
  const std::optional<Damage>& damage() const { return damage_; }
  // Nobody told how many frames a second has: there are no samples either.
  bool needsRate() const { return rate_.count == 0; }

  // A second of the track has rate().count units, a sample rate().seconds of them.
  FrameRate rate() const { return rate_; }
  PVFormatDescriptionRef format() const { return format_.get(); }
  // Pictures that are left out before the first sample because their parameter sets are not there; several
  // count as one when nothing but their slices tells them apart.
  uint64_t picturesLeftOut() const { return leftOut_; }

  uint64_t sampleCount() const { return samples_.size(); }
  // In decoding order, which begins at 0. The size is that of the sample's data; offset is where in the file
  // its first NAL unit begins.
  MovieSample sample(uint64_t index) const;
  // When the first picture is shown that is decoded: leading pictures before it may need what the stream does
  // not have.
  int64_t firstShown() const { return firstShown_; }

  // A sample of this stream as references to the file's bytes: none is read or copied.
  PVStatus createData(uint64_t index, PVBlockBufferRef* dataOut) const;
  // The same with format, times and what is known of sync and dependencies.
  PVStatus create(uint64_t index, PVSampleBufferRef* bufferOut) const;

 private:
  // What is kept of a sample.
  struct Sample {
    enum : uint8_t { kSync = 1, kIntra = 2, kUnused = 4, kRedundant = 8, kHidden = 16 };
    int64_t offset;
    uint32_t dataBytes, setBytes;  // with length fields; the latter are among the former
    int32_t shownAfter;            // its place in display order minus that in decoding order
    uint8_t flags, leading, temporalID;
  };
  using Waiting = std::pair<int64_t, uint64_t>;  // picture order count, index

  void read(AccessUnitReader& reader, const Progressed& progressed);
  void add(const AccessUnit& unit);
  void show(size_t most);
  void settle();
  void chooseRate(const AccessUnitReader& reader, std::optional<FrameRate> wanted);
  void describe(const AccessUnitReader& reader);
  int64_t endOf(uint64_t index) const;
  std::vector<UnitPlace> unitsOf(uint64_t index) const;

  br::Ref<PVBlockBuffer> stream_;
  std::span<const uint8_t> bytes_;
  Codec codec_;
  std::optional<Damage> damage_;
  FrameRate rate_;
  br::Ref<PVFormatDescription> format_;
  bool setsInSamples_ = false;
  uint64_t leftOut_ = 0;
  std::deque<Sample> samples_;
  std::set<Waiting> waiting_;  // of the sequence that is being read, what is not yet shown
  uint64_t shown_ = 0;
  int64_t end_ = 0;    // of the last sample
  int64_t delay_ = 0;  // in samples
  int64_t firstShown_ = 0;
  uint8_t highestSubLayer_ = 0;
};
