/* Error signalling: every failing return of the library passes its status through here.
 *
 *   const uint64_t before = KivGetErrorCount();
 *   runTheStep();
 *   if (KivGetErrorCount() != before) puts("something failed on the way; run with PEVRIN_LOG_ERRORS=1 to see what");
 *
 * The source location is there for the log; the answer does not depend on it. */
#ifndef KIV_ERROR_H
#define KIV_ERROR_H

#include <pevrin/base.h>

PV_BEGIN_DECLS

/* Counts the status in the process-wide error counter and returns it unchanged. file (may be NULL), line and function
 * (may be NULL) say where the failure arose; with PEVRIN_LOG_ERRORS=1 in the environment, read once at the first error,
 * each call logs one line at error level: "files/atom_stream.cpp:120 readHeader: status -12894". errno stays as it is.
 * Thread-safe. */
PV_EXPORT PVStatus KivSignalErrorAt(PVStatus status, const char *file, int32_t line, const char *function);

/* The number of statuses signalled so far in this process. Thread-safe. */
PV_EXPORT uint64_t KivGetErrorCount(void);

PV_END_DECLS

#endif
