/* The road of a compressed frame: from the parameter sets of a stream to its delivery in time.
 *
 * A format description is made from H.264 parameter sets, frames become sample buffers in decoding order, a queue sorts
 * them by presentation time and asks for more when it runs low, and a timer of a timebase fires when the next one is to
 * be shown. The program waits in an epoll loop of its own; it could wait for other things there, too. */
#include <pevrin/pevrin.h>
#include <stdio.h>
#include <sys/epoll.h>
#include <unistd.h>

enum { kFrames = 12, kFrameBytes = 8 };

/* High profile, 1920 x 1080, as an encoder wrote them. */
static const uint8_t kSPS[] = {0x67, 0x64, 0x00, 0x28, 0xAC, 0xD9, 0x40, 0x78, 0x02, 0x27, 0xE5, 0xC0, 0x5A,
                               0x80, 0x80, 0x80, 0xA0, 0x00, 0x00, 0x03, 0x00, 0x20, 0x00, 0x00, 0x06, 0x5C,
                               0x88, 0x00, 0x1E, 0x84, 0x80, 0x00, 0x4C, 0x4B, 0x52, 0x61, 0x80, 0x3C, 0x60,
                               0xC6, 0x58};
static const uint8_t kPPS[] = {0x68, 0xEA, 0xEC, 0xB2, 0x2C};

typedef struct {
  PVVideoFormatDescriptionRef format;
  PVBlockBufferRef bytes; /* of all frames, one behind the other */
  PVBufferQueueRef queue;
  PVTimebaseRef timebase;
  BRRunLoopTimerRef timer;
  int produced, shown;
  bool wantsMore;
} Player;

/* One frame that decodes at its number and is shown in the order I P B, I P B: 0 2 1, 3 5 4 ... */
static PVStatus produceFrame(Player *player) {
  const int number = player->produced, shownAt = number % 3 == 0 ? number : number + (number % 3 == 1 ? 1 : -1);
  const PVSampleTimingInfo timing = {PVTimeMake(1, 100), PVTimeMake(shownAt, 100), PVTimeMake(number - 1, 100)};
  const size_t size = kFrameBytes;
  PVBlockBufferRef data = NULL;
  PVSampleBufferRef frame = NULL;
  PVStatus status =
      PVBlockBufferCreateWithBufferReference(NULL, player->bytes, (size_t)number * kFrameBytes, kFrameBytes, 0, &data);
  if (status == 0) status = PVSampleBufferCreateReady(NULL, data, player->format, 1, 1, &timing, 1, &size, &frame);
  if (status == 0) status = PVBufferQueueEnqueue(player->queue, frame);
  BRRelease(frame);
  BRRelease(data);
  if (status == 0 && ++player->produced == kFrames) status = PVBufferQueueMarkEndOfData(player->queue);
  return status;
}

/* The queue has less than three frames. It is being changed at this moment, so more come later. */
static void runsLow(void *refcon, PVBufferQueueTriggerToken token) {
  (void)token;
  ((Player *)refcon)->wantsMore = true;
}

static PVStatus fill(Player *player) {
  PVStatus status = 0;
  for (int i = 0; status == 0 && player->wantsMore && i < 6 && player->produced < kFrames; ++i)
    status = produceFrame(player);
  player->wantsMore = false;
  return status;
}

static void setTimer(Player *player) {
  PVTimebaseSetTimerNextFireTime(player->timebase, player->timer,
                                 PVBufferQueueGetFirstPresentationTimeStamp(player->queue), 0);
}

static void showDueFrames(BRRunLoopTimerRef timer, void *info) {
  (void)timer;
  Player *player = info;
  while (!PVBufferQueueIsEmpty(player->queue) &&
         PVTimeCompare(PVBufferQueueGetFirstPresentationTimeStamp(player->queue),
                       PVTimebaseGetTime(player->timebase)) <= 0) {
    PVSampleBufferRef frame = (PVSampleBufferRef)PVBufferQueueDequeueAndRetain(player->queue);
    const PVTime time = PVSampleBufferGetPresentationTimeStamp(frame);
    printf("frame shown at %lld/%d\n", (long long)time.value, time.timescale);
    if (time.value == player->shown) ++player->shown; /* in order, none left out */
    BRRelease(frame);
    fill(player);
  }
  setTimer(player);
}

static PVStatus prepare(Player *player) {
  static uint8_t frames[kFrames * kFrameBytes];
  const uint8_t *sets[] = {kSPS, kPPS};
  const size_t sizes[] = {sizeof kSPS, sizeof kPPS};
  const BRRunLoopTimerContext context = {.info = player};
  PVBufferQueueTriggerToken token;
  PVStatus status = PVVideoFormatDescriptionCreateFromH264ParameterSets(NULL, 2, sets, sizes, 4, &player->format);
  if (status == 0)
    status = PVBlockBufferCreateWithMemoryBlock(NULL, frames, sizeof frames, kBRAllocatorNull, NULL, 0, sizeof frames, 0,
                                                &player->bytes);
  if (status == 0)
    status = PVBufferQueueCreate(NULL, 0, PVBufferQueueGetCallbacksForSampleBuffersSortedByOutputPTS(), &player->queue);
  if (status == 0)
    status = PVBufferQueueInstallTriggerWithIntegerThreshold(
        player->queue, runsLow, player, kPVBufferQueueTrigger_WhenBufferCountBecomesLessThan, 3, &token);
  if (status == 0) status = PVTimebaseCreateWithMasterClock(NULL, PVClockGetHostTimeClock(), &player->timebase);
  /* The timebase sets when the timer fires; by itself it never does. */
  player->timer = BRRunLoopTimerCreate(NULL, BRAbsoluteTimeGetCurrent() + 1e9, 1e9, showDueFrames, &context);
  BRRunLoopAddTimer(BRRunLoopGetCurrent(), player->timer, kBRRunLoopDefaultMode);
  if (status == 0) status = PVTimebaseAddTimer(player->timebase, player->timer, BRRunLoopGetCurrent());
  return status;
}

int main(void) {
  Player player = {0};
  BRRunLoopRef loop = BRRunLoopGetCurrent();
  const int epoll = epoll_create1(EPOLL_CLOEXEC);
  struct epoll_event event = {.events = EPOLLIN};
  if (!loop || epoll < 0 || epoll_ctl(epoll, EPOLL_CTL_ADD, BRRunLoopGetPollDescriptor(loop), &event) != 0) return 1;

  PVStatus status = prepare(&player);
  if (status == 0) status = fill(&player);
  if (status == 0) status = PVTimebaseSetRate(player.timebase, 1.0);
  setTimer(&player);
  while (status == 0 && !PVBufferQueueIsAtEndOfData(player.queue)) {
    if (epoll_wait(epoll, &event, 1, 1000) == 1) BRRunLoopDispatchPending(loop, kBRRunLoopDefaultMode);
  }

  if (player.timebase) PVTimebaseRemoveTimer(player.timebase, player.timer);
  BRRunLoopTimerInvalidate(player.timer);
  BRRelease(player.timer);
  BRRelease(player.timebase);
  BRRelease(player.queue);
  BRRelease(player.bytes);
  BRRelease(player.format);
  close(epoll);
  return status == 0 && player.shown == kFrames ? 0 : 1;
}
