// The times and sizes of samples, as a buffer was created with them.
#include <algorithm>

#include "buffers/samples/sample_buffer.hpp"

using namespace pv::sample;
using pv::signalError;

constexpr const PVSampleTimingInfo kPVSampleTimingInfoInvalid{};

namespace pv::sample {

PVTime multiplied(PVTime duration, int64_t count) {
  if (count <= INT32_MAX)
    return count == 1 ? duration : PVTimeMultiply(duration, static_cast<int32_t>(count));
  constexpr int32_t kStep = 1 << 30;
  return PVTimeAdd(PVTimeMultiply(multiplied(duration, count / kStep), kStep),
                   multiplied(duration, count % kStep));
}

void summarise(PVSampleBuffer& buffer) {
  if (buffer.timingForm != Form::kEach) return;
  PVSampleTimingInfo all = buffer.timing()[0];
  for (const PVSampleTimingInfo& entry : buffer.timing().subspan(1)) {
    all.duration = PVTimeAdd(all.duration, entry.duration);
    all.presentationTimeStamp = PVTimeMinimum(entry.presentationTimeStamp, all.presentationTimeStamp);
    all.decodeTimeStamp = PVTimeMinimum(entry.decodeTimeStamp, all.decodeTimeStamp);
  }
  buffer.summary() = all;
}

void setTiming(PVSampleBuffer& buffer, std::span<const PVSampleTimingInfo> timing) {
  std::ranges::copy(timing, buffer.timing().data());
  summarise(buffer);
}

PVSampleTimingInfo timingOf(const PVSampleBuffer& buffer, int64_t index) {
  if (buffer.timingForm == Form::kEach) return buffer.timing()[static_cast<size_t>(index)];
  const PVSampleTimingInfo& shared = buffer.timing()[0];
  if (buffer.numSamples == 1) return shared;
  return {shared.duration, PVTimeAdd(shared.presentationTimeStamp, multiplied(shared.duration, index)),
          kPVTimeInvalid};
}

}  // namespace pv::sample

namespace {

// The entry, or what the entries come to; null without timing.
const PVSampleTimingInfo* summaryOf(const PVSampleBuffer& buffer) {
  if (buffer.timingForm == Form::kNone) return nullptr;
  return buffer.timingForm == Form::kOne ? &buffer.timing()[0] : &buffer.ref()->summary();
}

// The getters of entries: counts, and copies if there is room.
template <class Entry>
PVStatus copyEntries(std::span<const Entry> entries, PVStatus whenNone, int64_t room, Entry* out,
                     int64_t* neededOut) {
  if (neededOut) *neededOut = std::ssize(entries);
  if (entries.empty()) return whenNone;
  if (out && room < std::ssize(entries)) return signalError(kPVSampleBufferError_ArrayTooSmall);
  if (out) std::ranges::copy(entries, out);
  return 0;
}

}  // namespace

PVTime PVSampleBufferGetPresentationTimeStamp(PVSampleBufferRef buffer) {
  const PVSampleTimingInfo* all = refused(buffer) ? nullptr : summaryOf(*buffer);
  return all ? all->presentationTimeStamp : kPVTimeInvalid;
}

PVTime PVSampleBufferGetDecodeTimeStamp(PVSampleBufferRef buffer) {
  const PVSampleTimingInfo* all = refused(buffer) ? nullptr : summaryOf(*buffer);
  return all ? all->decodeTimeStamp : kPVTimeInvalid;
}

PVTime PVSampleBufferGetDuration(PVSampleBufferRef buffer) {
  if (refused(buffer)) return kPVTimeInvalid;
  const PVSampleTimingInfo* all = summaryOf(*buffer);
  if (!all) return kPVTimeZero;
  return buffer->timingForm == Form::kOne && buffer->numSamples > 1
             ? multiplied(all->duration, buffer->numSamples)
             : all->duration;
}

PVStatus PVSampleBufferGetSampleTimingInfo(PVSampleBufferRef buffer, int64_t sampleIndex,
                                           PVSampleTimingInfo* timingInfoOut) {
  if (PVStatus status = refused(buffer)) return status;
  if (!timingInfoOut) return signalError(kPVSampleBufferError_RequiredParameterMissing);
  if (buffer->timingForm == Form::kNone) return signalError(kPVSampleBufferError_NoSampleTiming);
  if (sampleIndex < 0 || sampleIndex >= buffer->numSamples)
    return signalError(kPVSampleBufferError_SampleIndexOutOfRange);
  *timingInfoOut = timingOf(*buffer, sampleIndex);
  return 0;
}

PVStatus PVSampleBufferGetSampleTimingInfoArray(PVSampleBufferRef buffer, int64_t timingArrayEntries,
                                                PVSampleTimingInfo* timingArrayOut,
                                                int64_t* entriesNeededOut) {
  if (PVStatus status = refused(buffer)) return status;
  return copyEntries(std::span<const PVSampleTimingInfo>(buffer->timing()),
                     kPVSampleBufferError_NoSampleTiming, timingArrayEntries, timingArrayOut,
                     entriesNeededOut);
}

size_t PVSampleBufferGetSampleSize(PVSampleBufferRef buffer, int64_t sampleIndex) {
  if (refused(buffer)) return 0;
  if (buffer->sizeForm == Form::kNone) {
    signalError(kPVSampleBufferError_NoSampleSizes);
    return 0;
  }
  if (sampleIndex < 0 || sampleIndex >= buffer->numSamples) {
    signalError(kPVSampleBufferError_SampleIndexOutOfRange);
    return 0;
  }
  return buffer->sizes()[buffer->sizeForm == Form::kOne ? 0 : static_cast<size_t>(sampleIndex)];
}

PVStatus PVSampleBufferGetSampleSizeArray(PVSampleBufferRef buffer, int64_t sizeArrayEntries,
                                          size_t* sizeArrayOut, int64_t* entriesNeededOut) {
  if (PVStatus status = refused(buffer)) return status;
  return copyEntries(std::span<const size_t>(buffer->sizes()), kPVSampleBufferError_NoSampleSizes,
                     sizeArrayEntries, sizeArrayOut, entriesNeededOut);
}

size_t PVSampleBufferGetTotalSampleSize(PVSampleBufferRef buffer) {
  if (refused(buffer)) return 0;
  if (buffer->sizeForm != Form::kNone) return totalSize(*buffer);
  size_t total = 0;
  for (const AudioStreamPacketDescription& packet : buffer->packets()) total += packet.dataByteSize;
  return total;
}
