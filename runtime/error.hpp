// How the library's own code fails: return signalError(kCode). The place is the caller's.
#ifndef PEVRIN_RUNTIME_ERROR_HPP
#define PEVRIN_RUNTIME_ERROR_HPP

#include <kiv/error.h>

#include <source_location>

namespace pv {

inline PVStatus signalError(PVStatus status, std::source_location where = std::source_location::current()) {
  return KivSignalErrorAt(status, where.file_name(), static_cast<int32_t>(where.line()), where.function_name());
}

}  // namespace pv

#endif
