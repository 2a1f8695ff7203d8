// A movie that is opened for its samples.
#pragma once

#include <pevrin/block_buffer.h>

#include <bedra/ref.hpp>
#include <string>
#include <vector>

#include "atom_walk.hpp"
#include "input_file.hpp"
#include "movie/movie_index.hpp"
#include "movie_facts.hpp"
#include "sample_descriptions.hpp"
#include "track_samples.hpp"

// Reads headers and tables; the media are mapped and stay in the file.
class MovieFile final : private AtomVisitor {
 public:
  // Goes through the file, which must stay open. What is wrong with it is in damages().
  explicit MovieFile(const InputFile& file);
  // Through a stream of that size. mediaSize: of what the samples are in, wherever that is.
  MovieFile(KivByteStreamRef stream, int64_t size, int64_t mediaSize);

  bool hasMovie() const { return facts_.hasMovie(); }
  const MovieFacts& facts() const { return facts_; }
  const MovieIndex& index() const { return index_; }
  const SampleDescriptions& descriptions() const { return descriptions_; }
  const std::vector<Damage>& damages() const { return damages_; }
  // The atoms on the top level.
  const std::vector<Atom>& atoms() const { return atoms_; }
  KivByteStreamRef stream() const { return stream_; }
  PVBlockBufferRef media() const { return media_.get(); }

  // Whether the track has a timescale, without which its samples have no times.
  bool isTimed(size_t track) const;
  // The samples of a timed track.
  TrackSamples samplesOf(size_t track) const;

 private:
  bool beginAtom(const Atom& atom, const KivAtomStream* stream, AtomWalk& walk) override;
  void endAtom() override {}
  void damaged(Damage damage) override { damages_.push_back(std::move(damage)); }

  KivByteStreamRef stream_;
  MovieFacts facts_;
  SampleDescriptions descriptions_;
  MovieIndex index_;
  std::vector<Atom> atoms_;
  std::vector<Damage> damages_;
  br::Ref<PVBlockBuffer> media_;
};
