// Twin names: the Kiv name of a PV function is an ELF alias of the same code. Stands right behind the definition, in
// the same file, outside any namespace:
//
//   PV_TWIN(KivBaseObjectGetVTable, PVBaseObjectGetVTable)
#ifndef PEVRIN_RUNTIME_TWIN_HPP
#define PEVRIN_RUNTIME_TWIN_HPP

// GCC wants the alias to promise what the original, compiled without exceptions, does; for Clang the promise would
// contradict the declaration in the header.
#if defined(__clang__)
#define PV_TWIN_ATTRIBUTES(original) alias(#original)
#else
#define PV_TWIN_ATTRIBUTES(original) alias(#original), nothrow
#endif

#define PV_TWIN(twin, original) \
  extern "C" PV_EXPORT decltype(original) twin __attribute__((PV_TWIN_ATTRIBUTES(original)));

#endif
