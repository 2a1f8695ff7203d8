// What a movie says of its samples besides the tables that are made anew.
#pragma once

#include <kiv/atom_writer.h>

#include <cstdint>
#include <string>

#include "movie_file.hpp"

// Samples stay in their groups: the 'sbgp' atoms are written for the samples that come together. Everything
// else goes along only where all tables are copied, from a movie without fragments into one.

// Whether the tables of a track are copied but for those that are made anew.
bool areTablesCopied(const MovieFile& movie, size_t track, bool fragmented);

// Whether a type of atom in an 'stbl' is made anew.
bool isMadeAnew(PVFourCharCode type);

// Writes the 'sbgp' atoms of count samples, as many as a table can count, from the first one on; none where
// nothing is said of them.
void writeGroups(KivAtomWriter& parent, const SampleGroups& groups, uint64_t first, uint64_t count);

// What the output will not say of a track's samples, to be read by people: "'stps', 'prol' groups"; empty
// when nothing is lost. Throws RemuxFailure for what the samples cannot be used without.
std::string leftOut(const MovieFile& movie, size_t track, bool fragmented);
