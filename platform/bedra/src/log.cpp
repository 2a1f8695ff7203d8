// The log.
//
// A call of the program's sink stands in a list, with the generation of the sink it calls, for as long as it
// lasts. Replacing the sink starts a new generation and waits until no call of an older one is left in the
// list. The lock is never held while a sink runs or a line is written, and nothing else is locked under it.
#include <bedra/log.h>

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <mutex>

#include "src/string.hpp"
#include "src/text.hpp"

namespace {

struct SinkCall {
  BRLogSink sink;
  void* context;
  uint64_t generation;
  SinkCall* next;
};

constinit std::mutex sinkLock;
constinit BRLogSink currentSink = nullptr;  // this and the next three are guarded by sinkLock
constinit void* currentContext = nullptr;
constinit uint64_t currentGeneration = 0;
constinit SinkCall* runningCalls = nullptr;
constinit std::atomic<uint32_t> endedCalls{0};  // what BRLogSetSink waits on

// True while this thread is in a call of the sink.
constinit thread_local bool inSink = false;

bool beginCall(SinkCall& call) {
  std::lock_guard guard(sinkLock);
  if (!currentSink) return false;
  call = {currentSink, currentContext, currentGeneration, runningCalls};
  runningCalls = &call;
  return true;
}

void endCall(SinkCall& call) {
  {
    std::lock_guard guard(sinkLock);
    SinkCall** link = &runningCalls;
    while (*link != &call) link = &(*link)->next;
    *link = call.next;
  }
  endedCalls.fetch_add(1, std::memory_order_release);
  endedCalls.notify_all();
}

bool callsOlderThan(uint64_t generation) {
  std::lock_guard guard(sinkLock);
  for (const SinkCall* call = runningCalls; call; call = call->next)
    if (call->generation < generation) return true;
  return false;
}

std::string_view levelText(BRLogLevel level) {
  switch (level) {
    case kBRLogLevelError:
      return "error: ";
    case kBRLogLevelInfo:
      return "info: ";
    case kBRLogLevelDebug:
      return "debug: ";
    default:
      return "";
  }
}

// One system call for the whole line, so that lines of several threads and processes stay whole. What a pipe
// or a terminal does not take at once follows in further calls.
void writeLine(BRLogLevel level, std::string_view message) {
  br::TextBuffer line(nullptr);
  line.append(levelText(level));
  line.append(message);
  line.append('\n');
  for (std::string_view left = line.text(); !left.empty();) {
    const ssize_t written = write(STDERR_FILENO, left.data(), left.size());
    if (written > 0)
      left.remove_prefix(static_cast<size_t>(written));
    else if (written == 0 || errno != EINTR)
      return;
  }
}

void deliver(BRLogLevel level, const char* message) {
  SinkCall call;
  if (inSink || !beginCall(call)) return writeLine(level, message);
  inSink = true;
  call.sink(level, message, call.context);
  inSink = false;
  endCall(call);
}

}  // namespace

void BRLog(BRLogLevel level, const char* format, ...) {
  if (!format) return;
  const int savedErrno = errno;
  va_list arguments;
  va_start(arguments, format);
  br::TextBuffer formatted(nullptr), repaired(nullptr);
  const bool isGood = br::appendFormat(formatted, format, arguments);
  va_end(arguments);
  // a message that cannot be made is better told by its format than not at all
  br::appendRepaired(repaired, isGood ? formatted.text() : format);
  deliver(level, repaired.failed() ? "out of memory" : repaired.cString());
  errno = savedErrno;
}

void BRLogSetSink(BRLogSink sink, void* context) {
  uint64_t generation;
  {
    std::lock_guard guard(sinkLock);
    currentSink = sink;
    currentContext = context;
    generation = ++currentGeneration;
  }
  if (inSink) return;  // waiting for itself, or for another sink that waits for this one, would never end
  for (;;) {
    const uint32_t seen = endedCalls.load(std::memory_order_acquire);
    if (!callsOlderThan(generation)) return;
    endedCalls.wait(seen, std::memory_order_acquire);
  }
}
