#include "sample_tables.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "atom_type.hpp"

namespace {

constexpr auto stts = fourCC("stts"), ctts = fourCC("ctts"), stsc = fourCC("stsc"), stsz = fourCC("stsz"),
               stz2 = fourCC("stz2"), stco = fourCC("stco"), co64 = fourCC("co64"), stss = fourCC("stss"),
               sdtp = fourCC("sdtp");

// Version, flags, count, entries.
std::optional<Fault> readCounted(const KivAtomStream* stream, uint8_t lastVersion, size_t entryBytes,
                                 Table& table) {
  AtomFields fields;
  if (auto fault = fields.read(stream, lastVersion, 4)) {
    table.markUnreadable();
    return fault;
  }
  return table.read(stream, 8, fields.u32(0), static_cast<unsigned>(entryBytes * 8));
}

template <typename... Arguments>
Fault malformed(fmt::format_string<Arguments...> format, Arguments&&... arguments) {
  return {kKivAtomStreamError_MalformedAtom, fmt::format(format, std::forward<Arguments>(arguments)...)};
}

}  // namespace

std::optional<Fault> SampleTables::read(PVFourCharCode type, const KivAtomStream* stream) {
  struct Place {
    PVFourCharCode type;
    Table SampleTables::*table;
    uint8_t lastVersion;
    size_t entryBytes;
  };
  static constexpr Place kPlaces[] = {
      {stts, &SampleTables::times, 0, 8},       {ctts, &SampleTables::offsets, 1, 8},
      {stsc, &SampleTables::chunkRuns, 0, 12},  {stsz, &SampleTables::sizes, 0, 4},
      {stz2, &SampleTables::sizes, 0, 4},       {stco, &SampleTables::chunks, 0, 4},
      {co64, &SampleTables::chunks, 0, 8},      {stss, &SampleTables::syncs, 0, 4},
      {sdtp, &SampleTables::dependencies, 0, 1}};
  const auto* place = std::ranges::find(kPlaces, type, &Place::type);
  if (place == std::end(kPlaces) || (this->*place->table).isPresent()) return std::nullopt;
  Table& table = this->*place->table;
  if (type == stsz || type == stz2) sizesType_ = type;
  if (type == stco || type == co64) {
    chunksType_ = type;
    chunkBytes = place->entryBytes;
  }
  if (!stream) {
    table.markUnreadable();
    return std::nullopt;
  }
  if (type == stsz || type == stz2) return readSizes(stream, type == stz2);
  if (type != sdtp) return readCounted(stream, place->lastVersion, place->entryBytes, table);
  AtomFields fields;
  table.markUnreadable();
  if (auto fault = fields.read(stream, 0, 0)) return fault;
  int64_t length = 0;
  KivAtomStreamGetCurrentAtomTypeAndDataLength(stream, nullptr, &length);
  return table.read(stream, 4, static_cast<uint64_t>(length - 4), 8);
}

std::optional<Fault> SampleTables::readSizes(const KivAtomStream* stream, bool compact) {
  AtomFields fields;
  sizes.markUnreadable();
  if (auto fault = fields.read(stream, 0, 8)) return fault;
  declaredCount_ = fields.u32(4);
  if (!compact) {
    constantSize = fields.u32(0);
    return sizes.read(stream, 12, constantSize ? 0 : declaredCount_, 32);
  }
  sizeBits = fields.u32(0) & 0xFF;
  if (sizeBits != 4 && sizeBits != 8 && sizeBits != 16) {
    const unsigned bits = std::exchange(sizeBits, 32);
    return malformed("its fields of {} bits are not 4, 8 or 16", bits);
  }
  return sizes.read(stream, 12, declaredCount_, sizeBits);
}

