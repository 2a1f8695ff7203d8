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

SampleCursor::SampleCursor(const MovieTrack& track) : track_(&track), tableCount_(track.tables.sampleCount) {
  const SampleTables& tables = track.tables;
  if (!tables.constantSize && tables.sizeBits == 32) sizes_ = tables.sizes.bytes();
  if (tables.dependencies.count() >= tableCount_) dependencies_ = tables.dependencies.bytes();
  if (tables.syncs.isPresent() && !tables.syncs.isUnreadable()) openSync();
}

void SampleCursor::openChunk() {
  const SampleTables& tables = track_->tables;
  const uint64_t chunk = nextChunk_++;
  const Table& runs = tables.chunkRuns;
  if (nextChunkRun_ < runs.count() && runs.word(nextChunkRun_, 12) == chunk + 1) {
    samplesPerChunk_ = runs.word(nextChunkRun_, 12, 4);
    description_ = runs.word(nextChunkRun_++, 12, 8);
  }
  chunkLeft_ = samplesPerChunk_;
  const uint8_t* at = tables.chunks.bytes() + chunk * tables.chunkBytes;
  const uint64_t offset = tables.chunkBytes == 8 ? bigEndian64(at) : bigEndian32(at);
  offset_ = offset > INT64_MAX ? MovieSample::kNowhere : static_cast<int64_t>(offset);
}

void SampleCursor::openTimes() {
  timesLeft_ = track_->tables.times.word(nextTime_, 8);
  duration_ = track_->tables.times.word(nextTime_++, 8, 4);
}

void SampleCursor::openOffsets() {
  const Table& offsets = track_->tables.offsets;
  const bool any = nextOffset_ < offsets.count();
  offsetsLeft_ = any ? offsets.word(nextOffset_, 8) : UINT64_MAX;
  compositionOffset_ = any ? static_cast<int32_t>(offsets.word(nextOffset_++, 8, 4)) : 0;
}

void SampleCursor::openSync() {
  const Table& syncs = track_->tables.syncs;
  syncAt_ = nextSync_ < syncs.count() ? syncs.word(nextSync_++, 4) - 1 : UINT64_MAX;
}

uint32_t SampleCursor::unusualSize() const {
  const SampleTables& tables = track_->tables;
  if (tables.constantSize) return tables.constantSize;
  const uint8_t* bytes = tables.sizes.bytes();
  if (tables.sizeBits == 16) return bigEndian16(bytes + 2 * index_);
  if (tables.sizeBits == 8) return bytes[index_];
  return index_ % 2 ? bytes[index_ / 2] & 15 : bytes[index_ / 2] >> 4;
}

bool SampleCursor::nextOfTables(MovieSample& sample) {
  while (chunkLeft_ == 0) openChunk();
  sample.index = index_;
  sample.offset = offset_;
  sample.description = description_;
  sample.decode = decode_;
  if (track_->inChunks) {
    takeChunk(sample);
    return true;
  }
  while (timesLeft_ == 0) openTimes();
  while (offsetsLeft_ == 0) openOffsets();
  sample.count = 1;
  sample.composition = decode_ + compositionOffset_;
  sample.duration = duration_;
  sample.size = sizes_ ? bigEndian32(sizes_ + 4 * index_) : unusualSize();
  sample.sync = index_ >= syncAt_;
  if (index_ == syncAt_ && nextSync_ > 0) openSync();
  sample.dependencies = dependencies_ ? dependenciesOf(dependencies_[index_]) : SampleDependencies{};
  offset_ = advanced(offset_, sample.size);
  decode_ += duration_;
  --offsetsLeft_;
  --timesLeft_;
  --chunkLeft_;
  ++index_;
  return true;
}

void SampleCursor::takeChunk(MovieSample& sample) {
  const MovieTrack::Packing packing = track_->packingOf(description_);
  sample.composition = decode_;
  sample.sync = true;
  sample.dependencies = {};
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
  const uint8_t* at = run.entries + inRun_ * run.entryBytes();
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
