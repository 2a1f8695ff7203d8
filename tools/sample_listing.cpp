// A sample goes out as soon as no later one is shown before it, so that the queue holds what the order
// demands and no more.
#include "sample_listing.hpp"

#include <fmt/format.h>
#include <pevrin/sample_buffer_data.h>

#include "movie/output_order.hpp"

namespace {

bool isDue(PVBufferQueueRef queue, PVTime next) {
  auto* head = static_cast<PVSampleBufferRef>(const_cast<void*>(PVBufferQueueGetHead(queue)));
  return PVTimeCompare(PVSampleBufferGetOutputPresentationTimeStamp(head), next) <= 0;
}

}  // namespace

SampleListing::SampleListing(const MovieFacts& facts, const MovieIndex& index,
                             const SampleDescriptions& descriptions, PVBlockBufferRef media,
                             const Output& output, Progress& progress, std::vector<Damage>& damages)
    : facts_(facts),
      index_(index),
      descriptions_(descriptions),
      media_(media),
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
  const MovieTrack& places = index_.tracks()[number];
  Track track{TrackSamples(said, facts_.timescale(), places, descriptions_.ofTrack(number), media_), {}};

  br::Ref<PVBufferQueue> queue;
  PVStatus status = PVBufferQueueCreate(
      nullptr, 0, PVBufferQueueGetCallbacksForSampleBuffersSortedByOutputPTS(), queue.out());
  PVTime longest = kPVTimeZero;
  UpcomingTimes upcoming(places, track.samples.edits());
  SampleCursor cursor(places);
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
  br::Ref<PVSampleBuffer> buffer;
  PVStatus status = track.samples.createShown(place, buffer.out());
  if (status == kPVStatus_Success) status = PVBufferQueueEnqueue(queue, buffer.get());
  if (status != kPVStatus_Success) return status;
  const bool missing = track.samples.isMissing(place);
  track.waiting.emplace(buffer.get(), Waiting{place, missing});
  // those of fragments were reported with their run
  if (missing && place.index < track.samples.places().tables.sampleCount && track.missingCount++ == 0)
    track.firstMissing = place.index;
  return status;
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
       .missing = known.missing,
       .dependsOnOthers = answerAttached(head, kPVSampleAttachmentKey_DependsOnOthers),
       .isDependedOnByOthers = answerAttached(head, kPVSampleAttachmentKey_IsDependedOnByOthers),
       .hasRedundantCoding = answerAttached(head, kPVSampleAttachmentKey_HasRedundantCoding)});
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
                   track.missingCount, track.samples.places().tables.sampleCount, track.firstMissing)});
}
