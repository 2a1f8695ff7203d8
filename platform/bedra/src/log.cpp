// The log.
#include <bedra/log.h>

#include <cstdarg>
#include <cstdio>

void BRLog(BRLogLevel, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::vfprintf(stderr, format, arguments);
  va_end(arguments);
  std::fputc('\n', stderr);
}
