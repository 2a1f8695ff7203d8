#include "atom_type.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <iterator>

namespace {

// Atoms that hold nothing but atoms, wherever they stand. 'dref' holds a count first and is left closed.
constexpr std::array kContainers = {
    fourCC("clip"), fourCC("cmov"), fourCC("dinf"), fourCC("edts"), fourCC("gmhd"), fourCC("hinf"),
    fourCC("hnti"), fourCC("ilst"), fourCC("ipco"), fourCC("iprp"), fourCC("matt"), fourCC("mdia"),
    fourCC("meco"), fourCC("mfra"), fourCC("minf"), fourCC("moof"), fourCC("moov"), fourCC("mvex"),
    fourCC("rinf"), fourCC("rmda"), fourCC("rmra"), fourCC("schi"), fourCC("sinf"), fourCC("stbl"),
    fourCC("strd"), fourCC("strk"), fourCC("tapt"), fourCC("traf"), fourCC("trak"), fourCC("tref"),
    fourCC("trgr"), fourCC("udta"),
};
static_assert(std::ranges::is_sorted(kContainers));

// Sample entries of video; others may have a colour table behind their fields, or fields of their own.
constexpr std::array kVisualEntries = {
    fourCC("ap4h"), fourCC("ap4x"), fourCC("apch"), fourCC("apcn"), fourCC("apco"),
    fourCC("apcs"), fourCC("av01"), fourCC("avc1"), fourCC("avc2"), fourCC("avc3"),
    fourCC("avc4"), fourCC("dva1"), fourCC("dvav"), fourCC("dvh1"), fourCC("dvhe"),
    fourCC("encv"), fourCC("hev1"), fourCC("hev2"), fourCC("hvc1"), fourCC("hvc2"),
    fourCC("mp4v"), fourCC("vp08"), fourCC("vp09"), fourCC("vvc1"), fourCC("vvi1"),
};
static_assert(std::ranges::is_sorted(kVisualEntries));

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
  if (parent == fourCC("stsd"))
    return std::ranges::binary_search(kVisualEntries, type) ? Contents::VisualEntry : Contents::Data;
  if (type == fourCC("stsd")) return Contents::Entries;
  if (parent == fourCC("ilst")) return Contents::Atoms;
  if (parent == fourCC("gmhd") && type == fourCC("tmcd")) return Contents::Atoms;
  if (type == fourCC("meta")) return Contents::Meta;
  return std::ranges::binary_search(kContainers, type) ? Contents::Atoms : Contents::Data;
}

bool beginsMovies(PVFourCharCode type) { return std::ranges::binary_search(kFirstAtoms, type); }
