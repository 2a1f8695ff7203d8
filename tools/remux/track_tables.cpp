#include "track_tables.hpp"

#include <algorithm>

#include "atom_output.hpp"
#include "atom_type.hpp"

void TrackTables::addTo(std::vector<Run>& runs, int64_t value, uint64_t count) {
  if (!runs.empty() && runs.back().value == value && runs.back().count <= UINT32_MAX - count)
    runs.back().count += static_cast<uint32_t>(count);
  else
    runs.push_back({static_cast<uint32_t>(count), value});
}

void TrackTables::add(const OutputChunk& chunk, uint64_t offset) {
  uint64_t count = 0;
  for (const MovieSample& sample : chunk.samples) {
    addSample(sample);
    count += sample.count;
  }
  if (count > UINT32_MAX || sampleCount_ > UINT32_MAX)
    throw RemuxFailure("a track has more samples than a movie's tables can count");
  chunks_.push_back({offset, static_cast<uint32_t>(count), chunk.description});
}

// A sample lasts until the next one is decoded, whatever was said of its duration: only so do later samples
// keep their times.
void TrackTables::addSample(const MovieSample& sample) {
  if (sampleCount_ == 0) {
    firstDecode_ = sample.decode;
  } else if (!samples_.inChunks) {
    const int64_t delta = sample.decode - lastDecode_;
    if (delta < 0 || delta > UINT32_MAX)
      throw RemuxFailure(
          fmt::format("sample {} is decoded {} units after the one before it, which no table can say",
                      sample.index, delta));
    addTo(times_, delta, 1);
  }
  if (samples_.inChunks && sample.count) {
    addTo(times_, sample.duration / static_cast<int64_t>(sample.count), sample.count);
  } else if (!samples_.inChunks) {
    sizes_.push_back(static_cast<uint32_t>(sample.size));
    addTo(offsets_, sample.composition - sample.decode, 1);
    const SampleDependencies& said = sample.dependencies;
    dependencies_.push_back(static_cast<uint8_t>(said.isLeading << 6 | said.dependsOnOthers << 4 |
                                                 said.isDependedOn << 2 | said.hasRedundancy));
    anyDependency_ |= dependencies_.back() != 0;
    if (sample.sync)
      syncs_.push_back(static_cast<uint32_t>(sampleCount_ + 1));
    else
      allSync_ = false;
  }
  lastDecode_ = sample.decode;
  lastDuration_ = sample.duration;
  duration_ = sample.decode - firstDecode_ + sample.duration;
  shownEnd_ = std::max(shownEnd_, sample.composition - firstDecode_ + sample.duration);
  sampleCount_ += sample.count;
}

void TrackTables::finish() {
  if (sampleCount_ && !samples_.inChunks) addTo(times_, std::clamp<int64_t>(lastDuration_, 0, UINT32_MAX), 1);
}

void TrackTables::write(KivAtomWriter& stbl, uint64_t mediaOffset, bool wide, bool quickTime) const {
  writeTimes(stbl, quickTime);
  if (!allSync_) {
    Fields fields;
    fields.u32(0).u32(static_cast<uint32_t>(syncs_.size()));
    for (uint32_t number : syncs_) fields.u32(number);
    writeAtom(stbl, fourCC("stss"), fields);
  }
  if (anyDependency_) {
    Fields fields;
    fields.u32(0).put(dependencies_.data(), dependencies_.size());
    writeAtom(stbl, fourCC("sdtp"), fields);
  }
  writeSizes(stbl);
  writeChunks(stbl, mediaOffset, wide);
}

void TrackTables::writeTimes(KivAtomWriter& stbl, bool quickTime) const {
  const auto runs = [&](PVFourCharCode type, uint8_t version, const std::vector<Run>& table) {
    Fields fields;
    fields.u32(uint32_t{version} << 24).u32(static_cast<uint32_t>(table.size()));
    for (const Run& run : table) fields.u32(run.count).u32(static_cast<uint32_t>(run.value));
    writeAtom(stbl, type, fields);
  };
  runs(fourCC("stts"), 0, times_);
  if (std::ranges::all_of(offsets_, [](const Run& run) { return run.value == 0; })) return;
  const bool negative = std::ranges::any_of(offsets_, [](const Run& run) { return run.value < 0; });
  for (const Run& run : offsets_)
    if (run.value < INT32_MIN || run.value > INT32_MAX)
      throw RemuxFailure("a sample is shown too long before or after it is decoded for any table to say");
  runs(fourCC("ctts"), negative && !quickTime, offsets_);
}

void TrackTables::writeSizes(KivAtomWriter& stbl) const {
  const bool same =
      samples_.inChunks || (!sizes_.empty() && std::ranges::count(sizes_, sizes_[0]) == std::ssize(sizes_));
  const uint32_t size = samples_.inChunks ? samples_.tables.constantSize : same ? sizes_[0] : 0;
  Fields fields;
  fields.u32(0).u32(size).u32(static_cast<uint32_t>(sampleCount_));
  if (size == 0)
    for (uint32_t one : sizes_) fields.u32(one);
  writeAtom(stbl, fourCC("stsz"), fields);
}

void TrackTables::writeChunks(KivAtomWriter& stbl, uint64_t mediaOffset, bool wide) const {
  Fields runs;
  runs.u32(0).u32(0);
  uint32_t count = 0;
  for (size_t i = 0; i < chunks_.size(); ++i) {
    if (i && chunks_[i].samples == chunks_[i - 1].samples &&
        chunks_[i].description == chunks_[i - 1].description)
      continue;
    runs.u32(static_cast<uint32_t>(i + 1)).u32(chunks_[i].samples).u32(chunks_[i].description);
    ++count;
  }
  runs.replace(4, count, 4);
  writeAtom(stbl, fourCC("stsc"), runs);
  Fields offsets;
  offsets.u32(0).u32(static_cast<uint32_t>(chunks_.size()));
  for (const Chunk& chunk : chunks_)
    if (wide)
      offsets.u64(mediaOffset + chunk.offset);
    else
      offsets.u32(static_cast<uint32_t>(mediaOffset + chunk.offset));
  writeAtom(stbl, wide ? fourCC("co64") : fourCC("stco"), offsets);
}
