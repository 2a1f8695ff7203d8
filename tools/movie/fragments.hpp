// Movie fragments (ISO/IEC 14496-12 8.8): 'moof' and what the defaults in 'mvex' leave to it.
#pragma once

#include <kiv/atom_stream.h>

#include <cstdint>
#include <optional>
#include <span>
#include <unordered_map>
#include <vector>

#include "damage.hpp"
#include "movie_track.hpp"

// Takes the atoms of fragments in the order of the file. A run of samples begins
// - in time: where its 'tfdt' says; without one, and for the runs after the first, where the run before it in
//   the track ended, in an earlier fragment or in the sample tables;
// - in the file: at its data offset, which may be negative, from the base of its 'traf'; without a data
//   offset, where the run before it in the 'traf' ended. The base is the one in 'tfhd', or the start of the
//   'moof' when 'tfhd' says so; else the start of the 'moof' for its first 'traf' and the end of the data of
//   the 'traf' before for the others.
class Fragments {
 public:
  explicit Fragments(int64_t fileSize) : fileSize_(fileSize) {}

  // The index in the tracks that an ID has. Of two tracks with one ID the first counts.
  void setTrack(uint32_t id, size_t track) { tracks_.try_emplace(id, track); }

  void beginMovieFragment(int64_t offset);
  void beginTrackFragment();
  std::optional<Fault> readDefaults(const KivAtomStream* stream);  // trex
  std::optional<Fault> readHeader(const KivAtomStream* stream,
                                  std::span<const MovieTrack> tracks);  // tfhd
  std::optional<Fault> readDecodeTime(const KivAtomStream* stream,
                                      std::span<const MovieTrack> tracks);  // tfdt
  // bytesLeft bounds samples that have no entry each, as for SampleTables::settle.
  std::optional<Fault> readRun(const KivAtomStream* stream, std::span<MovieTrack> tracks, int64_t& bytesLeft);

  // That of the current 'traf', once there was its 'tfhd'; its first sample.
  MovieTrack* currentTrack(std::span<MovieTrack> tracks) const { return track_ ? &tracks[*track_] : nullptr; }
  uint64_t firstSample() const { return firstSample_; }

 private:
  struct Defaults {
    uint32_t description = 0, duration = 0, size = 0, flags = 0;
  };

  std::optional<Fault> place(FragmentRun& run, const AtomFields& fields, MovieTrack& track);
  int64_t& endTimeOf(size_t index, const MovieTrack& track);

  int64_t fileSize_;
  std::unordered_map<uint32_t, size_t> tracks_;
  std::unordered_map<uint32_t, Defaults> defaults_;
  std::unordered_map<size_t, int64_t> endTimes_;  // of tracks that have fragments

  int64_t movieFragment_ = 0;  // its offset
  int64_t dataEnd_ = 0;        // of the run before, in the fragment
  // of the current 'traf'
  std::optional<size_t> track_;
  Defaults current_;
  int64_t base_ = 0;
  uint64_t firstSample_ = 0;
};
