// Types of atoms: how they are written, and which of them hold atoms.
#pragma once

#include <pevrin/base.h>

#include <string>
#include <string_view>

// The four-character code that spells the text: fourCC("moov").
constexpr PVFourCharCode fourCC(const char (&text)[5]) {
  PVFourCharCode code = 0;
  for (int i = 0; i < 4; ++i) code = code << 8 | static_cast<unsigned char>(text[i]);
  return code;
}

// The four characters; a byte that is not printable ASCII, and a backslash, as \xHH: "\xa9nam". So two types
// never read the same.
std::string typeText(PVFourCharCode type);

// What the data of an atom is.
enum class Contents {
  Data,  // bytes
  Atoms,
  Meta,  // atoms, behind version and flags in ISO files (ISO/IEC 14496-12 8.11.1) but not in QuickTime ones
  Entries,     // atoms, behind version, flags and their count (8.5.2)
  VisualEntry  // atoms, behind the fields of a visual sample entry (12.1.3)
};

// It depends on the enclosing atom too: every item of an 'ilst' holds atoms, and 'tmcd' does in a 'gmhd' but
// is a list of track IDs in a 'tref'. Of sample entries those of video codecs are known to hold atoms. parent
// is 0 at the top.
Contents contentsOf(PVFourCharCode type, PVFourCharCode parent);

// Whether movie files are known to begin with such an atom.
bool beginsMovies(PVFourCharCode type);
