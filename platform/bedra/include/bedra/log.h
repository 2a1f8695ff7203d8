/* The log: lines with a level, to standard error or to the program's own sink.
 *
 * A message is formatted like BRStringCreateWithFormat and handed to the sink as UTF-8 without a newline at
 * its end. Without a sink it goes to standard error as one line, "error: ", "info: " or "debug: " before it,
 * written by a single system call. A message that cannot be formatted (a malformed format, or no memory) is
 * logged as its bare format.
 *
 * Threads: all functions from any thread. Messages of several threads may reach the sink at the same time.
 * errno is left as it was.
 *
 *   static void toFile(BRLogLevel level, const char *message, void *context) {
 *     if (level == kBRLogLevelError) fprintf((FILE *)context, "%s\n", message);
 *   }
 *   BRLogSetSink(toFile, file);
 *   BRLog(kBRLogLevelError, "cannot open %@: %d", path, error);
 */
#ifndef BEDRA_LOG_H
#define BEDRA_LOG_H

#include <bedra/base.h>

BR_BEGIN_DECLS

/* How grave a message is. */
typedef uint32_t BRLogLevel;
enum {
  kBRLogLevelError = 1, /* something failed */
  kBRLogLevelInfo = 2,  /* worth knowing in normal running */
  kBRLogLevelDebug = 3  /* for whoever looks into the program */
};

/* Receives the messages. The message is lent for the call. A sink may log itself: what it logs during its
 * call goes to standard error, not back into the sink. */
typedef void (*BRLogSink)(BRLogLevel level, const char *message, void *context);

/* Logs one message: printf conversions and %@ (see bedra/string.h). A NULL format is nothing. */
BR_EXPORT void BRLog(BRLogLevel level, const char *format, ...);

/* Replaces the sink for the whole process; NULL restores standard error. The context is a plain pointer,
 * handed to every call. When the function returns, the former sink is not being called and will not be called
 * again, so that its context may be freed. The one exception: called from inside a sink it returns at once,
 * and calls of the former sink that have begun (its own among them) are still to end. */
BR_EXPORT void BRLogSetSink(BRLogSink sink, void *context);

BR_END_DECLS

#endif
