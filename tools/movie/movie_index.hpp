// Where all samples of a movie are: the tables and fragments of its tracks.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "atom_walk.hpp"
#include "damage.hpp"
#include "fragments.hpp"
#include "movie_facts.hpp"
#include "movie_track.hpp"

// Fed from a walk over the movie's atoms. It reads tables, never media; what it keeps is as large as the
// tables in the file are.
class MovieIndex {
 public:
  explicit MovieIndex(int64_t fileSize) : bytesLeft_(fileSize), fragments_(fileSize) {}

  // An atom begins, on which the walk stands; facts have taken it already.
  void noteAtom(const Atom& atom, const KivAtomStream* stream, AtomWalk& walk, const MovieFacts& facts,
                std::vector<Damage>& damages);
  // Behind the last atom.
  void finish(const MovieFacts& facts, std::vector<Damage>& damages) { settle(facts, damages); }

  // In the order of MovieFacts::tracks().
  std::span<MovieTrack> tracks() { return tracks_; }
  std::span<const MovieTrack> tracks() const { return tracks_; }

  // The path and offset of an atom in the track's 'stbl'; of the 'stbl' itself when there is none of that
  // type.
  std::pair<std::string, int64_t> placeOf(size_t track, PVFourCharCode type) const;
  // The same of the table that says where the samples are.
  std::pair<std::string, int64_t> chunkTableOf(size_t track) const;

 private:
  void noteTable(const Atom& atom, const KivAtomStream* stream, AtomWalk& walk, std::vector<Damage>& damages);
  std::optional<Fault> noteFragment(const Atom& atom, const KivAtomStream* stream, size_t depth);
  void settle(const MovieFacts& facts, std::vector<Damage>& damages);

  int64_t bytesLeft_;  // what samples without an entry of their own may still take
  Fragments fragments_;
  std::vector<MovieTrack> tracks_;
  size_t settled_ = 0;
};
