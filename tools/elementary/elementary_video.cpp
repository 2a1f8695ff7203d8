#include "elementary_video.hpp"

#include <bedra/allocator.h>
#include <kiv/bridge.h>
#include <kiv/byte_stream.h>

#include <algorithm>
#include <utility>

#include "elementary_format.hpp"
#include "movie/media_map.hpp"
#include "track_samples.hpp"

namespace {

constexpr uint64_t kLargestSample = UINT32_MAX;
// What is read of the stream is in memory; after so many bytes it is given back.
constexpr int64_t kMappedBytes = int64_t{32} << 20;
// Decoders keep 16 frames at most (ITU-T H.264 A.3.1, H.265 A.4.2): no stream lets more wait, and those that
// are not to be shown are among them here.
constexpr size_t kMostWaiting = 32;

// Whether a field completes the frame that the one before it begins (ITU-T H.264 3.30, 3.31).
bool completes(const CodedPicture& second, const CodedPicture& first) {
  using enum CodedPicture::Field;
  return first.field != None && second.field != None && first.field != second.field &&
         (first.forgetsReferences ? 0 : first.frameNum) == second.frameNum && !second.beginsSequence;
}

// Two fields as one picture.
void complete(AccessUnit& frame, const AccessUnit& second) {
  frame.end = second.end;
  frame.dataBytes += second.dataBytes;
  frame.setBytes += second.setBytes;
  CodedPicture& picture = frame.picture;
  picture.order = std::min(picture.order, second.picture.order);
  picture.intra &= second.picture.intra;
  picture.unused &= second.picture.unused;
  picture.redundant |= second.picture.redundant;
  picture.field = CodedPicture::Field::None;
}

}  // namespace

ElementaryVideo::ElementaryVideo(br::Ref<PVBlockBuffer> stream, Codec codec, std::optional<FrameRate> rate,
                                 const Progressed& progressed)
    : stream_(std::move(stream)), codec_(codec) {
  size_t length = 0;
  char* bytes = nullptr;
  if (!stream_ || PVBlockBufferGetDataPointer(stream_.get(), 0, &length, nullptr, &bytes) != 0) {
    damage_ = {"", 0, kKivByteStreamError_ReadFailed, "the file is empty, or cannot be mapped"};
    return;
  }
  bytes_ = {reinterpret_cast<const uint8_t*>(bytes), length};
  AccessUnitReader reader(bytes_, codec);
  read(reader, progressed);
  if (!damage_) chooseRate(reader, rate);
  if (!damage_ && !needsRate()) describe(reader);
  if (!damage_ && !needsRate()) settle();
}

void ElementaryVideo::read(AccessUnitReader& reader, const Progressed& progressed) {
  AccessUnit unit, frame;
  int64_t released = 0;
  while (reader.next(unit) && !damage_) {
    if (progressed) progressed(unit.end);
    if (unit.end - released > kMappedBytes) {
      releasePages(stream_.get());
      released = unit.end;
    }
    if (!unit.readable) {
      ++leftOut_;
      continue;
    }
    if (frame.units != 0 && completes(unit.picture, frame.picture)) {
      complete(frame, unit);
      continue;
    }
    if (frame.units != 0) add(frame);
    frame = unit;
  }
  if (!damage_) damage_ = reader.damage();
  if (damage_) return;
  if (frame.units == 0) {
    damage_ = {"", 0, kKivBridgeError_InvalidParameter,
               "there is no picture in it whose parameter sets are there, too"};
    return;
  }
  add(frame);
  show(0);
  end_ = frame.end;
}

void ElementaryVideo::add(const AccessUnit& unit) {
  const CodedPicture& picture = unit.picture;
  if (unit.dataBytes > kLargestSample) {
    damage_ = {"", unit.offset, kKivBridgeError_UnreadableData, "this picture is larger than 4 GiB"};
    return;
  }
  if (picture.beginsSequence) show(0);
  waiting_.emplace(picture.order, samples_.size());
  const auto flags = (picture.sync ? Sample::kSync : 0) | (picture.intra ? Sample::kIntra : 0) |
                     (picture.unused ? Sample::kUnused : 0) | (picture.redundant ? Sample::kRedundant : 0) |
                     (picture.hidden ? Sample::kHidden : 0);
  samples_.push_back({unit.offset, static_cast<uint32_t>(unit.dataBytes),
                      static_cast<uint32_t>(unit.setBytes), 0, static_cast<uint8_t>(flags), picture.leading,
                      picture.temporalID});
  show(kMostWaiting);
  highestSubLayer_ = std::max(highestSubLayer_, picture.temporalID);
}

// Gives pictures their places in the order in which they are shown until no more than so many wait.
void ElementaryVideo::show(size_t most) {
  for (; waiting_.size() > most; waiting_.erase(waiting_.begin())) {
    const uint64_t index = waiting_.begin()->second;
    samples_[index].shownAfter = static_cast<int32_t>(static_cast<int64_t>(shown_++ - index));
  }
}

void ElementaryVideo::settle() {
  for (const Sample& sample : samples_) delay_ = std::max<int64_t>(delay_, -int64_t{sample.shownAfter});
  firstShown_ = INT64_MAX;
  for (uint64_t i = 0; i < samples_.size() && (i == 0 || !(samples_[i].flags & Sample::kSync)); ++i)
    if (!(samples_[i].flags & Sample::kHidden)) firstShown_ = std::min(firstShown_, sample(i).composition);
  if (firstShown_ == INT64_MAX) firstShown_ = sample(0).composition;
}

