// How queues ask sample buffers: the two ready-made records.
#include <pevrin/buffer_queue.h>
#include <pevrin/sample_buffer.h>
#include <pevrin/sample_buffer_data.h>

namespace {

PVSampleBufferRef sampleOf(PVBufferRef buffer) {
  return static_cast<PVSampleBufferRef>(const_cast<void*>(buffer));
}

// A getter of sample buffers as a callback of the record.
template <auto get>
auto ask(PVBufferRef buffer, void*) {
  return get(sampleOf(buffer));
}

BRComparisonResult compareOutput(PVBufferRef buffer1, PVBufferRef buffer2, void*) {
  return PVTimeCompare(PVSampleBufferGetOutputPresentationTimeStamp(sampleOf(buffer1)),
                       PVSampleBufferGetOutputPresentationTimeStamp(sampleOf(buffer2)));
}

PVBufferCallbacks callbacksWith(PVBufferCompareCallback compare) {
  return {.version = 1,
          .refcon = nullptr,
          .getDecodeTimeStamp = ask<PVSampleBufferGetDecodeTimeStamp>,
          .getPresentationTimeStamp = ask<PVSampleBufferGetPresentationTimeStamp>,
          .getDuration = ask<PVSampleBufferGetDuration>,
          .isDataReady = ask<PVSampleBufferDataIsReady>,
          .compare = compare,
          .dataBecameReadyNotification = kPVSampleBufferNotification_DataBecameReady,
          .getSize = ask<PVSampleBufferGetTotalSampleSize>};
}

}  // namespace

const PVBufferCallbacks* PVBufferQueueGetCallbacksForUnsortedSampleBuffers(void) {
  static const PVBufferCallbacks callbacks = callbacksWith(nullptr);
  return &callbacks;
}

const PVBufferCallbacks* PVBufferQueueGetCallbacksForSampleBuffersSortedByOutputPTS(void) {
  static const PVBufferCallbacks callbacks = callbacksWith(compareOutput);
  return &callbacks;
}
