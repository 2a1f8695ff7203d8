#include "movie_header.hpp"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "atom_output.hpp"
#include "atom_type.hpp"
#include "other_tables.hpp"
#include "output_edits.hpp"

namespace {

constexpr const char* kUnwritable = "the output cannot be written";

// Writes the header, one track after the other.
class HeaderWriter {
 public:
  explicit HeaderWriter(const HeaderPlan& plan) : plan_(plan) {}

  void write(KivAtomWriter& moov, const KivAtomStream& input) {
    for (size_t i = 0; i < plan_.tables.size(); ++i) longest_ = std::max(longest_, editedDuration(i));
    forEachChild(input, [&](const KivAtomStream& child) {
      const PVFourCharCode type = child.currentAtomType;
      if (type == fourCC("mvhd"))
        writeDuration(moov, child, 16, 24, plan_.fragmented ? 0 : longest_, changesDurations());
      else if (type == fourCC("trak"))
        writeTrack(moov, child);
      else if (type != fourCC("mvex") && type != fourCC("free") && type != fourCC("skip"))
        copyAtom(moov, child);
    });
    if (plan_.fragmented) writeExtends(moov);
  }

 private:
  const TrackFacts& facts() const { return plan_.movie.facts().tracks()[track_]; }
  const TrackTables& tables() const { return plan_.tables[track_]; }
  uint32_t movieTimescale() const { return plan_.movie.facts().timescale().value_or(0); }
  bool hadFragments(size_t track) const { return !plan_.movie.index().tracks()[track].runs.empty(); }
  // Whether any header's durations are not the input's any more.
  bool changesDurations() const {
    if (plan_.fragmented) return true;
    for (size_t i = 0; i < plan_.tables.size(); ++i)
      if (hadFragments(i)) return true;
    return false;
  }

  // On the movie's timescale.
  uint64_t editedDuration(size_t track) const {
    const TrackFacts& said = plan_.movie.facts().tracks()[track];
    const auto media = static_cast<uint64_t>(plan_.tables[track].duration());
    uint64_t duration = 0;
    for (const Edit& edit : editsOf(track)) duration += edit.segmentDuration;
    return duration ? duration : rescaled(media, said.timescale.value_or(0), movieTimescale());
  }

  std::vector<Edit> editsOf(size_t track) const {
    const TrackTables& tables = plan_.tables[track];
    if (plan_.fragmented) return plan_.movie.facts().tracks()[track].edits;
    return outputEdits(plan_.movie, track, tables.firstDecode(), tables.shownEnd());
  }

  // Copies a header atom, with another duration if it changes. offset0, offset1: of the duration in versions
  // 0 and 1.
  void writeDuration(KivAtomWriter& parent, const KivAtomStream& input, size_t offset0, size_t offset1,
                     uint64_t duration, bool changes) {
    Fields fields;
    fields.bytes() = readAtomData(input);
    const bool isLong = !fields.bytes().empty() && fields.bytes()[0] == 1;
    const size_t offset = isLong ? offset1 : offset0, size = isLong ? 8 : 4;
    if (changes && fields.bytes().size() >= offset + size)
      fields.replace(offset, isLong ? duration : std::min<uint64_t>(duration, UINT32_MAX), size);
    writeAtom(parent, input.currentAtomType, fields);
  }

  void writeTrack(KivAtomWriter& moov, const KivAtomStream& input) {
    if (track_ >= plan_.tables.size()) throw RemuxFailure("the movie has tracks that could not be read");
    const std::vector<Edit> edits = editsOf(track_);
    const bool newEdits = edits.size() != facts().edits.size() ||
                          !std::ranges::equal(edits, facts().edits, [](const Edit& a, const Edit& b) {
                            return a.segmentDuration == b.segmentDuration && a.mediaTime == b.mediaTime;
                          });
    const bool changes = plan_.fragmented || hadFragments(track_);
    writeAtom(moov, fourCC("trak"), [&](KivAtomWriter& trak) {
      forEachChild(input, [&](const KivAtomStream& child) {
        const PVFourCharCode type = child.currentAtomType;
        if (type == fourCC("tkhd")) {
          writeDuration(trak, child, 20, 28, plan_.fragmented ? 0 : editedDuration(track_), changes);
          if (newEdits) writeEdits(trak, edits);
        } else if (type == fourCC("mdia")) {
          writeMedia(trak, child, changes);
        } else if (type != fourCC("edts") || !newEdits) {
          copyAtom(trak, child);
        }
      });
    });
    ++track_;
  }

  static void writeEdits(KivAtomWriter& trak, const std::vector<Edit>& edits) {
    Fields fields;
    fields.u32(0x01000000).u32(static_cast<uint32_t>(edits.size()));
    for (const Edit& edit : edits)
      fields.u64(edit.segmentDuration)
          .u64(static_cast<uint64_t>(edit.mediaTime))
          .u32(static_cast<uint32_t>(edit.rate));
    writeAtom(trak, fourCC("edts"), [&](KivAtomWriter& edts) { writeAtom(edts, fourCC("elst"), fields); });
  }

