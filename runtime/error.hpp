// How the library's own code fails: return signalError(kCode). The place is the caller's.
#ifndef PEVRIN_RUNTIME_ERROR_HPP
#define PEVRIN_RUNTIME_ERROR_HPP

#include <kiv/error.h>

namespace pv {

// As default arguments the built-ins name the caller; not every compiler has std::source_location.
inline PVStatus signalError(PVStatus status, const char* file = __builtin_FILE(), int32_t line = __builtin_LINE(),
                            const char* function = __builtin_FUNCTION()) {
  return KivSignalErrorAt(status, file, line, function);
}

}  // namespace pv

#endif
