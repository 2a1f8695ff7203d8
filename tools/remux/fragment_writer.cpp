#include "fragment_writer.hpp"

#include <algorithm>
#include <optional>

#include "atom_output.hpp"
#include "atom_type.hpp"
#include "other_tables.hpp"

namespace {

// Flags of 'tfhd' and 'trun'.
constexpr uint32_t kHasDescription = 0x2, kHasDefaultDuration = 0x8, kHasDefaultSize = 0x10,
                   kHasDefaultFlags = 0x20, kBaseIsMoof = 0x20000;
constexpr uint32_t kHasDataOffset = 0x1;

uint64_t bytesOf(const std::vector<MovieSample>& samples) {
  uint64_t bytes = 0;
  for (const MovieSample& sample : samples) bytes += static_cast<uint64_t>(sample.size);
  return bytes;
}

uint32_t flagsOf(const MovieSample& sample) {
  const SampleDependencies& said = sample.dependencies;
  return uint32_t{said.isLeading} << 26 | uint32_t{said.dependsOnOthers} << 24 |
         uint32_t{said.isDependedOn} << 22 | uint32_t{said.hasRedundancy} << 20 | (sample.sync ? 0 : 0x10000);
}

uint32_t offsetIn32Bits(uint64_t offset) {
  if (offset > INT32_MAX) throw RemuxFailure("a fragment is larger than 2 GiB; shorter ones fit");
  return static_cast<uint32_t>(offset);
}

// Samples whose entries say how long and how large each is, and the rest.
void writeRun(KivAtomWriter& traf, const std::vector<MovieSample>& samples, uint64_t dataOffset) {
  const auto offsetOf = [](const MovieSample& sample) { return sample.composition - sample.decode; };
  const bool anyOffset = std::ranges::any_of(samples, [&](const MovieSample& s) { return offsetOf(s) != 0; });
  const bool anyNegative =
      std::ranges::any_of(samples, [&](const MovieSample& s) { return offsetOf(s) < 0; });
  Fields run;
  run.u32(uint32_t{anyNegative} << 24 | kHasDataOffset | FragmentRun::kDurations | FragmentRun::kSizes |
          FragmentRun::kFlags | (anyOffset ? uint32_t{FragmentRun::kOffsets} : 0))
      .u32(static_cast<uint32_t>(samples.size()))
      .u32(offsetIn32Bits(dataOffset));
  for (const MovieSample& sample : samples) {
    run.u32(static_cast<uint32_t>(sample.duration))
        .u32(static_cast<uint32_t>(sample.size))
        .u32(flagsOf(sample));
    if (anyOffset) run.u32(static_cast<uint32_t>(offsetOf(sample)));
  }
  writeAtom(traf, fourCC("trun"), run);
}

// What the samples of a run have in common, when they are all alike: they need no entries then.
struct Alike {
  uint64_t count = 0;
  int64_t size = 0, duration = 0;
  uint32_t flags = 0;
};

// The samples of a record are those of a chunk of uncompressed sound, or one.
std::optional<Alike> alike(const MovieTrack& places, const std::vector<MovieSample>& samples) {
  Alike all;
  for (const MovieSample& sample : samples) {
    const uint64_t perEntry = sample.count > 1 ? places.packingOf(sample.description).samples : 1;
    const auto count = static_cast<int64_t>(sample.count / perEntry);
    if (count == 0 || sample.composition != sample.decode) return std::nullopt;
    const Alike one{0, sample.size / count, sample.duration / count, flagsOf(sample)};
    if (all.count == 0)
      all = one;
    else if (one.size != all.size || one.duration != all.duration || one.flags != all.flags)
      return std::nullopt;
    all.count += static_cast<uint64_t>(count);
  }
  return all;
}

void writeRunOfAlike(KivAtomWriter& traf, const Alike& samples, uint64_t dataOffset) {
  Fields run;
  run.u32(kHasDataOffset).u32(static_cast<uint32_t>(samples.count)).u32(offsetIn32Bits(dataOffset));
  writeAtom(traf, fourCC("trun"), run);
}

}  // namespace

void FragmentWriter::writeTrack(KivAtomWriter& moof, size_t track, const std::vector<MovieSample>& samples,
                                uint64_t dataOffset) const {
  const MovieTrack& places = movie_.index().tracks()[track];
  // A run has one description: another one begins another run.
  for (size_t first = 0, end; first < samples.size(); first = end) {
    end = first + 1;
    while (end < samples.size() && samples[end].description == samples[first].description) ++end;
    const std::vector<MovieSample> run(samples.begin() + static_cast<std::ptrdiff_t>(first),
                                       samples.begin() + static_cast<std::ptrdiff_t>(end));
    const std::optional<Alike> same = alike(places, run);
    writeAtom(moof, fourCC("traf"), [&](KivAtomWriter& traf) {
      Fields header, time;
      header
          .u32(kBaseIsMoof | kHasDescription |
               (same ? kHasDefaultDuration | kHasDefaultSize | kHasDefaultFlags : 0))
          .u32(movie_.facts().tracks()[track].id.value_or(0))
          .u32(run.front().description);
      if (same)
        header.u32(static_cast<uint32_t>(same->duration))
            .u32(static_cast<uint32_t>(same->size))
            .u32(same->flags);
      writeAtom(traf, fourCC("tfhd"), header);
      writeAtom(traf, fourCC("tfdt"), time.u32(0x01000000).u64(static_cast<uint64_t>(run.front().decode)));
      same ? writeRunOfAlike(traf, *same, dataOffset) : writeRun(traf, run, dataOffset);
      writeGroups(traf, places.groups, run.front().index,
                  run.back().index + run.back().count - run.front().index);
    });
    dataOffset += bytesOf(run);
  }
}

br::Ref<PVBlockBuffer> FragmentWriter::build(const Fragment& fragment, uint64_t dataOffset) const {
  br::Ref<PVBlockBuffer> buffer;
  check(PVBlockBufferCreateEmpty(nullptr, 16, 0, buffer.out()), "memory ran out");
  KivAtomWriter writer;
  check(KivAtomWriterInitWithBlockBuffer(buffer.get(), &writer), "memory ran out");
  writeAtomWith(writer, fourCC("moof"), [&](KivAtomWriter& moof) {
    Fields header;
    writeAtom(moof, fourCC("mfhd"), header.u32(0).u32(sequence_));
    for (size_t i = 0; i < fragment.size(); ++i) {
      writeTrack(moof, i, fragment[i], dataOffset);
      dataOffset += bytesOf(fragment[i]);
    }
  });
  return buffer;
}

void FragmentWriter::write(const Fragment& fragment) {
  // The offsets do not change the size of the atom that holds them.
  const uint64_t headerBytes = PVBlockBufferGetDataLength(build(fragment, 0).get()) + 8;
  KivAtomWriter writer;
  output_.append(build(fragment, headerBytes).get());
  check(KivAtomWriterInitWithByteStream(output_.stream(), &writer), "the output cannot be written");
  writeAtomWith(writer, fourCC("mdat"), [&](KivAtomWriter& mdat) {
    for (size_t i = 0; i < fragment.size(); ++i) media_.append(mdat, i, fragment[i]);
    media_.flush(mdat);
  });
  ++sequence_;
}
