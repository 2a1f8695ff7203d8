#include "atom_type.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <iterator>

namespace {

// Atoms that hold nothing but atoms, wherever they stand. 'stsd' and 'dref' hold a count first and are left
// closed.
constexpr std::array kContainers = {
    fourCC("clip"), fourCC("cmov"), fourCC("dinf"), fourCC("edts"), fourCC("gmhd"), fourCC("hinf"),
    fourCC("hnti"), fourCC("ilst"), fourCC("ipco"), fourCC("iprp"), fourCC("matt"), fourCC("mdia"),
    fourCC("meco"), fourCC("mfra"), fourCC("minf"), fourCC("moof"), fourCC("moov"), fourCC("mvex"),
    fourCC("rinf"), fourCC("rmda"), fourCC("rmra"), fourCC("schi"), fourCC("sinf"), fourCC("stbl"),
    fourCC("strd"), fourCC("strk"), fourCC("tapt"), fourCC("traf"), fourCC("trak"), fourCC("tref"),
    fourCC("trgr"), fourCC("udta"),
};
static_assert(std::ranges::is_sorted(kContainers));

constexpr std::array kFirstAtoms = {
    fourCC("PICT"), fourCC("emsg"), fourCC("free"), fourCC("ftyp"), fourCC("mdat"), fourCC("meta"),
    fourCC("mfra"), fourCC("moof"), fourCC("moov"), fourCC("pdin"), fourCC("pnot"), fourCC("prft"),
    fourCC("sidx"), fourCC("skip"), fourCC("styp"), fourCC("udta"), fourCC("uuid"), fourCC("wide"),
};
static_assert(std::ranges::is_sorted(kFirstAtoms));

}  // namespace

std::string typeText(PVFourCharCode type) {
  std::string text;
  for (int shift = 24; shift >= 0; shift -= 8) {
    const unsigned byte = type >> shift & 0xFF;
    if (byte >= 0x20 && byte < 0x7F && byte != '\\') {
      text += static_cast<char>(byte);
    } else {
      fmt::format_to(std::back_inserter(text), "\\x{:02x}", byte);
    }
  }
  return text;
}

Contents contentsOf(PVFourCharCode type, PVFourCharCode parent) {
  const bool filler = type == fourCC("free") || type == fourCC("skip");
  if (parent == fourCC("tref") || filler) return Contents::Data;
  if (parent == fourCC("ilst")) return Contents::Atoms;
  if (parent == fourCC("gmhd") && type == fourCC("tmcd")) return Contents::Atoms;
  if (type == fourCC("meta")) return Contents::Meta;
  return std::ranges::binary_search(kContainers, type) ? Contents::Atoms : Contents::Data;
}

bool beginsMovies(PVFourCharCode type) { return std::ranges::binary_search(kFirstAtoms, type); }
