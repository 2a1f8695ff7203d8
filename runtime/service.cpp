#include "runtime/service.hpp"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

namespace pv {

ServiceLibrary::ServiceLibrary(const char* service, const char* variable, const char* fileName)
    : service_(service), handle_(nullptr) {
  const char* path = secure_getenv(variable);
  // to dlopen an empty path would be the program itself
  if (!path || *path != '\0') handle_ = dlopen(path ? path : fileName, RTLD_NOW | RTLD_LOCAL);
  if (!handle_) std::fprintf(stderr, "Failed to get %s bundle!\n", service_);
}

void* ServiceLibrary::findSymbol(const char* name) const {
  void* symbol = dlsym(handle_, name);
  if (!symbol) std::fprintf(stderr, "Failed to get %s symbol (p%s)!\n", service_, name);
  return symbol;
}

}  // namespace pv
