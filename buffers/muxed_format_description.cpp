// Descriptions of multiplexed streams: derived storage holds the mux type.
#include <bedra/string.h>
#include <kiv/format_description.h>

#include <bedra/ref.hpp>

#include "runtime/error.hpp"

namespace {

PVFourCharCode& muxTypeOf(PVFormatDescriptionRef description) {
  return *static_cast<PVFourCharCode*>(KivDerivedFormatDescriptionGetDerivedStorage(description));
}

constexpr KivDerivedFormatDescriptionCallbacks kEntry{
    .version = 0,
    .derivedStorageSize = sizeof(PVFourCharCode),
    .equal = [](PVFormatDescriptionRef a, PVFormatDescriptionRef b, BRTypeRef,
                BRTypeRef) { return muxTypeOf(a) == muxTypeOf(b); },
    .copyDebugDescription =
        [](PVFormatDescriptionRef description) {
          const PVFourCharCode code = muxTypeOf(description);
          return BRStringCreateWithFormat(nullptr, "\t\tmuxType: '%c%c%c%c'", code >> 24, code >> 16 & 0xFF,
                                          code >> 8 & 0xFF, code & 0xFF);
        },
    .finalize = [](PVFormatDescriptionRef) {}};

}  // namespace

PVStatus KivMuxedFormatDescriptionRegister(void) {
  return KivDerivedFormatDescriptionRegister(kPVMediaType_Muxed, &kEntry);
}

PVStatus PVMuxedFormatDescriptionCreate(BRAllocatorRef allocator, PVFourCharCode muxType,
                                        BRDictionaryRef extensions, PVFormatDescriptionRef* descriptionOut) {
  if (descriptionOut) *descriptionOut = nullptr;
  if (muxType == 0 || !descriptionOut) return pv::signalError(kPVFormatDescriptionError_InvalidParameter);
  if (PVStatus status = KivMuxedFormatDescriptionRegister()) return status;
  br::Ref<PVFormatDescription> made;
  if (PVStatus status =
          KivDerivedFormatDescriptionCreate(allocator, kPVMediaType_Muxed, muxType, extensions, made.out()))
    return status;
  if (KivDerivedFormatDescriptionGetDerivedStorageSize(made.get()) < sizeof(PVFourCharCode))
    return pv::signalError(kPVFormatDescriptionError_InvalidParameter);
  muxTypeOf(made.get()) = muxType;
  *descriptionOut = made.detach();
  return 0;
}