  void writeMedia(KivAtomWriter& trak, const KivAtomStream& input, bool changes) {
    writeAtom(trak, fourCC("mdia"), [&](KivAtomWriter& mdia) {
      forEachChild(input, [&](const KivAtomStream& child) {
        const PVFourCharCode type = child.currentAtomType;
        if (type == fourCC("mdhd"))
          writeDuration(mdia, child, 16, 24,
                        plan_.fragmented ? 0 : static_cast<uint64_t>(tables().duration()), changes);
        else if (type == fourCC("hdlr"))
          writeHandler(mdia, child);
        else if (type == fourCC("minf"))
          writeMediaInformation(mdia, child);
        else
          copyAtom(mdia, child);
      });
    });
  }

  // QuickTime says that it is the handler of media, and counts the letters of its name; ISO ends the name
  // with a zero.
  void writeHandler(KivAtomWriter& mdia, const KivAtomStream& input) {
    if (plan_.sameFamily) return copyAtom(mdia, input);
    const std::vector<uint8_t> bytes = readAtomData(input);
    constexpr size_t kNameAt = 24;
    Fields fields;
    fields.bytes() = bytes;
    if (bytes.size() < kNameAt) return copyAtom(mdia, input);
    std::string_view name(reinterpret_cast<const char*>(bytes.data()) + kNameAt, bytes.size() - kNameAt);
    if (!name.empty() && static_cast<uint8_t>(name[0]) == name.size() - 1) name.remove_prefix(1);
    name = name.substr(0, std::min(name.find('\0'), size_t{255}));
    fields.bytes().resize(kNameAt);
    const bool quickTime = plan_.family == Family::QuickTime;
    fields.replace(4, quickTime ? fourCC("mhlr") : 0, 4);
    if (quickTime) fields.u8(static_cast<uint8_t>(name.size()));
    fields.put(name.data(), name.size());
    if (!quickTime) fields.u8(0);
    writeAtom(mdia, fourCC("hdlr"), fields);
  }

  void writeMediaInformation(KivAtomWriter& mdia, const KivAtomStream& input) {
    const bool quickTime = plan_.family == Family::QuickTime;
    bool hasDataHandler = false;
    writeAtom(mdia, fourCC("minf"), [&](KivAtomWriter& minf) {
      forEachChild(input, [&](const KivAtomStream& child) {
        const PVFourCharCode type = child.currentAtomType;
        if (type == fourCC("hdlr")) {
          if (quickTime) copyAtom(minf, child);
          hasDataHandler = true;
        } else if (type == fourCC("stbl")) {
          if (quickTime && !hasDataHandler) writeDataHandler(minf);
          writeTables(minf, child);
        } else {
          if (type == fourCC("dinf")) checkSelfContained(child);
          copyAtom(minf, child);
        }
      });
    });
  }

  static void writeDataHandler(KivAtomWriter& minf) {
    Fields fields;
    fields.u32(0).u32(fourCC("dhlr")).u32(fourCC("url ")).zeros(12).u8(0);
    writeAtom(minf, fourCC("hdlr"), fields);
  }

  // Media that are in other files would still be there, but their offsets are rewritten.
  void checkSelfContained(const KivAtomStream& dinf) const {
    forEachChild(dinf, [&](const KivAtomStream& dref) {
      if (dref.currentAtomType != fourCC("dref")) return;
      forEachChild(
          dref,
          [&](const KivAtomStream& entry) {
            uint32_t flags = 0;
            check(KivAtomStreamGetCurrentAtomVersionAndFlags(&entry, nullptr, &flags),
                  "the input cannot be read");
            if (!(flags & 1))
              throw RemuxFailure(fmt::format("track {} has its media in another file", track_ + 1));
          },
          8);
    });
  }

  void writeTables(KivAtomWriter& minf, const KivAtomStream& input) {
    const bool copied = areTablesCopied(plan_.movie, track_, plan_.fragmented);
    writeAtom(minf, fourCC("stbl"), [&](KivAtomWriter& stbl) {
      forEachChild(input, [&](const KivAtomStream& child) {
        if (child.currentAtomType == fourCC("stsd")) writeDescriptions(stbl, child);
      });
      if (plan_.fragmented)
        writeEmptyTables(stbl);
      else
        tables().write(stbl, plan_.mediaOffset, plan_.wide, plan_.family == Family::QuickTime);
      forEachChild(input, [&](const KivAtomStream& child) {
        const PVFourCharCode type = child.currentAtomType;
        // The other tables go by the numbers of samples, or describe groups of them.
        if (!isMadeAnew(type) && (copied || type == fourCC("sgpd"))) copyAtom(stbl, child);
      });
      if (!copied && !plan_.fragmented)
        writeGroups(stbl, plan_.movie.index().tracks()[track_].groups, 0, tables().sampleCount());
    });
  }

  static void writeEmptyTables(KivAtomWriter& stbl) {
    Fields none, noSizes;
    writeAtom(stbl, fourCC("stts"), none.u32(0).u32(0));
    writeAtom(stbl, fourCC("stsc"), none);
    writeAtom(stbl, fourCC("stsz"), noSizes.u32(0).u32(0).u32(0));
    writeAtom(stbl, fourCC("stco"), none);
  }

