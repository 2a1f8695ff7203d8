// The tables have been settled: up to sampleCount their entries are there, and no sum of times overflows.
#include "sample_cursor.hpp"

#include <algorithm>

#include "big_endian.hpp"

namespace {

// Behind a place that is none there is none either; nor behind one that no file can have.
int64_t advanced(int64_t offset, int64_t size) {
  int64_t end;
  if (offset < 0 || __builtin_add_overflow(offset, size, &end)) return MovieSample::kNowhere;
  return end;
}

SampleDependencies dependenciesOf(uint32_t bits) {
  const auto pair = [bits](int shift) { return static_cast<uint8_t>(bits >> shift & 3); };
  return {pair(6), pair(4), pair(2), pair(0)};
}

}  // namespace

void SampleCursor::openChunk() {
  const SampleTables& tables = track_->tables;
  const uint64_t chunk = nextChunk_++;
  const Table& runs = tables.chunkRuns;
  // a table that begins its next run at this chunk
  while (nextChunkRun_ < runs.count() && runs.word(nextChunkRun_, 12) == chunk + 1) {
    samplesPerChunk_ = runs.word(nextChunkRun_, 12, 4);
    description_ = runs.word(nextChunkRun_++, 12, 8);
  }
  chunkLeft_ = samplesPerChunk_;
  const uint8_t* at = tables.chunks.bytes() + chunk * tables.chunkBytes;
  const uint64_t offset = tables.chunkBytes == 8 ? bigEndian64(at) : bigEndian32(at);
  offset_ = offset > INT64_MAX ? MovieSample::kNowhere : static_cast<int64_t>(offset);
}

int64_t SampleCursor::sizeInTables() const {
  const SampleTables& tables = track_->tables;
  if (tables.constantSize) return tables.constantSize;
  const uint8_t* bytes = tables.sizes.bytes();
  switch (tables.sizeBits) {
    case 4:
      return index_ % 2 ? bytes[index_ / 2] & 15 : bytes[index_ / 2] >> 4;
    case 8:
      return bytes[index_];
    case 16:
      return bigEndian16(bytes + 2 * index_);
    default:
      return bigEndian32(bytes + 4 * index_);
  }
}

bool SampleCursor::nextOfTables(MovieSample& sample) {
  const SampleTables& tables = track_->tables;
  while (chunkLeft_ == 0) openChunk();
  sample.index = index_;
  sample.decode = sample.composition = decode_;
  sample.offset = offset_;
  sample.description = description_;
  sample.sync = true;
  sample.dependencies = {};
  if (track_->inChunks) {
    takeChunk(sample);
    return true;
  }
  while (timesLeft_ == 0) {
    timesLeft_ = tables.times.word(nextTime_, 8);
    duration_ = tables.times.word(nextTime_++, 8, 4);
  }
  while (offsetsLeft_ == 0 && nextOffset_ < tables.offsets.count()) {
    offsetsLeft_ = tables.offsets.word(nextOffset_, 8);
    compositionOffset_ = static_cast<int32_t>(tables.offsets.word(nextOffset_++, 8, 4));
  }
  if (offsetsLeft_ > 0) {
    --offsetsLeft_;
    sample.composition += compositionOffset_;
  }
  if (tables.syncs.isPresent() && !tables.syncs.isUnreadable()) {
    sample.sync = nextSync_ < tables.syncs.count() && tables.syncs.word(nextSync_, 4) == index_ + 1;
    if (sample.sync) ++nextSync_;
  }
  if (index_ < tables.dependencies.count())
    sample.dependencies = dependenciesOf(tables.dependencies.bytes()[index_]);
  sample.count = 1;
  sample.duration = duration_;
  sample.size = sizeInTables();
  offset_ = advanced(offset_, sample.size);
  decode_ += duration_;
  --timesLeft_;
  --chunkLeft_;
  ++index_;
  return true;
}

void SampleCursor::takeChunk(MovieSample& sample) {
  const MovieTrack::Packing packing = track_->packingOf(description_);
  sample.count = std::min(chunkLeft_, track_->tables.sampleCount - index_);
  sample.duration = static_cast<int64_t>(sample.count);
  const uint64_t bytes = sample.count * packing.bytes / packing.samples;
  sample.size = static_cast<int64_t>(std::min<uint64_t>(bytes, INT64_MAX));
  decode_ += sample.duration;
  index_ += sample.count;
  chunkLeft_ = 0;
}

bool SampleCursor::nextOfRuns(MovieSample& sample) {
  if (run_ == track_->runs.size()) return false;
  const FragmentRun& run = track_->runs[run_];
  if (inRun_ == 0) {
    decode_ = run.decode;
    offset_ = run.offset;
  }
  const uint8_t* at = track_->runEntries.data() + run.entries + inRun_ * run.entryBytes();
  const auto field = [&](uint32_t bit, uint32_t otherwise) {
    if ((run.fields & bit) == 0) return otherwise;
    at += 4;
    return bigEndian32(at - 4);
  };
  sample.index = index_;
  sample.count = 1;
  sample.decode = decode_;
  sample.duration = field(FragmentRun::kDurations, run.duration);
  sample.size = field(FragmentRun::kSizes, run.size);
  const uint32_t flags = field(FragmentRun::kFlags, inRun_ == 0 ? run.firstFlags : run.flags);
  sample.composition = decode_ + static_cast<int32_t>(field(FragmentRun::kOffsets, 0));
  sample.offset = offset_;
  sample.description = run.description;
  sample.sync = (flags & 0x10000) == 0;
  sample.dependencies = dependenciesOf(flags >> 20);
  offset_ = advanced(offset_, sample.size);
  decode_ += sample.duration;
  ++index_;
  if (++inRun_ == run.count) {
    ++run_;
    inRun_ = 0;
  }
  return true;
}
