// Notifications of timebases: their payload, and how a follower hears its source.
#include <bedra/dictionary.h>
#include <bedra/weak_reference.h>
#include <kiv/notification_center.h>
#include <bedra/literal.hpp>

#include "clocks/timebase.hpp"
#include "runtime/error.hpp"

using namespace br::literals;

extern "C" {
constinit const BRStringRef kPVTimebaseNotification_EffectiveRateChanged =
    "PVTimebaseEffectiveRateChanged"_br;
constinit const BRStringRef kPVTimebaseNotification_TimeJumped = "PVTimebaseTimeJumped"_br;
constinit const BRStringRef kPVTimebaseNotification_MasterWillChange = "PVTimebaseMasterWillChange"_br;
constinit const BRStringRef kPVTimebaseNotification_MasterDidChange = "PVTimebaseMasterDidChange"_br;
constinit const BRStringRef kPVTimebaseNotificationKey_EventTime = "PVTimebaseEventTime"_br;
constinit const BRStringRef kKivTimebaseNotification_EffectiveRateChanged =
    "KivTimebaseEffectiveRateChanged"_br;
constinit const BRStringRef kKivTimebaseNotification_TimeJumped = "KivTimebaseTimeJumped"_br;
}

// `source` is retained by the follower for as long as the link is connected; here it is only an address.
struct pv::TimebaseLink : BRObject {
  static constexpr const char* className = "KivTimebaseLink";
  br::Ref<const BRWeakReference> follower;
  const void* source = nullptr;
};

namespace {

PVNotificationCenterRef center() { return PVNotificationCenterGetDefaultLocalCenter(); }

void sourcePosted(PVNotificationCenterRef, void* listener, BRStringRef name, const void*,
                  BRDictionaryRef payload) {
  const auto* link = static_cast<const pv::TimebaseLink*>(listener);
  const auto follower = pv::TimebaseRef::adopt(
      static_cast<PVTimebaseRef>(const_cast<void*>(BRWeakReferenceCopyObject(link->follower.get()))));
  if (!follower) return;
  const auto hear = follower->isReadOnly ? pv::targetPosted : pv::masterPosted;
  hear(follower.get(), link, name, payload);
}

}  // namespace

PVStatus pv::connect(PVTimebaseRef follower, PVTimebaseRef source, br::Ref<TimebaseLink>* linkOut) {
  auto link = br::Ref<TimebaseLink>::adopt(br::create<TimebaseLink>(BRGetAllocator(follower), 0));
  if (!link) return signalError(kPVTimebaseError_AllocationFailed);
  link->follower =
      br::Ref<const BRWeakReference>::adopt(BRWeakReferenceCreate(BRGetAllocator(follower), follower));
  if (!link->follower) return signalError(kPVTimebaseError_AllocationFailed);
  link->source = source;
  const PVStatus status =
      KivNotificationCenterAddWeakListener(center(), link.get(), sourcePosted, nullptr, source,
                                           kKivWeakListenerFlag_RemoveWithoutWaiting, nullptr);
  if (status == kPVStatus_Success) *linkOut = std::move(link);
  return status;
}

void pv::disconnect(const br::Ref<TimebaseLink>& link) {
  if (link)
    KivNotificationCenterRemoveWeakListener(center(), link.get(), sourcePosted, nullptr, link->source);
}

pv::PayloadRef pv::createPayload(PVTime eventTime) {
  const auto time = PayloadRef::adopt(PVTimeCopyAsDictionary(eventTime, nullptr));
  if (!time) return nullptr;
  const void* keys[] = {kPVTimebaseNotificationKey_EventTime};
  const void* values[] = {time.get()};
  return PayloadRef::adopt(BRDictionaryCreate(nullptr, keys, values, 1, &kBRTypeDictionaryKeyCallBacks,
                                              &kBRTypeDictionaryValueCallBacks));
}

void pv::post(PVTimebaseRef timebase, BRStringRef name, const PayloadRef& payload) {
  PVNotificationCenterPostNotification(center(), name, timebase, payload.get(), 0);
}

PVTime pv::eventTimeOf(BRDictionaryRef payload) {
  if (!payload) return kPVTimeInvalid;
  const void* time = BRDictionaryGetValue(payload, kPVTimebaseNotificationKey_EventTime);
  return PVTimeMakeFromDictionary(static_cast<BRDictionaryRef>(time));
}
