// Data that come later: readiness, failure, tracking; and invalidation.
#include <bedra/dictionary.h>
#include <bedra/number.h>
#include <pevrin/notification_center.h>

#include <bedra/literal.hpp>

#include "buffers/samples/sample_buffer.hpp"

using namespace br::literals;
using namespace pv::sample;
using pv::signalError;

extern "C" {
constinit const BRStringRef kPVSampleBufferNotification_DataBecameReady = "KivSampleBufferDataBecameReady"_br;
constinit const BRStringRef kPVSampleBufferNotification_DataFailed = "PVSampleBufferDataFailed"_br;
constinit const BRStringRef kPVSampleBufferNotificationParameter_Selvat = "Selvat"_br;
}

namespace {

using Guard = br::Ref<PVSampleBuffer>;

void post(PVSampleBufferRef buffer, BRStringRef name, BRTypeRef payload) {
  const Guard alive = Guard::retain(buffer);
  PVNotificationCenterPostNotification(PVNotificationCenterGetDefaultLocalCenter(), name, buffer, payload, 0);
}

// Ready without a notification.
void becomeReady(PVSampleBuffer& buffer) {
  buffer.dataReady = true;
  buffer.tracked = nullptr;
  checkDataSize(buffer);
}

br::Ref<const BRDictionary> payloadOf(PVStatus failure) {
  auto number = br::Ref<const BRNumber>::adopt(BRNumberCreate(nullptr, kBRNumberTypeSInt32, &failure));
  const void* key = kPVSampleBufferNotificationParameter_Selvat;
  const void* value = number.get();
  return br::Ref<const BRDictionary>::adopt(value ? BRDictionaryCreate(nullptr, &key, &value, 1,
                                                                       &kBRTypeDictionaryKeyCallBacks,
                                                                       &kBRTypeDictionaryValueCallBacks)
                                                  : nullptr);
}

PVStatus makeReadyByCallback(PVSampleBuffer& buffer) {
  if (buffer.dataReady) return 0;
  if (buffer.dataFailed) return buffer.failure;
  if (!buffer.makeDataReady) return signalError(kPVSampleBufferError_DataNotReady);
  const Guard alive = Guard::retain(&buffer);
  if (PVStatus status = buffer.makeDataReady(&buffer, buffer.makeDataReadyRefCon)) return signalError(status);
  // The callback may have failed the buffer and still say 0.
  if (buffer.dataFailed) return signalError(buffer.failure);
  becomeReady(buffer);
  return 0;
}

bool waitsFor(const PVSampleBuffer* buffer, const PVSampleBuffer* other) {
  for (; buffer; buffer = buffer->tracked.get())
    if (buffer == other) return true;
  return false;
}

}  // namespace

PVStatus PVSampleBufferSetDataBuffer(PVSampleBufferRef buffer, PVBlockBufferRef dataBuffer) {
  if (PVStatus status = refused(buffer)) return status;
  if (!dataBuffer) return signalError(kPVSampleBufferError_RequiredParameterMissing);
  if (buffer->data) return signalError(kPVSampleBufferError_AlreadyHasData);
  buffer->data = br::Ref<const void>::retain(dataBuffer);
  return 0;
}

PVStatus PVSampleBufferSetDataReady(PVSampleBufferRef buffer) {
  if (PVStatus status = refused(buffer)) return status;
  if (buffer->dataFailed) return signalError(buffer->failure);
  const bool was = buffer->dataReady;
  becomeReady(*buffer);
  if (!was) post(buffer, kPVSampleBufferNotification_DataBecameReady, nullptr);
  return 0;
}

bool PVSampleBufferDataIsReady(PVSampleBufferRef buffer) {
  if (refused(buffer) || buffer->dataFailed) return false;
  if (!buffer->tracked) return buffer->dataReady;
  const Guard alive = Guard::retain(buffer);
  if (!PVSampleBufferDataIsReady(buffer->tracked.get())) return false;
  PVSampleBufferSetDataReady(buffer);
  return true;
}

PVStatus PVSampleBufferSetDataFailed(PVSampleBufferRef buffer, PVStatus status) {
  if (PVStatus refusal = refused(buffer)) return refusal;
  if (buffer->dataReady) return signalError(kPVSampleBufferError_AlreadyHasData);
  if (buffer->dataFailed) return signalError(kPVSampleBufferError_DataFailed);
  if (status == 0) status = kPVSampleBufferError_DataFailed;
  const auto payload = payloadOf(status);
  if (!payload) return signalError(kPVSampleBufferError_AllocationFailed);
  buffer->dataFailed = true;
  buffer->failure = status;
  buffer->tracked = nullptr;
  post(buffer, kPVSampleBufferNotification_DataFailed, payload.get());
  return 0;
}

