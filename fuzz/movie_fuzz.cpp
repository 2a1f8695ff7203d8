// The movie reader: any bytes are a movie. Samples that are told must have been worth the bytes, and the
// times must be in order when they are given out in order, as must groups; values of metadata are in the
// bytes.
#include <kiv/byte_stream.h>

#include <bedra/ref.hpp>
#include <cstdint>
#include <cstdlib>

#include "movie/movie_index.hpp"
#include "movie/output_order.hpp"
#include "movie_metadata/metadata_items.hpp"

namespace {

class Reader final : public AtomVisitor {
 public:
  explicit Reader(int64_t size) : index(size) {}
  bool beginAtom(const Atom& atom, const KivAtomStream* stream, AtomWalk& walk) override {
    facts.read(walk.types(), stream);
    metadata.noteAtom(atom, stream, walk, facts.tracks().size(), damages);
    index.noteAtom(atom, stream, walk, facts, damages);
    return true;
  }
  void endAtom() override {}
  void damaged(Damage) override {}

  MovieFacts facts;
  MovieIndex index;
  MetadataItems metadata;
  std::vector<Damage> damages;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  br::Ref<PVBaseObject> stream;
  if (KivByteStreamCreateForMemory(nullptr, data, size, kBRAllocatorNull, stream.out()) != 0) std::abort();
  const auto length = static_cast<int64_t>(size);
  Reader reader(length);
  AtomWalk(stream.get(), length, reader).run();
  for (const MetadataItem& item : reader.metadata.items())
    if (item.identifier.empty() || item.bytes.size() > item.length || item.length > size) std::abort();
  reader.index.finish(reader.facts, reader.damages);
  for (size_t i = 0; i < reader.index.tracks().size(); ++i) {
    const auto timescale = static_cast<int32_t>(reader.facts.tracks()[i].timescale.value_or(0));
    if (timescale <= 0) continue;
    const EditMap edits(reader.facts.tracks()[i].edits, reader.facts.timescale(), timescale);
    const MovieTrack& track = reader.index.tracks()[i];
    for (const auto& [grouping, members] : track.groups.groupings()) {
      uint64_t end = 0;
      for (const SampleGroups::Run& run : members.runs) {
        if (run.first < end || run.count == 0) std::abort();
        end = run.first + run.count;
      }
    }
    UpcomingTimes upcoming(track, edits);
    SampleCursor cursor(track);
    MovieSample sample;
    uint64_t count = 0;
    PVTime before = kPVTimeNegativeInfinity;
    for (; cursor.next(sample); ++count) {
      const PVTime next = upcoming.next();
      if (PVTimeCompare(before, next) > 0) std::abort();
      before = next;
    }
    if (count > 3 * size || count != upcoming.sampleCount()) std::abort();
  }
  return 0;
}
