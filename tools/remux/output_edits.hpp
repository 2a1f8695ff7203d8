// The edits of a movie that is written with tables (ISO/IEC 14496-12 8.6.6).
#pragma once

#include <cstdint>
#include <vector>

#include "movie_file.hpp"

// A count of units in other units, rounded up so that nothing is cut off.
uint64_t rescaled(uint64_t value, uint32_t from, uint32_t to);

// The input's edits. Where its fragments began later than at 0, the media of the output begin earlier by that
// much; an edit to the end of all fragments gets its length. firstDecode: of the track's samples; shownEnd:
// where the last picture that is shown ends, from there.
std::vector<Edit> outputEdits(const MovieFile& movie, size_t track, int64_t firstDecode, int64_t shownEnd);

// Where the first sample is decoded on the movie's timeline, by the first of these edits that shows media;
// in units of the track.
int64_t startByEdits(const MovieFile& movie, size_t track, int64_t firstDecode);