bool PVSampleBufferHasDataFailed(PVSampleBufferRef buffer, PVStatus* statusOut) {
  if (refused(buffer) || buffer->dataReady) return false;
  const Guard alive = Guard::retain(buffer);
  if (buffer->tracked) {
    PVStatus theirs;
    if (!PVSampleBufferHasDataFailed(buffer->tracked.get(), &theirs)) return false;
    PVSampleBufferSetDataFailed(buffer, theirs);
    if (statusOut) *statusOut = theirs;
    return true;
  }
  if (buffer->dataFailed && statusOut) *statusOut = buffer->failure;
  return buffer->dataFailed;
}

PVStatus PVSampleBufferMakeDataReady(PVSampleBufferRef buffer) {
  if (PVStatus status = refused(buffer)) return status;
  if (!buffer->tracked) return makeReadyByCallback(*buffer);
  const Guard alive = Guard::retain(buffer), tracked = buffer->tracked;
  const PVStatus status = PVSampleBufferMakeDataReady(tracked.get());
  if (status == 0 && !buffer->dataFailed) becomeReady(*buffer);
  return status;
}

PVStatus PVSampleBufferTrackDataReadiness(PVSampleBufferRef buffer, PVSampleBufferRef bufferToTrack) {
  if (PVStatus status = refused(buffer)) return status;
  if (bufferToTrack && bufferToTrack->invalidated) return signalError(kPVSampleBufferError_Invalidated);
  if (buffer->dataReady) return signalError(kPVSampleBufferError_AlreadyHasData);
  if (buffer->dataFailed) return signalError(buffer->failure);
  buffer->tracked = nullptr;
  if (!bufferToTrack || waitsFor(bufferToTrack, buffer)) return 0;
  if (PVSampleBufferDataIsReady(bufferToTrack))
    becomeReady(*buffer);
  else
    buffer->tracked = Guard::retain(bufferToTrack);
  return 0;
}

bool PVSampleBufferIsValid(PVSampleBufferRef buffer) { return buffer && !buffer->invalidated; }

PVStatus PVSampleBufferInvalidate(PVSampleBufferRef buffer) {
  if (PVStatus status = refused(buffer)) return status;
  const Guard alive = Guard::retain(buffer);
  // Taken out first: a callback that invalidates the buffer itself is not called again.
  if (buffer->rare)
    if (auto callback = std::exchange(buffer->rare->invalidate, nullptr))
      callback(buffer, buffer->rare->invalidateRefCon);
  buffer->invalidated = true;
  return 0;
}

namespace {

// Taken out meanwhile: the handler may clear or replace itself.
void callHandler(PVSampleBufferRef buffer, void*) {
  PVSampleBufferInvalidateHandler& kept = buffer->rare->handler;
  const PVSampleBufferInvalidateHandler handler = std::exchange(kept, {});
  handler.invoke(handler.context, buffer);
  if (!kept.invoke)
    kept = handler;
  else if (handler.dispose)
    handler.dispose(handler.context);
}

// Clears what is called at invalidation, or makes room for it.
PVStatus prepareForInvalidate(PVSampleBufferRef buffer, bool clears) {
  if (PVStatus status = refused(buffer)) return status;
  if (clears) {
    if (!buffer->rare) return 0;
    const PVSampleBufferInvalidateHandler handler = std::exchange(buffer->rare->handler, {});
    buffer->rare->invalidate = nullptr;
    if (handler.dispose) handler.dispose(handler.context);
    return 0;
  }
  if (buffer->rare && buffer->rare->invalidate)
    return signalError(kPVSampleBufferError_RequiredParameterMissing);
  return buffer->makeRare() ? 0 : signalError(kPVSampleBufferError_AllocationFailed);
}

}  // namespace

PVStatus PVSampleBufferSetInvalidateCallback(PVSampleBufferRef buffer,
                                             PVSampleBufferInvalidateCallback callback, void* refCon) {
  PVStatus status = prepareForInvalidate(buffer, !callback);
  if (status || !callback) return status;
  buffer->rare->invalidate = callback;
  buffer->rare->invalidateRefCon = refCon;
  return 0;
}

PVStatus PVSampleBufferSetInvalidateHandler(PVSampleBufferRef buffer,
                                            const PVSampleBufferInvalidateHandler* handler) {
  const bool clears = !handler || !handler->invoke;
  PVStatus status = prepareForInvalidate(buffer, clears);
  if (status || clears) return status;
  PVSampleBufferInvalidateHandler kept = *handler;
  if (kept.copy) {
    kept.context = kept.copy(kept.context);
    if (!kept.context) return signalError(kPVSampleBufferError_AllocationFailed);
  } else {
    kept.dispose = nullptr;
  }
  buffer->rare->handler = kept;
  buffer->rare->invalidate = callHandler;
  return 0;
}
