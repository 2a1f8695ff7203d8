// A sample goes out as soon as no later one is shown before it, so that the queue holds what the order
// demands and no more.
#include "sample_listing.hpp"

#include <bedra/dictionary.h>
#include <bedra/number.h>
#include <fmt/format.h>
#include <pevrin/attachment.h>
#include <pevrin/audio_format_description.h>
#include <pevrin/sample_buffer_data.h>

#include "movie/output_order.hpp"

namespace {

// Sets the key when the answer is known: 1 is yes, 2 is no.
void setAnswer(BRMutableDictionaryRef attachments, BRStringRef key, uint8_t answer) {
  if (answer == 1 || answer == 2)
    BRDictionarySetValue(attachments, key, answer == 1 ? kBRBooleanTrue : kBRBooleanFalse);
}

PVStatus attach(PVSampleBufferRef buffer, const MovieSample& place, bool hidden) {
  const SampleDependencies& said = place.dependencies;
  if (place.sync && !hidden && !said.dependsOnOthers && !said.isDependedOn && !said.hasRedundancy) return 0;
  BRArrayRef array = PVSampleBufferGetSampleAttachmentsArray(buffer, true);
  if (!array) return kPVSampleBufferError_AllocationFailed;
  for (size_t i = 0; i < BRArrayGetCount(array); ++i) {
    auto* attachments =
        static_cast<BRMutableDictionaryRef>(const_cast<void*>(BRArrayGetValueAtIndex(array, i)));
    if (!place.sync) BRDictionarySetValue(attachments, kPVSampleAttachmentKey_NotSync, kBRBooleanTrue);
    if (hidden) BRDictionarySetValue(attachments, kPVSampleAttachmentKey_DoNotDisplay, kBRBooleanTrue);
    setAnswer(attachments, kPVSampleAttachmentKey_DependsOnOthers, said.dependsOnOthers);
    setAnswer(attachments, kPVSampleAttachmentKey_IsDependedOnByOthers, said.isDependedOn);
    setAnswer(attachments, kPVSampleAttachmentKey_HasRedundantCoding, said.hasRedundancy);
  }
  return 0;
}

// Whether the first sample's dictionary says yes.
bool isAttached(PVSampleBufferRef buffer, BRStringRef key) {
  BRArrayRef array = PVSampleBufferGetSampleAttachmentsArray(buffer, false);
  if (!array) return false;
  auto* attachments = static_cast<BRDictionaryRef>(BRArrayGetValueAtIndex(array, 0));
  return BRDictionaryGetValue(attachments, key) == kBRBooleanTrue;
}

PVStatus setSpeed(PVSampleBufferRef buffer, int32_t rate) {
  const double speed = rate / 65536.0;
  const auto number = br::Ref<const BRNumber>::adopt(BRNumberCreate(nullptr, kBRNumberTypeFloat64, &speed));
  if (!number) return kPVSampleBufferError_AllocationFailed;
  PVSetAttachment(buffer, kPVSampleBufferAttachmentKey_SpeedMultiplier, number.get(),
                  kPVAttachmentMode_ShouldPropagate);
  return 0;
}

bool isDue(PVBufferQueueRef queue, PVTime next) {
  auto* head = static_cast<PVSampleBufferRef>(const_cast<void*>(PVBufferQueueGetHead(queue)));
  return PVTimeCompare(PVSampleBufferGetOutputPresentationTimeStamp(head), next) <= 0;
}

}  // namespace

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

SampleListing::SampleListing(const MovieFacts& facts, const MovieIndex& index,
                             const SampleDescriptions& descriptions, PVBlockBufferRef media, int64_t fileSize,
                             const Output& output, Progress& progress, std::vector<Damage>& damages)
    : facts_(facts),
      index_(index),
      descriptions_(descriptions),
      media_(media),
      fileSize_(fileSize),
      output_(output),
      progress_(progress),
      damages_(damages) {}

PVTime SampleListing::list(size_t number, const Use& use) {
  const TrackFacts& said = facts_.tracks()[number];
  const auto timescale = static_cast<int32_t>(said.timescale.value_or(0));
  if (timescale <= 0) {
    reportTimeless(number);
    return kPVTimeZero;
  }
  Track track{index_.tracks()[number], timescale, EditMap(said.edits, facts_.timescale(), timescale), {}, {}};
  for (const SampleDescription& description : descriptions_.ofTrack(number)) {
    track.formats.resize(description.number);
    track.formats.back() = description.description.get();
  }

  br::Ref<PVBufferQueue> queue;
  PVStatus status = PVBufferQueueCreate(
      nullptr, 0, PVBufferQueueGetCallbacksForSampleBuffersSortedByOutputPTS(), queue.out());
  PVTime longest = kPVTimeZero;
  UpcomingTimes upcoming(track.samples, track.edits);
  SampleCursor cursor(track.samples);
  MovieSample place;
  for (int64_t done = 0; status == kPVStatus_Success && output_.error() == 0 && cursor.next(place); ++done) {
    status = enqueue(track, place, queue.get());
    longest = PVTimeMaximum(longest, PVBufferQueueGetDuration(queue.get()));
    const PVTime next = upcoming.next();
    while (!PVBufferQueueIsEmpty(queue.get()) && isDue(queue.get(), next)) useHead(track, queue.get(), use);
    progress_.show("Samples", done, static_cast<int64_t>(upcoming.sampleCount()));
  }
  report(track, number, status);
  return longest;
}