  void writeDescriptions(KivAtomWriter& stbl, const KivAtomStream& input) {
    std::vector<uint8_t> head(8);
    check(KivAtomStreamReadCurrentAtomData(&input, 0, head.size(), head.data()), "the input cannot be read");
    writeAtom(stbl, fourCC("stsd"), [&](KivAtomWriter& stsd) {
      append(stsd, head);
      uint32_t number = 0;
      forEachChild(
          input, [&](const KivAtomStream& entry) { writeDescription(stsd, entry, ++number); }, 8);
    });
  }

  // An entry that the library does not know is carried over.
  void writeDescription(KivAtomWriter& stsd, const KivAtomStream& entry, uint32_t number) {
    const auto descriptions = plan_.movie.descriptions().ofTrack(track_);
    const auto found = std::ranges::find(descriptions, number, &SampleDescription::number);
    br::Ref<PVBlockBuffer> record;
    if (found == descriptions.end() ||
        !writeSampleEntry(facts().handler.value_or(0), found->description.get(), flavorOf(plan_.family),
                          record))
      return copyAtom(stsd, entry);
    check(KivAtomWriterAppendBlockBufferData(&stsd, record.get()), kUnwritable);
  }

  void writeExtends(KivAtomWriter& moov) {
    writeAtom(moov, fourCC("mvex"), [&](KivAtomWriter& mvex) {
      Fields duration;
      writeAtom(mvex, fourCC("mehd"), duration.u32(0x01000000).u64(longest_));
      for (const TrackFacts& track : plan_.movie.facts().tracks()) {
        Fields defaults;
        defaults.u32(0).u32(track.id.value_or(0)).u32(1).zeros(12);
        writeAtom(mvex, fourCC("trex"), defaults);
      }
    });
  }

  const HeaderPlan& plan_;
  size_t track_ = 0;
  uint64_t longest_ = 0;
};

br::Ref<PVBlockBuffer> newBuffer() {
  br::Ref<PVBlockBuffer> buffer;
  check(PVBlockBufferCreateEmpty(nullptr, 16, 0, buffer.out()), "memory ran out");
  return buffer;
}

const Atom* findAtom(const MovieFile& movie, PVFourCharCode type) {
  const auto found = std::ranges::find(movie.atoms(), type, &Atom::type);
  return found == movie.atoms().end() ? nullptr : &*found;
}

}  // namespace

KivAtomStream streamAt(const MovieFile& movie, const Atom& atom) {
  KivAtomStream stream;
  check(KivAtomStreamInitWithByteStream(movie.stream(), atom.offset, 0, &stream), "the input cannot be read");
  return stream;
}

br::Ref<PVBlockBuffer> buildMovieHeader(const HeaderPlan& plan) {
  const KivAtomStream input = streamAt(plan.movie, *findAtom(plan.movie, fourCC("moov")));
  const auto buffer = newBuffer();
  KivAtomWriter writer;
  check(KivAtomWriterInitWithBlockBuffer(buffer.get(), &writer), kUnwritable);
  writeAtomWith(writer, fourCC("moov"), [&](KivAtomWriter& moov) { HeaderWriter(plan).write(moov, input); });
  return buffer;
}

Family familyOf(const MovieFile& movie) {
  const Atom* type = findAtom(movie, fourCC("ftyp"));
  if (!type) return Family::QuickTime;
  const std::vector<uint8_t> bytes = readAtomData(streamAt(movie, *type));
  if (bytes.size() < 4 || std::memcmp(bytes.data(), "qt  ", 4) == 0) return Family::QuickTime;
  return bytes[0] == '3' && bytes[1] == 'g' ? Family::ThreeGP : Family::MP4;
}

br::Ref<PVBlockBuffer> buildFileType(const MovieFile& movie, Family family, bool fragmented) {
  const bool wasFragmented = findAtom(movie, fourCC("moof"));
  const Atom* type = findAtom(movie, fourCC("ftyp"));
  const auto buffer = newBuffer();
  KivAtomWriter writer;
  check(KivAtomWriterInitWithBlockBuffer(buffer.get(), &writer), kUnwritable);
  writeAtomWith(writer, fourCC("ftyp"), [&](KivAtomWriter& ftyp) {
    if (type && familyOf(movie) == family && wasFragmented == fragmented)
      return append(ftyp, readAtomData(streamAt(movie, *type)));
    Fields brands;
    if (family == Family::QuickTime)
      brands.u32(fourCC("qt  ")).u32(0x200).u32(fourCC("qt  "));
    else if (family == Family::ThreeGP)
      brands.u32(fourCC("3gp6")).u32(0x100).u32(fourCC("isom")).u32(fourCC("3gp6"));
    else if (fragmented)
      brands.u32(fourCC("iso6")).u32(0x200).u32(fourCC("iso6")).u32(fourCC("mp41"));
    else
      brands.u32(fourCC("isom")).u32(0x200).u32(fourCC("isom")).u32(fourCC("iso2")).u32(fourCC("mp41"));
    append(ftyp, brands);
  });
  return buffer;
}
