#include "remux.hpp"

#include <fmt/format.h>
#include <pevrin/sample_description.h>

#include <algorithm>
#include <array>

#include "atom_output.hpp"
#include "atom_type.hpp"
#include "file_kind.hpp"
#include "fragment_writer.hpp"
#include "interleaver.hpp"
#include "media_writer.hpp"
#include "movie_header.hpp"
#include "output_family.hpp"
#include "output_file.hpp"
#include "track_tables.hpp"

namespace {

// Of the top level: written anew, or of use only to the file that they stand in.
constexpr std::array kNotCarried = {fourCC("ftyp"), fourCC("styp"), fourCC("moov"), fourCC("moof"),
                                    fourCC("mdat"), fourCC("mfra"), fourCC("sidx"), fourCC("ssix"),
                                    fourCC("free"), fourCC("skip"), fourCC("wide"), fourCC("pdin"),
                                    fourCC("prft"), fourCC("emsg"), fourCC("pnot")};

class Remux {
 public:
  Remux(const InputFile& file, const MovieFile& movie, Family family, const RemuxOptions& options)
      : file_(file), movie_(movie), family_(family), options_(options) {
    for (size_t i = 0; i < movie.facts().tracks().size(); ++i) {
      if (!movie.isTimed(i)) throw RemuxFailure(fmt::format("track {} has no timescale", i + 1));
      const MovieTrack& track = movie.index().tracks()[i];
      // Chunks and the samples of fragments do not go into one set of tables.
      if (track.inChunks && !track.runs.empty())
        throw RemuxFailure(
            fmt::format("track {} has uncompressed sound both in tables and in fragments", i + 1));
      sources_.push_back({&track, *movie.facts().tracks()[i].timescale});
      tables_.emplace_back(track);
    }
    planTables();
  }

  void write(OutputFile& output) {
    Progress progress;
    MediaWriter media(movie_, totalBytes_, progress);
    output.append(buildFileType(movie_, file_.stream(), family_, options_.fragment.has_value()).get());
    if (options_.fragment)
      writeFragments(output, media);
    else
      writePlain(output, media);
    carryOver(output);
  }

 private:
  void planTables() {
    Interleaver order(sources_);
    for (OutputChunk chunk; order.next(chunk);) {
      tables_[chunk.track].add(chunk, totalBytes_);
      for (const MovieSample& sample : chunk.samples) totalBytes_ += static_cast<uint64_t>(sample.size);
    }
    for (TrackTables& tables : tables_) tables.finish();
  }

  br::Ref<PVBlockBuffer> header(uint64_t mediaOffset, bool wide) const {
    const bool sameFamily =
        (familyOf(movie_, file_.stream()) == Family::QuickTime) == (family_ == Family::QuickTime);
    return buildMovieHeader({movie_, file_.stream(), family_, sameFamily, tables_,
                             options_.fragment.has_value(), mediaOffset, wide});
  }

  void writePlain(OutputFile& output, MediaWriter& media) {
    const bool largeAtom = totalBytes_ + 16 > UINT32_MAX;
    uint64_t mediaOffset = lengthOf(output) + (largeAtom ? 16 : 8);
    const auto isWide = [&](uint64_t offset) { return offset + totalBytes_ > UINT32_MAX; };
    if (options_.fastStart) {
      uint64_t headerBytes = PVBlockBufferGetDataLength(header(0, isWide(mediaOffset)).get());
      // The header itself may be what pushes the media over the edge.
      if (!isWide(mediaOffset) && isWide(mediaOffset + headerBytes))
        headerBytes = PVBlockBufferGetDataLength(header(0, true).get());
      mediaOffset += headerBytes;
      output.append(header(mediaOffset, isWide(mediaOffset)).get());
    }
    writeMedia(output, media, largeAtom);
    if (!options_.fastStart) output.append(header(mediaOffset, isWide(mediaOffset)).get());
  }

  void writeMedia(OutputFile& output, MediaWriter& media, bool largeAtom) {
    KivAtomWriter mdat;
    check(KivAtomWriterInitWithByteStream(output.stream(), &mdat), "the output cannot be written");
    check(KivAtomWriterBeginAtom(&mdat, fourCC("mdat"), largeAtom), "the output cannot be written");
    Interleaver order(sources_);
    for (OutputChunk chunk; order.next(chunk);) media.append(mdat, chunk.track, chunk.samples);
    media.flush(mdat);
    check(KivAtomWriterEndAtom(&mdat), "the output cannot be written");
  }

  void writeFragments(OutputFile& output, MediaWriter& media) {
    output.append(header(0, false).get());
    if (sources_.empty()) return;
    const auto& tracks = movie_.facts().tracks();
    const auto pictures = std::ranges::find(
        tracks, fourCC("vide"), [](const TrackFacts& track) { return track.handler.value_or(0); });
    const auto lead = pictures == tracks.end() ? 0 : pictures - tracks.begin();
    FragmentPlan plan(sources_, static_cast<size_t>(lead), *options_.fragment);
    FragmentWriter writer(movie_, output, media);
    for (Fragment fragment; plan.next(fragment);) writer.write(fragment);
  }

  // Atoms of the top level that belong to the movie as a whole.
  void carryOver(OutputFile& output) {
    for (const Atom& atom : movie_.atoms()) {
      if (std::ranges::find(kNotCarried, atom.type) != kNotCarried.end()) continue;
      br::Ref<PVBlockBuffer> bytes;
      const KivAtomStream stream = streamAt(file_.stream(), atom);
      check(KivAtomStreamReadCurrentAtomAndCreateBBuf(&stream, bytes.out()), "the input cannot be read");
      output.append(bytes.get());
    }
  }

  static uint64_t lengthOf(OutputFile& output) {
    int64_t length = 0;
    check(KivByteStreamGetTotalLength(output.stream(), &length), "the output cannot be written");
    return static_cast<uint64_t>(length);
  }

  const InputFile& file_;
  const MovieFile& movie_;
  Family family_;
  const RemuxOptions& options_;
  std::vector<Interleaver::Source> sources_;
  std::vector<TrackTables> tables_;
  uint64_t totalBytes_ = 0;
};

// Sample entries that are not known are carried over; everything else that is wrong ends it.
bool isUsable(const MovieFile& movie, const std::string& name) {
  bool usable = true;
  for (const Damage& damage : movie.damages()) {
    if (damage.status == kPVSampleDescriptionError_Unsupported) continue;
    complainOf(name, damage);
    usable = false;
  }
  return usable;
}

}  // namespace

ExitStatus remux(const std::string& input, const std::string& output, const RemuxOptions& options) {
  const std::optional<Family> family = familyOfName(output);
  if (!family) {
    complain(output, fmt::format("The name tells what is written, and must end in one of {}", kFamilyNames));
    return kFailed;
  }
  InputFile file;
  if (const std::string reason = file.open(input); !reason.empty()) {
    complain(input, reason);
    return kFailed;
  }
  if (!fileKindOf(file.stream(), file.size(), input).movie) {
    complain(input, "Not a movie");
    return kFailed;
  }
  const MovieFile movie(file);
  if (!isUsable(movie, input)) return kDamaged;
  if (!movie.hasMovie()) {
    complain(input, "There is no movie in it");
    return kDamaged;
  }
  try {
    Remux work(file, movie, *family, options);
    OutputFile target(output);
    work.write(target);
    target.commit();
  } catch (const RemuxFailure& failure) {
    complain(output, failure.what());
    return kFailed;
  }
  return kSound;
}