PVStatus SampleListing::enqueue(Track& track, const MovieSample& place, PVBufferQueueRef queue) const {
  const bool missing = place.size > 0 && !isInFile(place);
  br::Ref<PVSampleBuffer> buffer;
  PVStatus status = create(track, place, missing, buffer.out());
  const EditMap::Shown shown = track.edits.at(place.composition, place.duration);
  if (status == kPVStatus_Success) status = attach(buffer.get(), place, shown.hidden);
  if (status == kPVStatus_Success && shown.rate != 0x10000 && shown.rate != 0)
    status = setSpeed(buffer.get(), shown.rate);
  if (status == kPVStatus_Success)
    status = PVSampleBufferSetOutputPresentationTimeStamp(buffer.get(), shown.time);
  if (status == kPVStatus_Success) status = PVBufferQueueEnqueue(queue, buffer.get());
  if (status != kPVStatus_Success) return status;
  track.waiting.emplace(buffer.get(), Waiting{place, missing});
  // those of fragments were reported with their run
  if (missing && place.index < track.samples.tables.sampleCount && track.missingCount++ == 0)
    track.firstMissing = place.index;
  return status;
}

// The samples of a chunk share one timing and one size entry. Data that the file does not have are left out.
PVStatus SampleListing::create(const Track& track, const MovieSample& place, bool missing,
                               PVSampleBufferRef* bufferOut) const {
  const uint64_t perEntry = place.count > 1 ? track.samples.packingOf(place.description).samples : 1;
  const uint64_t count = place.count % perEntry == 0 ? place.count / perEntry : 1;
  const auto time = [&](int64_t value) { return PVTimeMake(value, track.timescale); };
  const PVSampleTimingInfo timing = {time(place.duration / static_cast<int64_t>(count)),
                                     time(place.composition), time(place.decode)};
  const size_t size = static_cast<size_t>(place.size) / count;
  const size_t at = size_t{place.description} - 1;
  br::Ref<PVBlockBuffer> data;
  if (place.size > 0 && !missing)
    if (PVStatus status =
            PVBlockBufferCreateWithBufferReference(nullptr, media_, static_cast<size_t>(place.offset),
                                                   static_cast<size_t>(place.size), 0, data.out()))
      return status;
  return PVSampleBufferCreate(nullptr, data.get(), !missing, nullptr, nullptr,
                              at < track.formats.size() ? track.formats[at] : nullptr,
                              static_cast<int64_t>(count), 1, &timing, 1, &size, bufferOut);
}

void SampleListing::useHead(Track& track, PVBufferQueueRef queue, const Use& use) const {
  auto* head = static_cast<PVSampleBufferRef>(const_cast<void*>(PVBufferQueueDequeueAndRetain(queue)));
  const auto buffer = br::Ref<PVSampleBuffer>::adopt(head);
  const auto waiting = track.waiting.find(head);
  const Waiting& known = waiting->second;
  use({.index = known.place.index,
       .count = known.place.count,
       .decode = PVSampleBufferGetOutputDecodeTimeStamp(head),
       .presentation = PVSampleBufferGetOutputPresentationTimeStamp(head),
       .duration = PVSampleBufferGetOutputDuration(head),
       .size = PVSampleBufferGetTotalSampleSize(head),
       .offset = known.place.offset,
       .sync = !isAttached(head, kPVSampleAttachmentKey_NotSync),
       .hidden = isAttached(head, kPVSampleAttachmentKey_DoNotDisplay),
       .missing = known.missing});
  track.waiting.erase(waiting);
}

// A timescale that is none was reported with its atom; one that is missing has no atom.
void SampleListing::reportTimeless(size_t number) {
  MovieSample sample;
  if (facts_.tracks()[number].timescale || !SampleCursor(index_.tracks()[number]).next(sample)) return;
  auto [path, offset] = index_.chunkTableOf(number);
  damages_.push_back({std::move(path), offset, kKivAtomStreamError_MalformedAtom,
                      "these samples have no times: the track has no timescale"});
}

void SampleListing::report(const Track& track, size_t number, PVStatus status) {
  const auto [path, offset] = index_.chunkTableOf(number);
  if (status != kPVStatus_Success)
    damages_.push_back({path, offset, status, "these samples could not be made into sample buffers"});
  if (track.missingCount == 0) return;
  damages_.push_back(
      {path, offset, kKivAtomStreamError_NotEnoughData,
       fmt::format("{} of {} samples are not, or not all, in the file; the first of them is number {}",
                   track.missingCount, track.samples.tables.sampleCount, track.firstMissing)});
}
