/* A run loop inside a program's own epoll loop: one thread, one place to wait.
 *
 * The program waits for a pipe that another thread writes to. Its timers are run-loop timers: they fire between the
 * program's own events, on its thread, without another one. */
#include <bedra/bedra.h>
#include <pthread.h>
#include <stdio.h>
#include <sys/epoll.h>
#include <unistd.h>

enum { kTicks = 5, kBytes = 3 };

static void tick(BRRunLoopTimerRef timer, void *info) {
  int *ticks = info;
  printf("tick %d\n", ++*ticks);
  if (*ticks == kTicks) BRRunLoopTimerInvalidate(timer);
}

/* Something else that the program waits for. */
static void *produce(void *info) {
  const int *pipeEnds = info;
  for (int i = 0; i < kBytes; ++i) {
    usleep(4000);
    if (write(pipeEnds[1], "x", 1) != 1) break;
  }
  return NULL;
}

static void watch(int epoll, int descriptor) {
  struct epoll_event event = {.events = EPOLLIN, .data.fd = descriptor};
  epoll_ctl(epoll, EPOLL_CTL_ADD, descriptor, &event);
}

int main(void) {
  int ticks = 0, bytes = 0, pipeEnds[2];
  BRRunLoopRef loop = BRRunLoopGetCurrent();
  const BRRunLoopTimerContext context = {.info = &ticks};
  BRRunLoopTimerRef timer = BRRunLoopTimerCreate(NULL, BRAbsoluteTimeGetCurrent(), 0.005, tick, &context);
  pthread_t producer;
  const int epoll = epoll_create1(EPOLL_CLOEXEC);
  if (!loop || !timer || epoll < 0 || pipe(pipeEnds) != 0) return 1;
  BRRunLoopAddTimer(loop, timer, kBRRunLoopDefaultMode);
  BRRelease(timer);

  const int loopDescriptor = BRRunLoopGetPollDescriptor(loop);
  watch(epoll, loopDescriptor);
  watch(epoll, pipeEnds[0]);
  if (pthread_create(&producer, NULL, produce, pipeEnds) != 0) return 1;

  while (ticks < kTicks || bytes < kBytes) {
    struct epoll_event event;
    if (epoll_wait(epoll, &event, 1, -1) != 1) continue;
    if (event.data.fd == loopDescriptor) {
      BRRunLoopDispatchPending(loop, kBRRunLoopDefaultMode);
    } else {
      char byte;
      if (read(pipeEnds[0], &byte, 1) == 1) printf("byte %d\n", ++bytes);
    }
  }
  pthread_join(producer, NULL);
  close(pipeEnds[0]);
  close(pipeEnds[1]);
  close(epoll);
  return ticks == kTicks && bytes == kBytes ? 0 : 1;
}
