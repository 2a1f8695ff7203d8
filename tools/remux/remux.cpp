#include "remux.hpp"

#include <fmt/format.h>
#include <pevrin/sample_description.h>

#include <algorithm>
#include <array>

#include "atom_output.hpp"
#include "atom_type.hpp"
#include "elementary_movie.hpp"
#include "elementary_stream.hpp"
#include "file_kind.hpp"
#include "fragment_writer.hpp"
#include "input_file.hpp"
#include "interleaver.hpp"
#include "media_writer.hpp"
#include "movie/media_map.hpp"
#include "movie_header.hpp"
#include "other_tables.hpp"
#include "output_edits.hpp"
#include "output_family.hpp"
#include "output_file.hpp"
#include "track_tables.hpp"

namespace {

// Of the top level: written anew, or of use only to the file that they stand in.
constexpr std::array kNotCarried = {fourCC("ftyp"), fourCC("styp"), fourCC("moov"), fourCC("moof"),
                                    fourCC("mdat"), fourCC("mfra"), fourCC("sidx"), fourCC("ssix"),
                                    fourCC("free"), fourCC("skip"), fourCC("wide"), fourCC("pdin"),
                                    fourCC("prft"), fourCC("emsg"), fourCC("pnot")};

// A movie, and where its samples come from.
struct Source {
  const MovieFile& movie;
  SampleMaker create;
  PVBlockBufferRef media;
};

class Remux {
 public:
  Remux(const Source& source, Family family, const RemuxOptions& options)
      : source_(source), movie_(source.movie), family_(family), options_(options) {
    const MovieFile& movie = movie_;
    for (size_t i = 0; i < movie.facts().tracks().size(); ++i) {
      if (!movie.isTimed(i)) throw RemuxFailure(fmt::format("track {} has no timescale", i + 1));
      const MovieTrack& track = movie.index().tracks()[i];
      // Chunks and the samples of fragments do not go into one set of tables.
      if (track.inChunks && !track.runs.empty())
        throw RemuxFailure(
            fmt::format("track {} has uncompressed sound both in tables and in fragments", i + 1));
      leftOut_.push_back(leftOut(movie, i, options.fragment.has_value()));
      MovieSample first;
      const int64_t decode = SampleCursor(track).next(first) ? first.decode : 0;
      sources_.push_back({&track, *movie.facts().tracks()[i].timescale, startByEdits(movie, i, decode)});
      tables_.emplace_back(track);
    }
    planTables();
  }

  void write(OutputFile& output) {
    Progress progress;
    MediaWriter media(source_.create, source_.media, totalBytes_, progress);
    output.append(buildFileType(movie_, family_, options_.fragment.has_value()).get());
    if (options_.fragment)
      writeFragments(output, media);
    else
      writePlain(output, media);
    carryOver(output);
  }

  void tellWhatIsLeftOut(const std::string& output) const {
    if (std::ranges::find(movie_.atoms(), fourCC("emsg"), &Atom::type) != movie_.atoms().end())
      complain(output, "the events of the fragments, 'emsg', are left out");
    for (size_t i = 0; i < leftOut_.size(); ++i)
      if (!leftOut_[i].empty())
        complain(output, fmt::format("track {} is written without its {}", i + 1, leftOut_[i]));
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
    const bool sameFamily = (familyOf(movie_) == Family::QuickTime) == (family_ == Family::QuickTime);
    return buildMovieHeader(
        {movie_, family_, sameFamily, tables_, options_.fragment.has_value(), mediaOffset, wide});
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
      checkItems(streamAt(movie_, atom));
      std::vector<uint8_t> piece(static_cast<size_t>(std::min<int64_t>(atom.size, int64_t{1} << 20)));
      const int64_t end = atom.offset + atom.size;
      for (int64_t at = atom.offset; at < end; at += static_cast<int64_t>(piece.size())) {
        piece.resize(static_cast<size_t>(std::min<int64_t>(end - at, std::ssize(piece))));
        size_t count = 0;
        check(KivByteStreamRead(movie_.stream(), at, piece.size(), piece.data(), &count),
              "the input cannot be read");
        if (count < piece.size()) throw RemuxFailure("the input has become shorter");
        check(KivByteStreamAppend(output.stream(), piece.data(), count), "the output cannot be written");
      }
    }
  }

  static uint64_t lengthOf(OutputFile& output) {
    int64_t length = 0;
    check(KivByteStreamGetTotalLength(output.stream(), &length), "the output cannot be written");
    return static_cast<uint64_t>(length);
  }

  const Source& source_;
  const MovieFile& movie_;
  Family family_;
  const RemuxOptions& options_;
  std::vector<Interleaver::Source> sources_;
  std::vector<TrackTables> tables_;
  std::vector<std::string> leftOut_;  // by track
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

// Throws RemuxFailure.
void write(const Source& source, Family family, const RemuxOptions& options, const std::string& output) {
  Remux work(source, family, options);
  OutputFile target(output);
  work.write(target);
  target.commit();
  work.tellWhatIsLeftOut(output);
}

ExitStatus remuxMovie(const InputFile& file, const std::string& input, Family family,
                      const RemuxOptions& options, const std::string& output) {
  if (options.rate) {
    complain(input, "This is a movie, which tells its own rate; --rate is for elementary streams");
    return kFailed;
  }
  const MovieFile movie(file);
  if (!isUsable(movie, input)) return kDamaged;
  if (!movie.hasMovie()) {
    complain(input, "There is no movie in it");
    return kDamaged;
  }
  std::vector<TrackSamples> tracks;
  for (size_t i = 0; i < movie.facts().tracks().size(); ++i)
    if (movie.isTimed(i)) tracks.push_back(movie.samplesOf(i));
  const auto create = [&](size_t track, const MovieSample& place, PVSampleBufferRef* bufferOut) {
    return tracks[track].create(place, bufferOut);
  };
  write({movie, create, movie.media()}, family, options, output);
  return kSound;
}

ExitStatus remuxStream(const InputFile& file, const std::string& input, Codec codec, Family family,
                       const RemuxOptions& options, const std::string& output) {
  const auto media = mapMedia(file.descriptor(), file.size());
  Progress progress;
  const ElementaryVideo video(media, codec, options.rate,
                              [&](int64_t offset) { progress.show("Pictures", offset, file.size()); });
  progress.clear();
  if (video.damage()) {
    complainOf(input, *video.damage());
    return kDamaged;
  }
  if (video.needsRate()) {
    complain(input, "The stream does not tell how many frames a second has; say it with --rate");
    return kFailed;
  }
  if (const uint64_t leftOut = video.picturesLeftOut(); leftOut == 1)
    complain(input, "1 picture at the beginning is left out: its parameter sets are missing");
  else if (leftOut > 1)
    complain(input, fmt::format("{} pictures at the beginning are left out: their parameter sets are missing",
                                leftOut));
  const auto create = [&](size_t, const MovieSample& place, PVSampleBufferRef* bufferOut) {
    return video.create(place.index, bufferOut);
  };
  const ElementaryMovie movie(video);
  write({movie.movie(), create, media.get()}, family, options, output);
  return kSound;
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
  const FileKind kind = fileKindOf(file.stream(), file.size(), input);
  try {
    if (kind.movie) return remuxMovie(file, input, *family, options, output);
    const Codec codec = codecOfStream(file.stream(), file.size(), kind.codec);
    return remuxStream(file, input, codec, *family, options, output);
  } catch (const RemuxFailure& failure) {
    complain(output, failure.what());
    return kFailed;
  }
}
