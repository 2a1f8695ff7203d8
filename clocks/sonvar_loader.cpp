#include "clocks/sonvar_loader.hpp"

#include "runtime/service.hpp"

namespace {

bool load(pv::Sonvar* sonvar) {
  const pv::ServiceLibrary library("Sonvar", "PEVRIN_SONVAR_PATH", "libsonvar.so.0");
  return library.isOpen() && library.find("SonvarGetDefaultOutputDevice", &sonvar->getDefaultOutputDevice) &&
         library.find("SonvarGetDeviceWithUID", &sonvar->getDeviceWithUID) &&
         library.find("SonvarDeviceGetUID", &sonvar->getUID) &&
         library.find("SonvarDeviceStart", &sonvar->start) &&
         library.find("SonvarDeviceStop", &sonvar->stop) &&
         library.find("SonvarDeviceGetTimeStamp", &sonvar->getTimeStamp) &&
         library.find("SonvarAddListener", &sonvar->addListener) &&
         library.find("SonvarRemoveListener", &sonvar->removeListener);
}

}  // namespace

const pv::Sonvar* pv::sonvar() {
  static Sonvar functions{};
  static const bool isAvailable = load(&functions);
  return isAvailable ? &functions : nullptr;
}