std::vector<SampleTables::TableFault> SampleTables::settle(bool inChunks, int64_t& bytesLeft) {
  std::vector<TableFault> faults;
  const Table* const needed[] = {&sizes, &times, &chunkRuns, &chunks};
  constexpr PVFourCharCode kNames[] = {stsz, stts, stsc, stco};
  sampleCount = constantSize ? declaredCount_ : sizes.count();
  const bool anything = sampleCount > 0 || std::ranges::any_of(needed, [](auto* t) { return !t->isEmpty(); });
  for (size_t i = 0; i < std::size(needed); ++i) {
    if (needed[i]->isPresent() && !needed[i]->isUnreadable()) continue;
    sampleCount = 0;
    if (anything && !needed[i]->isPresent())
      faults.push_back(
          {0, malformed("it has no '{}', so that its samples cannot be found", typeText(kNames[i]))});
  }
  if (sampleCount == 0) return faults;

  if (constantSize && !inChunks) {
    const uint64_t most = static_cast<uint64_t>(bytesLeft) / constantSize;
    if (sampleCount > most) {
      faults.push_back(
          {sizesType_, malformed("it counts {} samples of {} bytes, more than the file has room for",
                                 sampleCount, constantSize)});
      sampleCount = most;
    }
    bytesLeft -= static_cast<int64_t>(sampleCount * constantSize);
  }
  settleTimes(faults);
  settleChunks(faults);
  settleExtras(faults);
  return faults;
}

void SampleTables::settleTimes(std::vector<TableFault>& faults) {
  uint64_t covered = 0;
  __int128 end = 0;
  for (uint64_t i = 0; i < times.count() && covered < sampleCount; ++i) {
    const uint64_t count = std::min<uint64_t>(times.word(i, 8), sampleCount - covered);
    end += static_cast<__int128>(count) * times.word(i, 8, 4);
    if (end > kLargestTime) {
      faults.push_back({stts, malformed("its times from entry {} on are too large", i + 1)});
      sampleCount = covered;
      return;
    }
    covered += count;
    endTime = static_cast<int64_t>(end);
  }
  if (covered == sampleCount) return;
  faults.push_back({stts, malformed("it has times for {} of {} samples", covered, sampleCount)});
  sampleCount = covered;
}

void SampleTables::settleChunks(std::vector<TableFault>& faults) {
  uint64_t covered = 0;
  for (uint64_t i = 0; i < chunkRuns.count(); ++i) {
    const uint64_t first = chunkRuns.word(i, 12);
    const bool last = i + 1 == chunkRuns.count();
    const uint64_t behind = last ? chunks.count() + 1 : chunkRuns.word(i + 1, 12);
    if ((i == 0 && first != 1) || (!last && behind <= first)) {
      faults.push_back(
          {stsc, malformed("its entry {} does not begin behind the one before", i == 0 ? 1 : i + 2)});
      chunkRuns.cutTo(i == 0 && first != 1 ? 0 : i + 1);
      if (chunkRuns.isEmpty()) break;
      --i;  // the last one now, it goes on to the end
      continue;
    }
    const uint64_t end = std::min(behind, chunks.count() + 1);
    if (end > first) covered += (end - first) * chunkRuns.word(i, 12, 4);
    if (covered >= sampleCount) return;  // sums stay below 2^64: each product is of two 32-bit numbers
  }
  faults.push_back({covered == 0 && chunks.isEmpty() ? chunksType_ : stsc,
                    malformed("the chunks have room for {} of {} samples", covered, sampleCount)});
  sampleCount = covered;
}

void SampleTables::settleExtras(std::vector<TableFault>& faults) {
  uint64_t offsetCount = 0, last = 0, i = 0;
  for (uint64_t k = 0; k < offsets.count() && offsetCount < sampleCount; ++k)
    offsetCount += offsets.word(k, 8);
  if (offsets.isPresent() && !offsets.isUnreadable() && offsetCount < sampleCount)
    faults.push_back({ctts, malformed("it has offsets for {} of {} samples", offsetCount, sampleCount)});
  for (; i < syncs.count(); last = syncs.word(i++, 4))
    if (syncs.word(i, 4) <= last || syncs.word(i, 4) > sampleCount) break;
  if (i < syncs.count()) {
    faults.push_back(
        {stss, malformed("its entry {}, sample {}, is not behind sample {} and among the {} there are", i + 1,
                         syncs.word(i, 4), last, sampleCount)});
    syncs.cutTo(i);
  }
  if (dependencies.isPresent() && !dependencies.isUnreadable() && dependencies.count() < sampleCount)
    faults.push_back(
        {sdtp, malformed("it has entries for {} of {} samples", dependencies.count(), sampleCount)});
}
