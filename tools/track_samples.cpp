#include "track_samples.hpp"

#include <bedra/dictionary.h>
#include <bedra/number.h>
#include <pevrin/attachment.h>
#include <pevrin/audio_format_description.h>
#include <pevrin/sample_buffer_data.h>

namespace {

// Calls set with the dictionary of each sample.
template <class Set>
PVStatus forEachSample(PVSampleBufferRef buffer, Set set) {
  BRArrayRef array = PVSampleBufferGetSampleAttachmentsArray(buffer, true);
  if (!array) return kPVSampleBufferError_AllocationFailed;
  for (size_t i = 0; i < BRArrayGetCount(array); ++i)
    set(static_cast<BRMutableDictionaryRef>(const_cast<void*>(BRArrayGetValueAtIndex(array, i))));
  return 0;
}

// Sets the key when the answer is known: 1 is yes, 2 is no.
void setAnswer(BRMutableDictionaryRef attachments, BRStringRef key, uint8_t answer) {
  if (answer == 1 || answer == 2)
    BRDictionarySetValue(attachments, key, answer == 1 ? kBRBooleanTrue : kBRBooleanFalse);
}

PVStatus setSpeed(PVSampleBufferRef buffer, int32_t rate) {
  const double speed = rate / 65536.0;
  const auto number = br::Ref<const BRNumber>::adopt(BRNumberCreate(nullptr, kBRNumberTypeFloat64, &speed));
  if (!number) return kPVSampleBufferError_AllocationFailed;
  PVSetAttachment(buffer, kPVSampleBufferAttachmentKey_SpeedMultiplier, number.get(),
                  kPVAttachmentMode_ShouldPropagate);
  return 0;
}

}  // namespace

PVStatus attachFacts(PVSampleBufferRef buffer, const MovieSample& place) {
  const SampleDependencies& said = place.dependencies;
  if (place.sync && !said.dependsOnOthers && !said.isDependedOn && !said.hasRedundancy) return 0;
  return forEachSample(buffer, [&](BRMutableDictionaryRef attachments) {
    if (!place.sync) BRDictionarySetValue(attachments, kPVSampleAttachmentKey_NotSync, kBRBooleanTrue);
    setAnswer(attachments, kPVSampleAttachmentKey_DependsOnOthers, said.dependsOnOthers);
    setAnswer(attachments, kPVSampleAttachmentKey_IsDependedOnByOthers, said.isDependedOn);
    setAnswer(attachments, kPVSampleAttachmentKey_HasRedundantCoding, said.hasRedundancy);
  });
}

std::vector<MovieTrack::Packing> packingsOf(std::span<const SampleDescription> descriptions) {
  std::vector<MovieTrack::Packing> packings;
  for (const SampleDescription& description : descriptions) {
    if (PVFormatDescriptionGetMediaType(description.description.get()) != kPVMediaType_Audio) continue;
    const auto* sound = PVAudioFormatDescriptionGetStreamBasicDescription(description.description.get());
    if (!sound || sound->framesPerPacket == 0) continue;
    packings.resize(description.number);
    packings.back() = {sound->bytesPerPacket, sound->framesPerPacket};
  }
  return packings;
}

TrackSamples::TrackSamples(const TrackFacts& facts, std::optional<uint32_t> movieTimescale,
                           const MovieTrack& samples, std::span<const SampleDescription> descriptions,
                           PVBlockBufferRef media)
    : samples_(samples),
      timescale_(static_cast<int32_t>(facts.timescale.value())),
      edits_(facts.edits, movieTimescale, timescale_),
      media_(media),
      mediaLength_(static_cast<int64_t>(PVBlockBufferGetDataLength(media))) {
  for (const SampleDescription& description : descriptions) {
    formats_.resize(description.number);
    formats_.back() = description.description.get();
  }
}

PVStatus TrackSamples::create(const MovieSample& place, PVSampleBufferRef* bufferOut) const {
  const uint64_t perEntry = place.count > 1 ? samples_.packingOf(place.description).samples : 1;
  const uint64_t count = place.count % perEntry == 0 ? place.count / perEntry : 1;
  const auto time = [&](int64_t value) { return PVTimeMake(value, timescale_); };
  const PVSampleTimingInfo timing = {time(place.duration / static_cast<int64_t>(count)),
                                     time(place.composition), time(place.decode)};
  const size_t size = static_cast<size_t>(place.size) / count;
  const size_t at = size_t{place.description} - 1;
  const bool missing = isMissing(place);
  *bufferOut = nullptr;
  br::Ref<PVBlockBuffer> data;
  if (place.size > 0 && !missing)
    if (PVStatus status =
            PVBlockBufferCreateWithBufferReference(nullptr, media_, static_cast<size_t>(place.offset),
                                                   static_cast<size_t>(place.size), 0, data.out()))
      return status;
  br::Ref<PVSampleBuffer> buffer;
  PVStatus status = PVSampleBufferCreate(nullptr, data.get(), !missing, nullptr, nullptr,
                                         at < formats_.size() ? formats_[at] : nullptr,
                                         static_cast<int64_t>(count), 1, &timing, 1, &size, buffer.out());
  if (status == 0) status = attachFacts(buffer.get(), place);
  if (status == 0) *bufferOut = buffer.detach();
  return status;
}

PVStatus TrackSamples::createShown(const MovieSample& place, PVSampleBufferRef* bufferOut) const {
  *bufferOut = nullptr;
  br::Ref<PVSampleBuffer> buffer;
  PVStatus status = create(place, buffer.out());
  const EditMap::Shown shown = edits_.at(place.composition, place.duration);
  if (status == 0 && shown.hidden)
    status = forEachSample(buffer.get(), [](BRMutableDictionaryRef attachments) {
      BRDictionarySetValue(attachments, kPVSampleAttachmentKey_DoNotDisplay, kBRBooleanTrue);
    });
  if (status == 0 && shown.rate != 0x10000 && shown.rate != 0) status = setSpeed(buffer.get(), shown.rate);
  if (status == 0) status = PVSampleBufferSetOutputPresentationTimeStamp(buffer.get(), shown.time);
  if (status == 0) *bufferOut = buffer.detach();
  return status;
}

std::optional<bool> answerAttached(PVSampleBufferRef buffer, BRStringRef key) {
  BRArrayRef array = PVSampleBufferGetSampleAttachmentsArray(buffer, false);
  if (!array) return std::nullopt;
  auto* attachments = static_cast<BRDictionaryRef>(BRArrayGetValueAtIndex(array, 0));
  const void* value = BRDictionaryGetValue(attachments, key);
  return value ? std::optional(value == kBRBooleanTrue) : std::nullopt;
}

bool isAttached(PVSampleBufferRef buffer, BRStringRef key) {
  return answerAttached(buffer, key).value_or(false);
}
