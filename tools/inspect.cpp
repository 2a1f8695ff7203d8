#include "inspect.hpp"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "atom_walk.hpp"
#include "configuration_record.hpp"
#include "elementary_stream.hpp"
#include "file_kind.hpp"
#include "input_file.hpp"
#include "movie/media_map.hpp"
#include "movie/movie_index.hpp"
#include "movie_facts.hpp"
#include "output.hpp"
#include "progress.hpp"
#include "report.hpp"
#include "sample_descriptions.hpp"
#include "sample_listing.hpp"

namespace {

// Hands every atom on to the report and to the facts, and keeps what is wrong, and a movie's parameter sets,
// for the end.
class Inspection final : public AtomVisitor, public ParameterSetVisitor {
 public:
  Inspection(Report& report, const Output& output, const InputFile& file, const InspectOptions& options)
      : report_(report), output_(output), file_(file), options_(options), index_(file.size()) {
    if (file.damage()) damages_.push_back(*file.damage());
  }

  bool beginAtom(const Atom& atom, const KivAtomStream* stream, AtomWalk& walk) override {
    report_.beginAtom(atom);
    if (auto fault = facts_.read(walk.types(), stream))
      damages_.push_back({walk.path(), atom.offset, fault->status, std::move(fault->message)});
    descriptions_.noteAtom(atom, stream, walk, facts_.tracks().size());
    metadata_.noteAtom(atom, stream, walk, facts_.tracks().size(), damages_);
    if (options_.samples) index_.noteAtom(atom, stream, walk, facts_, damages_);
    progress_.show("Atoms", atom.offset, file_.size());
    if (const auto codec = codecOfRecord(atom.type); codec && stream)
      visitConfigurationRecord(*codec, stream, atom.offset, walk.path(), *this);
    return output_.error() == 0;
  }
  void endAtom() override { report_.endAtom(); }
  bool parameterSet(ParameterSet set) override {
    if (isMovie_)
      sets_.push_back(std::move(set));
    else
      report_.parameterSet(set);
    return output_.error() == 0;
  }
  void damaged(Damage damage) override { damages_.push_back(std::move(damage)); }

  void inspectMovie(const std::string& fileName) {
    isMovie_ = true;
    report_.beginMovie(fileName, file_.size());
    AtomWalk(file_.stream(), file_.size(), *this).run();
    descriptions_.read(file_.stream(), facts_.tracks(), options_.verify, damages_);
    if (options_.samples)
      endWithSamples();
    else
      report_.endMovie(facts_, descriptions_, metadata_, sets_, nullptr);
    progress_.clear();
  }
  void inspectStream(const std::string& fileName, std::optional<Codec> codec) {
    report_.beginStream(fileName, file_.size());
    visitElementaryStream(file_.stream(), file_.size(), codecOfStream(file_.stream(), file_.size(), codec),
                          *this);
    report_.endStream();
  }

  const std::vector<Damage>& damages() const { return damages_; }

 private:
  void endWithSamples() {
    index_.finish(facts_, damages_);
    for (size_t i = 0; i < index_.tracks().size(); ++i)
      index_.tracks()[i].packings = packingsOf(descriptions_.ofTrack(i));
    const auto media = mediaWithoutBytes(file_.size());
    SampleListing listing(facts_, index_, descriptions_, media.get(), output_, progress_, damages_);
    report_.endMovie(facts_, descriptions_, metadata_, sets_, &listing);
  }

  Report& report_;
  const Output& output_;
  const InputFile& file_;
  const InspectOptions& options_;
  bool isMovie_ = false;
  MovieFacts facts_;
  SampleDescriptions descriptions_;
  MetadataItems metadata_;
  MovieIndex index_;
  std::vector<ParameterSet> sets_;
  std::vector<Damage> damages_;
  Progress progress_;
};

}  // namespace

ExitStatus inspect(const std::string& fileName, const InspectOptions& options) {
  InputFile file;
  if (const std::string reason = file.open(fileName, kPlainOrGzip); !reason.empty()) {
    complain(fileName, reason);
    return kFailed;
  }
  Output output;
  const auto report = options.json ? makeJsonReport(output) : makeTextReport(output);
  Inspection inspection(*report, output, file, options);
  const FileKind kind = fileKindOf(file.stream(), file.size(), fileName);
  if (kind.movie)
    inspection.inspectMovie(fileName);
  else
    inspection.inspectStream(fileName, kind.codec);
  report->end(inspection.damages());
  if (!output.flush()) {
    // whoever closed the pipe has seen enough
    if (output.error() != EPIPE) complain("standard output", std::strerror(output.error()));
    return kFailed;
  }

  for (const Damage& damage : inspection.damages()) complainOf(fileName, damage);
  return inspection.damages().empty() ? kSound : kDamaged;
}

void complain(const std::string& fileName, const std::string& message) {
  std::fputs(fmt::format("pevrin: {}: {}\n", printable(fileName), message).c_str(), stderr);
}

void complainOf(const std::string& fileName, const Damage& damage) {
  const std::string place = damage.path.empty() ? "" : damage.path + " ";
  complain(fileName,
           fmt::format("{}at byte {}: {} (status {})", place, damage.offset, damage.message, damage.status));
}
