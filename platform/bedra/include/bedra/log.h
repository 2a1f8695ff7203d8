/* The log: lines with a level, to standard error or to the program's own sink. */
#ifndef BEDRA_LOG_H
#define BEDRA_LOG_H

#include <bedra/base.h>

BR_BEGIN_DECLS

typedef uint32_t BRLogLevel;
enum { kBRLogLevelError = 1, kBRLogLevelInfo = 2, kBRLogLevelDebug = 3 };

typedef void (*BRLogSink)(BRLogLevel level, const char *message, void *context);

/* printf conversions and %@; a message is one line without its newline. */
BR_EXPORT void BRLog(BRLogLevel level, const char *format, ...);
/* Replaces the sink for the process; NULL restores standard error. */
BR_EXPORT void BRLogSetSink(BRLogSink sink, void *context);

BR_END_DECLS

#endif
