// The text that a debugger shows of a buffer queue.
#include <bedra/string.h>

#include <bedra/ref.hpp>

#include "queues/buffer_queue.hpp"

using pv::Extreme;

namespace {

using Text = br::Ref<const BRString>;

Text textOf(PVTime time) { return Text::adopt(PVTimeCopyDescription(nullptr, time)); }
const char* yesOrNo(bool value) { return value ? "true" : "false"; }

const char* nameOf(PVBufferQueueTriggerCondition condition) {
  static constexpr const char* kNames[] = {"unknown",
                                           "duration <",
                                           "duration <=",
                                           "duration >",
                                           "duration >=",
                                           "minPTS changes from",
                                           "maxPTS changes from",
                                           "data ready",
                                           "end of data reached",
                                           "reset",
                                           "count <",
                                           "count >"};
  return kNames[condition >= 1 && condition <= 11 ? condition : 0];
}

void describeTrigger(BRMutableStringRef text, const pv::Trigger& trigger) {
  const int32_t condition = trigger.condition;
  BRStringAppendFormat(text, "\n\t\t%s", nameOf(condition));
  if (condition <= kPVBufferQueueTrigger_WhenMaxPresentationTimeStampChanges)
    BRStringAppendFormat(text, " %@", textOf(trigger.timeThreshold).get());
  if (condition >= kPVBufferQueueTrigger_WhenBufferCountBecomesLessThan)
    BRStringAppendFormat(text, " %lld", static_cast<long long>(trigger.integerThreshold));
  BRStringAppendFormat(text, ": %s", yesOrNo(trigger.isTrue));
}

}  // namespace

BRStringRef PVBufferQueue::copyDebugDescription() const {
  auto text = br::Ref<BRString>::adopt(BRStringCreateMutable(nullptr, 0));
  if (!text) return nullptr;
  auto* queue = const_cast<PVBufferQueue*>(this);
  pv::Turn turn(queue);
  BRStringAppendFormat(text.get(), "PVBufferQueue(%s) %p retainCount: %ld allocator: %p\n",
                       callbacks.compare ? "sorted" : "FIFO", static_cast<const void*>(this),
                       static_cast<long>(BRGetRetainCount(this)), static_cast<const void*>(allocator()));
  BRStringAppendFormat(text.get(),
                       "\telement count: %ld\n\tfiringTrigger: %s\n\tcontainsEOD: %s\n"
                       "\ttotalDuration: %@\n\tminPTS: %@\n\tminDTS: %@\n",
                       static_cast<long>(store.count()), yesOrNo(isFiring), yesOrNo(hasEndOfData),
                       textOf(totalDuration).get(), textOf(queue->extreme(Extreme::kMinPresentation)).get(),
                       textOf(queue->extreme(Extreme::kMinDecode)).get());
  long count = 0;
  for (const pv::Trigger* trigger = triggers; trigger; trigger = trigger->next) ++count;
  if (count == 0) BRStringAppendFormat(text.get(), "\tNO triggers\n");
  if (count != 0) BRStringAppendFormat(text.get(), "\tTriggers (%ld):", count);
  for (const pv::Trigger* trigger = triggers; trigger; trigger = trigger->next)
    describeTrigger(text.get(), *trigger);
  if (count != 0) BRStringAppendFormat(text.get(), "\n");
  return text.detach();
}
