// The header of the movie that is written: the input's, with what changes put in its place.
#pragma once

#include <kiv/atom_writer.h>

#include <bedra/ref.hpp>
#include <cstdint>
#include <vector>

#include "movie_file.hpp"
#include "output_family.hpp"
#include "track_tables.hpp"

// What is carried over as it stands is every atom of the header that is not named here. Tables of samples are
// made anew. Sample descriptions are written in the output's family, and handlers spelt as it has them.
// Durations and the start of the media are put in where the input's header left them to its fragments.
struct HeaderPlan {
  const MovieFile& movie;
  Family family;
  bool sameFamily;  // as the input
  const std::vector<TrackTables>& tables;

  // Fragments follow: the header has no samples.
  bool fragmented;
  // Of the media data in the output, and whether offsets take 64 bits.
  uint64_t mediaOffset;
  bool wide;
};

// The 'moov' atom as bytes. Throws RemuxFailure, also for what cannot be carried over.
br::Ref<PVBlockBuffer> buildMovieHeader(const HeaderPlan& plan);

// The family that a movie was written in, by the major brand of its 'ftyp'; QuickTime without one.
Family familyOf(const MovieFile& movie);

// The 'ftyp' atom: the input's when the family is the same and the kind is, too, else one that says what is
// in the file.
br::Ref<PVBlockBuffer> buildFileType(const MovieFile& movie, Family family, bool fragmented);

// Sets a KivAtomStream on an atom of the top level.
KivAtomStream streamAt(const MovieFile& movie, const Atom& atom);
