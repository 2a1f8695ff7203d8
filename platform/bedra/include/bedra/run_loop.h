/* Run loops: a thread waits in one for its timers. */
#ifndef BEDRA_RUN_LOOP_H
#define BEDRA_RUN_LOOP_H

#include <bedra/time.h>

BR_BEGIN_DECLS

typedef void (*BRRunLoopTimerCallback)(BRRunLoopTimerRef timer, void *info);
typedef struct BRRunLoopTimerContext {
  uint32_t version; /* must be 0 */
  void *info;
  const void *(*retain)(const void *info);
  void (*release)(const void *info);
} BRRunLoopTimerContext;

typedef int32_t BRRunLoopResult;
enum {
  kBRRunLoopFinished = 1,     /* the mode has no sources or timers */
  kBRRunLoopStopped = 2,      /* BRRunLoopStop */
  kBRRunLoopTimedOut = 3,
  kBRRunLoopHandledSource = 4 /* one was handled, and the caller asked to return then */
};

BR_EXPORT extern const BRStringRef kBRRunLoopDefaultMode;

BR_EXPORT BRTypeID BRRunLoopGetTypeID(void);
BR_EXPORT BRTypeID BRRunLoopTimerGetTypeID(void);
/* The calling thread's loop, made on first use; lives at least as long as the thread. */
BR_EXPORT BRRunLoopRef BRRunLoopGetCurrent(void);
BR_EXPORT BRRunLoopResult BRRunLoopRunInMode(BRStringRef mode, double seconds, bool returnAfterSourceHandled);
BR_EXPORT void BRRunLoopWakeUp(BRRunLoopRef runLoop);
BR_EXPORT void BRRunLoopStop(BRRunLoopRef runLoop);
BR_EXPORT bool BRRunLoopAddTimer(BRRunLoopRef runLoop, BRRunLoopTimerRef timer, BRStringRef mode);
BR_EXPORT bool BRRunLoopContainsTimer(BRRunLoopRef runLoop, BRRunLoopTimerRef timer, BRStringRef mode);
BR_EXPORT void BRRunLoopRemoveTimer(BRRunLoopRef runLoop, BRRunLoopTimerRef timer, BRStringRef mode);

/* A one-shot timer. The context is copied and its info retained. */
BR_EXPORT BRRunLoopTimerRef BRRunLoopTimerCreate(BRAllocatorRef allocator, BRAbsoluteTime fireDate,
                                                 BRRunLoopTimerCallback callback,
                                                 const BRRunLoopTimerContext *context);
BR_EXPORT void BRRunLoopTimerInvalidate(BRRunLoopTimerRef timer);
BR_EXPORT bool BRRunLoopTimerIsValid(BRRunLoopTimerRef timer);
BR_EXPORT BRAbsoluteTime BRRunLoopTimerGetNextFireDate(BRRunLoopTimerRef timer);
BR_EXPORT void BRRunLoopTimerSetNextFireDate(BRRunLoopTimerRef timer, BRAbsoluteTime fireDate);

BR_END_DECLS

#endif
