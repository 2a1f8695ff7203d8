#include "elementary_movie.hpp"

#include <kiv/byte_stream.h>
#include <pevrin/sample_description.h>
#include <pevrin/video_format_description.h>

#include <cmath>

#include "atom_output.hpp"
#include "atom_type.hpp"
#include "track_tables.hpp"

namespace {

constexpr uint32_t kFlagsOfTrack = 7;       // enabled, in the movie, in the preview
constexpr uint32_t kUndetermined = 0x55C4;  // as a language

// A multiple of the track's, so that the length of the edit is exact, and not too coarse for other tracks.
uint32_t movieTimescaleOf(const ElementaryVideo& video) {
  constexpr uint32_t kLeast = 600;
  const auto count = static_cast<uint32_t>(video.rate().count);
  return count >= kLeast ? count : (kLeast + count - 1) / count * count;
}

Fields& putMatrix(Fields& fields) {
  for (uint32_t value : {1u << 16, 0u, 0u, 0u, 1u << 16, 0u, 0u, 0u, 1u << 30}) fields.u32(value);
  return fields;
}

class HeaderWriter {
 public:
  explicit HeaderWriter(const ElementaryVideo& video) : video_(video), tables_(places_) {
    // Chunks so large that their table stays small; where they are does not matter.
    constexpr size_t kChunk = 4096;
    OutputChunk chunk;
    chunk.description = 1;
    for (uint64_t i = 0; i < video.sampleCount(); ++i) {
      chunk.samples.push_back(video.sample(i));
      mediaBytes_ += chunk.samples.back().size;
      if (chunk.samples.size() < kChunk && i + 1 < video.sampleCount()) continue;
      tables_.add(chunk, 0);
      chunk.samples.clear();
    }
    tables_.finish();
  }

  int64_t mediaBytes() const { return mediaBytes_; }

  void write(KivAtomWriter& file) const {
    Fields brands;
    writeAtomWith(file, fourCC("ftyp"), [&](KivAtomWriter& ftyp) {
      append(
          ftyp,
          brands.u32(fourCC("isom")).u32(0x200).u32(fourCC("isom")).u32(fourCC("iso2")).u32(fourCC("mp41")));
    });
    writeAtomWith(file, fourCC("moov"), [&](KivAtomWriter& moov) {
      Fields header;
      header.u32(1 << 24)
          .u64(0)
          .u64(0)
          .u32(movieTimescaleOf(video_))
          .u64(shownDuration())
          .u32(1 << 16)
          .u16(0x100);
      writeAtom(moov, fourCC("mvhd"), putMatrix(header.zeros(10)).zeros(24).u32(2));
      writeAtom(moov, fourCC("trak"), [&](KivAtomWriter& trak) { writeTrack(trak); });
    });
  }

 private:
  // On the movie's timescale.
  uint64_t shownDuration() const {
    const int64_t perUnit = movieTimescaleOf(video_) / static_cast<uint32_t>(video_.rate().count);
    return static_cast<uint64_t>((tables_.shownEnd() - video_.firstShown()) * perUnit);
  }

  void writeTrack(KivAtomWriter& trak) const {
    const GRSize shown = PVVideoFormatDescriptionGetPresentationDimensions(video_.format(), true, true);
    const auto fixed = [](double length) {
      return static_cast<uint32_t>(std::lround(std::min(length, 65535.0) * 65536));
    };
    Fields header, edit;
    header.u32(1 << 24 | kFlagsOfTrack).u64(0).u64(0).u32(1).u32(0).u64(shownDuration()).zeros(16);
    writeAtom(trak, fourCC("tkhd"), putMatrix(header).u32(fixed(shown.width)).u32(fixed(shown.height)));
    edit.u32(1 << 24)
        .u32(1)
        .u64(shownDuration())
        .u64(static_cast<uint64_t>(video_.firstShown()))
        .u32(1 << 16);
    if (video_.firstShown() != 0)
      writeAtom(trak, fourCC("edts"), [&](KivAtomWriter& edts) { writeAtom(edts, fourCC("elst"), edit); });
    writeAtom(trak, fourCC("mdia"), [&](KivAtomWriter& mdia) { writeMedia(mdia); });
  }

  void writeMedia(KivAtomWriter& mdia) const {
    Fields header, handler, video;
    header.u32(1 << 24).u64(0).u64(0).u32(static_cast<uint32_t>(video_.rate().count));
    writeAtom(mdia, fourCC("mdhd"),
              header.u64(static_cast<uint64_t>(tables_.duration())).u16(kUndetermined).u16(0));
    writeAtom(mdia, fourCC("hdlr"), handler.u32(0).u32(0).u32(fourCC("vide")).zeros(12).put("Video", 6));
    writeAtom(mdia, fourCC("minf"), [&](KivAtomWriter& minf) {
      writeAtom(minf, fourCC("vmhd"), video.u32(1).u64(0));
      writeAtom(minf, fourCC("dinf"), [](KivAtomWriter& dinf) {
        Fields inThisFile;
        inThisFile.u32(0).u32(1).u32(12).u32(fourCC("url ")).u32(1);
        writeAtom(dinf, fourCC("dref"), inThisFile);
      });
      writeAtom(minf, fourCC("stbl"), [&](KivAtomWriter& stbl) { writeTables(stbl); });
    });
  }

  void writeTables(KivAtomWriter& stbl) const {
    br::Ref<PVBlockBuffer> entry;
    if (!writeSampleEntry(fourCC("vide"), video_.format(), kPVImageDescriptionFlavor_ISOFamily, entry))
      throw RemuxFailure("the stream's parameter sets make no sample description");
    writeAtom(stbl, fourCC("stsd"), [&](KivAtomWriter& stsd) {
      Fields head;
      append(stsd, head.u32(0).u32(1));
      check(KivAtomWriterAppendBlockBufferData(&stsd, entry.get()), "memory ran out");
    });
    tables_.write(stbl, 0, false, false);
  }

  const ElementaryVideo& video_;
  const MovieTrack places_;  // none of them is in a file
  TrackTables tables_;
  int64_t mediaBytes_ = 0;
};

}  // namespace

ElementaryMovie::ElementaryMovie(const ElementaryVideo& video) {
  br::Ref<PVBlockBuffer> header;
  check(PVBlockBufferCreateEmpty(nullptr, 16, 0, header.out()), "memory ran out");
  KivAtomWriter file;
  check(KivAtomWriterInitWithBlockBuffer(header.get(), &file), "memory ran out");
  const HeaderWriter writer(video);
  writer.write(file);
  check(KivByteStreamCreateForBlockBuffer(nullptr, header.get(), stream_.out()), "memory ran out");
  const auto length = static_cast<int64_t>(PVBlockBufferGetDataLength(header.get()));
  movie_.emplace(stream_.get(), length, length + writer.mediaBytes());
}