void ElementaryVideo::chooseRate(const AccessUnitReader& reader, std::optional<FrameRate> wanted) {
  const auto told = reader.rate();
  if (!wanted && told) wanted = makeFrameRate(told->timeScale, told->ticks);
  if (wanted) rate_ = *wanted;
}

void ElementaryVideo::describe(const AccessUnitReader& reader) {
  const SetCollection& sets = reader.sets();
  setsInSamples_ = sets.changed();
  PVStatus status = 0;
  if (!setsInSamples_) {
    status = createFormat(codec_, bytes_, sets.latest(), false, format_.out());
    setsInSamples_ = status != 0;
  }
  if (setsInSamples_) status = createFormat(codec_, bytes_, sets.early(), true, format_.out());
  if (status != 0)
    damage_ = {"", samples_.front().offset, status,
               "the parameter sets before this picture do not make a sample description"};
}

int64_t ElementaryVideo::endOf(uint64_t index) const {
  return index + 1 < samples_.size() ? samples_[index + 1].offset - UnitScan::kStartCodeBytes : end_;
}

MovieSample ElementaryVideo::sample(uint64_t index) const {
  const Sample& kept = samples_[index];
  const auto at = static_cast<int64_t>(index);
  MovieSample sample;
  sample.index = index;
  sample.decode = at * rate_.seconds;
  sample.composition = (at + kept.shownAfter + delay_) * rate_.seconds;
  sample.duration = rate_.seconds;
  sample.offset = kept.offset;
  sample.size = kept.dataBytes - (setsInSamples_ ? 0 : kept.setBytes);
  sample.description = 1;
  sample.sync = kept.flags & Sample::kSync;
  const bool unused = kept.flags & Sample::kUnused && kept.temporalID == highestSubLayer_;
  sample.dependencies = {.isLeading = kept.leading,
                         .dependsOnOthers = static_cast<uint8_t>(kept.flags & Sample::kIntra ? 2 : 1),
                         .isDependedOn = static_cast<uint8_t>(unused ? 2 : 1),
                         .hasRedundancy = static_cast<uint8_t>(kept.flags & Sample::kRedundant ? 1 : 0)};
  return sample;
}

PVStatus ElementaryVideo::createData(uint64_t index, PVBlockBufferRef* dataOut) const {
  *dataOut = nullptr;
  const auto units = unitsOf(index);
  const size_t fieldBytes = units.size() * kLengthFieldBytes;
  auto* fields = static_cast<uint8_t*>(BRAllocatorAllocate(nullptr, fieldBytes));
  if (!fields) return kPVBlockBufferBlockAllocationFailedErr;
  for (size_t i = 0; i < units.size(); ++i)
    for (int byte = 0; byte < kLengthFieldBytes; ++byte)
      fields[i * kLengthFieldBytes + static_cast<size_t>(byte)] =
          static_cast<uint8_t>(units[i].length >> (24 - 8 * byte));
  br::Ref<PVBlockBuffer> lengths, data;
  PVStatus status = PVBlockBufferCreateWithMemoryBlock(nullptr, fields, fieldBytes, nullptr, nullptr, 0,
                                                       fieldBytes, 0, lengths.out());
  if (status != 0) {
    BRAllocatorDeallocate(nullptr, fields);
    return status;
  }
  status = PVBlockBufferCreateEmpty(nullptr, static_cast<uint32_t>(2 * units.size()), 0, data.out());
  for (size_t i = 0; i < units.size() && status == 0; ++i) {
    status = PVBlockBufferAppendBufferReference(data.get(), lengths.get(), i * kLengthFieldBytes,
                                                kLengthFieldBytes, 0);
    if (status == 0)
      status =
          PVBlockBufferAppendBufferReference(data.get(), stream_.get(), static_cast<size_t>(units[i].offset),
                                             static_cast<size_t>(units[i].length), 0);
  }
  if (status == 0) *dataOut = data.detach();
  return status;
}

std::vector<UnitPlace> ElementaryVideo::unitsOf(uint64_t index) const {
  std::vector<UnitPlace> units;
  UnitScan scan(bytes_, samples_[index].offset - UnitScan::kStartCodeBytes, endOf(index));
  while (const auto place = scan.next()) {
    const auto unit = bytes_.subspan(static_cast<size_t>(place->offset), static_cast<size_t>(place->length));
    if (setsInSamples_ || !setKindOf(codec_, unit)) units.push_back(*place);
  }
  return units;
}

PVStatus ElementaryVideo::create(uint64_t index, PVSampleBufferRef* bufferOut) const {
  *bufferOut = nullptr;
  const MovieSample place = sample(index);
  const auto time = [&](int64_t value) { return PVTimeMake(value, rate_.count); };
  const PVSampleTimingInfo timing = {time(place.duration), time(place.composition), time(place.decode)};
  const auto size = static_cast<size_t>(place.size);
  br::Ref<PVBlockBuffer> data;
  br::Ref<PVSampleBuffer> buffer;
  PVStatus status = createData(index, data.out());
  if (status == 0)
    status =
        PVSampleBufferCreateReady(nullptr, data.get(), format_.get(), 1, 1, &timing, 1, &size, buffer.out());
  if (status == 0) status = attachFacts(buffer.get(), place);
  if (status == 0) *bufferOut = buffer.detach();
  return status;
}
