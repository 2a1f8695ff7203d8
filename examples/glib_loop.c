/* A run loop inside a GLib main loop, as GTK and GStreamer programs have one.
 *
 * The run loop becomes one source of the main context. Run-loop timers, also those that other threads add, then fire
 * among GLib's own events on the context's thread. */
#include <bedra/bedra.h>
#include <glib-unix.h>
#include <glib.h>

enum { kTicks = 5 };

typedef struct Program {
  GMainLoop *mainLoop;
  int timerTicks, timeoutTicks;
} Program;

static void quitAtEnd(Program *program) {
  if (program->timerTicks == kTicks && program->timeoutTicks == kTicks) g_main_loop_quit(program->mainLoop);
}

/* A run-loop timer beside a GLib timeout. */
static void timerTick(BRRunLoopTimerRef timer, void *info) {
  Program *program = info;
  g_print("run-loop timer %d\n", ++program->timerTicks);
  if (program->timerTicks == kTicks) BRRunLoopTimerInvalidate(timer);
  quitAtEnd(program);
}

static gboolean timeoutTick(void *info) {
  Program *program = info;
  g_print("GLib timeout %d\n", ++program->timeoutTicks);
  quitAtEnd(program);
  return program->timeoutTicks < kTicks;
}

/* All that ties the two together. The descriptor belongs to the run loop: GLib only polls it. */
static gboolean dispatchRunLoop(gint descriptor, GIOCondition condition, void *info) {
  (void)descriptor;
  (void)condition;
  return BRRunLoopDispatchPending(info, kBRRunLoopDefaultMode) != kBRRunLoopStopped;
}

int main(void) {
  Program program = {g_main_loop_new(NULL, FALSE), 0, 0};
  BRRunLoopRef loop = BRRunLoopGetCurrent();
  const BRRunLoopTimerContext context = {.info = &program};
  BRRunLoopTimerRef timer = BRRunLoopTimerCreate(NULL, BRAbsoluteTimeGetCurrent(), 0.005, timerTick, &context);
  if (!loop || !timer) return 1;
  BRRunLoopAddTimer(loop, timer, kBRRunLoopDefaultMode);
  BRRelease(timer);

  const guint source = g_unix_fd_add(BRRunLoopGetPollDescriptor(loop), G_IO_IN, dispatchRunLoop, loop);
  g_timeout_add(4, timeoutTick, &program);
  g_main_loop_run(program.mainLoop);

  g_source_remove(source);
  g_main_loop_unref(program.mainLoop);
  return program.timerTicks == kTicks && program.timeoutTicks == kTicks ? 0 : 1;
}
