// Output times of buffers, and of the samples in them.
#include "buffers/samples/output_times.hpp"

#include <algorithm>

using namespace pv::sample;
using pv::signalError;

namespace {

// The rules for a buffer as a whole.

PVTime naturalPresentation(PVSampleBufferRef buffer, const Edits& edits) {
  PVTime time = PVSampleBufferGetPresentationTimeStamp(buffer);
  if (edits.reversed) {
    time = PVTimeAdd(time, PVSampleBufferGetDuration(buffer));
    return edits.hasTrimAtEnd ? PVTimeSubtract(time, edits.trimAtEnd) : time;
  }
  return edits.hasTrimAtStart ? PVTimeAdd(time, edits.trimAtStart) : time;
}

PVTime scaledBy(const Edits& edits, PVTime distance) {
  return edits.hasSpeed ? PVTimeMultiplyByFloat64(distance, 1 / edits.speed) : distance;
}

PVTime withoutTrims(PVTime duration, const Edits& edits) {
  if (!PVTimeIsNumeric(duration)) return duration;
  if (edits.hasTrimAtStart) duration = PVTimeSubtract(duration, edits.trimAtStart);
  if (edits.hasTrimAtEnd) duration = PVTimeSubtract(duration, edits.trimAtEnd);
  return duration;
}

PVTime between(const PVTime& low, const PVTime& high, const PVTime& time) {
  return PVTimeMaximum(low, PVTimeMinimum(high, time));
}

}  // namespace

namespace pv::sample {

OutputTimes::OutputTimes(const PVSampleBuffer& buffer)
    : edits_(buffer.edits() ? *buffer.edits() : Edits{}),
      duration_(PVSampleBufferGetDuration(buffer.ref())),
      natural_(naturalPresentation(buffer.ref(), edits_)),
      output_(PVSampleBufferGetOutputPresentationTimeStamp(buffer.ref())),
      kept_(PVTimeMaximum(kPVTimeZero, withoutTrims(duration_, edits_))) {}

Trimmed OutputTimes::trimmed(PVTime elapsed, PVTime duration) const {
  Trimmed share{kPVTimeZero, kPVTimeZero};
  if (edits_.hasTrimAtStart)
    share.atStart = between(kPVTimeZero, duration, PVTimeSubtract(edits_.trimAtStart, elapsed));
  if (edits_.hasTrimAtEnd) {
    const PVTime remaining = PVTimeSubtract(duration_, PVTimeAdd(elapsed, duration));
    share.atEnd = between(kPVTimeZero, PVTimeSubtract(duration, share.atStart),
                          PVTimeSubtract(edits_.trimAtEnd, remaining));
  }
  return share;
}

PVTime OutputTimes::place(PVTime presentation, PVTime duration, const Trimmed& trims) const {
  PVTime natural = PVTimeAdd(presentation, trims.atStart);
  if (edits_.reversed) natural = PVTimeAdd(presentation, PVTimeSubtract(duration, trims.atEnd));
  if (!movesPieces() && !edits_.trims()) return natural;
  PVTime distance = PVTimeSubtract(natural, natural_);
  // What is trimmed away would stand outside.
  if (edits_.trims())
    distance = edits_.reversed ? between(PVTimeSubtract(kPVTimeZero, kept_), kPVTimeZero, distance)
                               : between(kPVTimeZero, kept_, distance);
  return PVTimeAdd(output_, scaled(distance));
}

PVTime OutputTimes::scaled(PVTime distance) const { return scaledBy(edits_, distance); }

bool setClientPresentation(PVSampleBuffer& buffer, const PVTime& time) {
  if (!PVTimeIsNumeric(time) && !buffer.rare) return true;
  if (!buffer.makeRare()) return false;
  buffer.rare->edits.clientPresentation = time;
  return true;
}

}  // namespace pv::sample

