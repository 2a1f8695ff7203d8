#include "inspect.hpp"

#include <bedra/runtime.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <kiv/byte_stream.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "atom_walk.hpp"
#include "configuration_record.hpp"
#include "elementary_stream.hpp"
#include "file_kind.hpp"
#include "movie_facts.hpp"
#include "output.hpp"
#include "report.hpp"
#include "sample_descriptions.hpp"

namespace {

// An open file as a byte stream.
class File {
 public:
  ~File() {
    BRRelease(stream_);
    if (descriptor_ >= 0) close(descriptor_);
  }
  File() = default;
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  // Says why not, or nothing. Does not wait: a pipe without a writer is refused like any other.
  std::string open(const std::string& name) {
    descriptor_ = ::open(name.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    struct stat info {};
    if (descriptor_ < 0 && errno != ENXIO) return std::strerror(errno);
    if (descriptor_ >= 0 && fstat(descriptor_, &info) != 0) return std::strerror(errno);
    if (S_ISDIR(info.st_mode)) return "Is a directory";
    if (!S_ISREG(info.st_mode))
      return "Not a regular file; it is read out of order, which only a file allows";
    PVStatus status =
        KivByteStreamCreateForFileDescriptor(nullptr, descriptor_, kKivByteStreamFile_ReadOnly, &stream_);
    if (status == kPVStatus_Success) status = KivByteStreamGetTotalLength(stream_, &size_);
    return status == kPVStatus_Success ? "" : fmt::format("Cannot be read (status {})", status);
  }

  KivByteStreamRef stream() const { return stream_; }
  int64_t size() const { return size_; }

 private:
  int descriptor_ = -1;
  KivByteStreamRef stream_ = nullptr;
  int64_t size_ = 0;
};

// Hands every atom on to the report and to the facts, and keeps what is wrong, and a movie's parameter sets,
// for the end.
class Inspection final : public AtomVisitor, public ParameterSetVisitor {
 public:
  Inspection(Report& report, const Output& output, bool verify)
      : report_(report), output_(output), verify_(verify) {}

  bool beginAtom(const Atom& atom, const KivAtomStream* stream, AtomWalk& walk) override {
    report_.beginAtom(atom);
    if (auto fault = facts_.read(walk.types(), stream))
      damages_.push_back({walk.path(), atom.offset, fault->status, std::move(fault->message)});
    descriptions_.noteAtom(atom, stream, walk, facts_.tracks().size());
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

  void inspectMovie(const File& file, const std::string& fileName) {
    isMovie_ = true;
    report_.beginMovie(fileName, file.size());
    AtomWalk(file.stream(), file.size(), *this).run();
    descriptions_.read(file.stream(), facts_.tracks(), verify_, damages_);
    report_.endMovie(facts_, descriptions_, sets_);
  }
  void inspectStream(const File& file, const std::string& fileName, std::optional<Codec> codec) {
    report_.beginStream(fileName, file.size());
    visitElementaryStream(file.stream(), file.size(), codecOfStream(file.stream(), file.size(), codec),
                          *this);
    report_.endStream();
  }

  const std::vector<Damage>& damages() const { return damages_; }

 private:
  Report& report_;
  const Output& output_;
  bool verify_;
  bool isMovie_ = false;
  MovieFacts facts_;
  SampleDescriptions descriptions_;
  std::vector<ParameterSet> sets_;
  std::vector<Damage> damages_;
};

}  // namespace

ExitStatus inspect(const std::string& fileName, bool json, bool verify) {
  File file;
  if (const std::string reason = file.open(fileName); !reason.empty()) {
    complain(fileName, reason);
    return kFailed;
  }
  Output output;
  const auto report = json ? makeJsonReport(output) : makeTextReport(output);
  Inspection inspection(*report, output, verify);
  const FileKind kind = fileKindOf(file.stream(), file.size(), fileName);
  if (kind.movie)
    inspection.inspectMovie(file, fileName);
  else
    inspection.inspectStream(file, fileName, kind.codec);
  report->end(inspection.damages());
  if (!output.flush()) {
    // whoever closed the pipe has seen enough
    if (output.error() != EPIPE) complain("standard output", std::strerror(output.error()));
    return kFailed;
  }

  for (const Damage& damage : inspection.damages()) {
    const std::string place = damage.path.empty() ? "" : damage.path + " ";
    complain(fileName, fmt::format("{}at byte {}: {} (status {})", place, damage.offset, damage.message,
                                   damage.status));
  }
  return inspection.damages().empty() ? kSound : kDamaged;
}

void complain(const std::string& fileName, const std::string& message) {
  std::fputs(fmt::format("pevrin: {}: {}\n", printable(fileName), message).c_str(), stderr);
}
