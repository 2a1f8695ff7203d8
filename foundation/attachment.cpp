// Attachments: the registry of bearers, and the operations that go through it.
//
// The registry is a dictionary from type IDs to callback records, both held as bare words; it is made with
// the first registration and never destroyed. Types register at any time, on the first use of each, while
// other threads look theirs up: hence the lock. It is never held while a callback runs.
#include <bedra/dictionary.h>
#include <bedra/runtime.h>
#include <kiv/attachment.h>

#include <bedra/ref.hpp>
#include <mutex>
#include <shared_mutex>

#include "foundation/attachment_image_buffer.hpp"
#include "runtime/error.hpp"

namespace {

constinit std::shared_mutex registryLock;
constinit BRMutableDictionaryRef registry = nullptr;  // guarded by registryLock

const void* asKey(BRTypeID typeID) { return reinterpret_cast<const void*>(uintptr_t{typeID}); }

bool isComplete(const KivAttachmentBearerCallbacks* callbacks) {
  return callbacks && callbacks->version == 0 && callbacks->setAttachment && callbacks->getAttachment &&
         callbacks->removeAttachment && callbacks->removeAllAttachments &&
         callbacks->copyDictionaryOfAttachments;
}

bool addToRegistry(const KivAttachmentBearerCallbacks* callbacks, BRTypeID typeID) {
  std::unique_lock lock(registryLock);
  if (!registry) registry = BRDictionaryCreateMutable(nullptr, 0, nullptr, nullptr);
  return BRDictionaryAddValue(registry, asKey(typeID), callbacks);
}

bool removeFromRegistry(BRTypeID typeID) {
  std::unique_lock lock(registryLock);
  return BRDictionaryRemoveValue(registry, asKey(typeID));
}

const KivAttachmentBearerCallbacks* callbacksOf(PVAttachmentBearerRef bearer) {
  if (!bearer) return nullptr;
  static const bool imageBuffersRegistered = (pv::registerImageBufferBearer(), true);
  (void)imageBuffersRegistered;
  return KivRuntimeGetAttachmentBearerCallbacksWithTypeID(BRGetTypeID(bearer));
}

// Misuse is counted, but there is no status to return.
void signalMisuse(const char* function = __builtin_FUNCTION(), int32_t line = __builtin_LINE()) {
  KivSignalErrorAt(0, __FILE__, line, function);
}

}  // namespace

void KivRuntimeRegisterAttachmentBearerWithTypeID(const KivAttachmentBearerCallbacks* callbacks,
                                                  BRTypeID typeID) {
  if (!isComplete(callbacks) || !addToRegistry(callbacks, typeID)) signalMisuse();
}

const KivAttachmentBearerCallbacks* KivRuntimeGetAttachmentBearerCallbacksWithTypeID(BRTypeID typeID) {
  std::shared_lock lock(registryLock);
  return static_cast<const KivAttachmentBearerCallbacks*>(BRDictionaryGetValue(registry, asKey(typeID)));
}

void KivRuntimeUnregisterAttachmentBearerWithTypeID(BRTypeID typeID) {
  if (!removeFromRegistry(typeID)) signalMisuse();
}

void PVSetAttachment(PVAttachmentBearerRef bearer, BRStringRef key, BRTypeRef value, PVAttachmentMode mode) {
  if (!key || mode > kPVAttachmentMode_ShouldPropagate) return signalMisuse();
  if (auto* callbacks = callbacksOf(bearer)) callbacks->setAttachment(bearer, key, value, mode);
}

BRTypeRef PVGetAttachment(PVAttachmentBearerRef bearer, BRStringRef key, PVAttachmentMode* modeOut) {
  if (!key) {
    signalMisuse();
    return nullptr;
  }
  auto* callbacks = callbacksOf(bearer);
  return callbacks ? callbacks->getAttachment(bearer, key, modeOut) : nullptr;
}

void PVRemoveAttachment(PVAttachmentBearerRef bearer, BRStringRef key) {
  if (!key) return signalMisuse();
  if (auto* callbacks = callbacksOf(bearer)) callbacks->removeAttachment(bearer, key);
}

void PVRemoveAllAttachments(PVAttachmentBearerRef bearer) {
  if (auto* callbacks = callbacksOf(bearer)) callbacks->removeAllAttachments(bearer);
}

BRDictionaryRef PVCopyDictionaryOfAttachments(BRAllocatorRef allocator, PVAttachmentBearerRef bearer,
                                              PVAttachmentMode mode) {
  if (mode > kPVAttachmentMode_ShouldPropagate) {
    signalMisuse();
    return nullptr;
  }
  auto* callbacks = callbacksOf(bearer);
  return callbacks ? callbacks->copyDictionaryOfAttachments(allocator, bearer, mode) : nullptr;
}

void PVSetAttachments(PVAttachmentBearerRef bearer, BRDictionaryRef attachments, PVAttachmentMode mode) {
  struct Context {
    PVAttachmentBearerRef bearer;
    PVAttachmentMode mode;
    const KivAttachmentBearerCallbacks* callbacks;
  } context{bearer, mode, callbacksOf(bearer)};
  if (!context.callbacks || !attachments) return;
  BRDictionaryApply(
      attachments,
      [](const void* key, const void* value, void* info) {
        const Context& to = *static_cast<Context*>(info);
        to.callbacks->setAttachment(to.bearer, static_cast<BRStringRef>(key), value, to.mode);
      },
      &context);
}

void PVPropagateAttachments(PVAttachmentBearerRef source, PVAttachmentBearerRef destination) {
  auto attachments = br::Ref<const BRDictionary>::adopt(
      PVCopyDictionaryOfAttachments(nullptr, source, kPVAttachmentMode_ShouldPropagate));
  if (attachments) PVSetAttachments(destination, attachments.get(), kPVAttachmentMode_ShouldPropagate);
}