PVTime PVSampleBufferGetOutputPresentationTimeStamp(PVSampleBufferRef buffer) {
  if (refused(buffer)) return kPVTimeInvalid;
  const Edits* edits = buffer->edits();
  if (!edits) return PVSampleBufferGetPresentationTimeStamp(buffer);
  return PVTimeIsNumeric(edits->clientPresentation) ? edits->clientPresentation
                                                    : naturalPresentation(buffer, *edits);
}

PVTime PVSampleBufferGetOutputDuration(PVSampleBufferRef buffer) {
  if (refused(buffer)) return kPVTimeInvalid;
  const PVTime duration = PVSampleBufferGetDuration(buffer);
  const Edits* edits = buffer->edits();
  if (!edits || !PVTimeIsNumeric(duration)) return duration;
  return scaledBy(*edits, withoutTrims(duration, *edits));
}

PVTime PVSampleBufferGetOutputDecodeTimeStamp(PVSampleBufferRef buffer) {
  if (refused(buffer)) return kPVTimeInvalid;
  const PVTime lead = PVTimeSubtract(PVSampleBufferGetDecodeTimeStamp(buffer),
                                     PVSampleBufferGetPresentationTimeStamp(buffer));
  const Edits* edits = buffer->edits();
  return PVTimeAdd(PVSampleBufferGetOutputPresentationTimeStamp(buffer),
                   edits ? scaledBy(*edits, lead) : lead);
}

PVStatus PVSampleBufferSetOutputPresentationTimeStamp(PVSampleBufferRef buffer, PVTime time) {
  if (PVStatus status = refused(buffer)) return status;
  return setClientPresentation(*buffer, time) ? 0 : signalError(kPVSampleBufferError_AllocationFailed);
}

namespace {

// The output times of `count` entries: of each sample, or of the first when it stands for all.
void fillOutputTiming(PVSampleBufferRef buffer, std::span<PVSampleTimingInfo> out) {
  const OutputTimes output(*buffer);
  PVTime elapsed = kPVTimeZero;
  for (size_t i = 0; i < out.size(); ++i) {
    PVSampleTimingInfo entry =
        out.size() == 1 ? buffer->timing()[0] : timingOf(*buffer, static_cast<int64_t>(i));
    const Trimmed trims = output.trimmed(elapsed, entry.duration);
    elapsed = PVTimeAdd(elapsed, entry.duration);
    const PVTime lead = PVTimeSubtract(entry.decodeTimeStamp, entry.presentationTimeStamp);
    const PVTime kept = PVTimeSubtract(PVTimeSubtract(entry.duration, trims.atStart), trims.atEnd);
    out[i].presentationTimeStamp = output.place(entry.presentationTimeStamp, entry.duration, trims);
    out[i].decodeTimeStamp = PVTimeAdd(out[i].presentationTimeStamp, output.scaled(lead));
    out[i].duration = output.scaled(kept);
  }
}

}  // namespace

PVStatus PVSampleBufferGetOutputSampleTimingInfoArray(PVSampleBufferRef buffer, int64_t timingArrayEntries,
                                                      PVSampleTimingInfo* timingArrayOut,
                                                      int64_t* entriesNeededOut) {
  if (PVStatus status = refused(buffer)) return status;
  const bool eachDiffers = buffer->timingForm == Form::kOne && buffer->edits() && buffer->edits()->trims();
  const int64_t count = eachDiffers ? std::max<int64_t>(1, buffer->numSamples) : std::ssize(buffer->timing());
  if (entriesNeededOut) *entriesNeededOut = count;
  if (count == 0) return kPVSampleBufferError_NoSampleTiming;
  if (timingArrayOut && timingArrayEntries < count) return signalError(kPVSampleBufferError_ArrayTooSmall);
  if (!timingArrayOut) return 0;
  if (buffer->numSamples <= 1)
    *timingArrayOut = {PVSampleBufferGetOutputDuration(buffer),
                       PVSampleBufferGetOutputPresentationTimeStamp(buffer),
                       PVSampleBufferGetOutputDecodeTimeStamp(buffer)};
  else
    fillOutputTiming(buffer, {timingArrayOut, static_cast<size_t>(count)});
  return 0;
}
