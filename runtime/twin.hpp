// Twin names: the Kiv name of a PV function is an ELF alias of the same code. Stands right behind the definition, in
// the same file, outside any namespace:
//
//   PV_TWIN(KivBaseObjectGetVTable, PVBaseObjectGetVTable)
#ifndef PEVRIN_RUNTIME_TWIN_HPP
#define PEVRIN_RUNTIME_TWIN_HPP

#define PV_TWIN(twin, original) \
  extern "C" PV_EXPORT decltype(original) twin __attribute__((alias(#original), nothrow));

#endif
