// The registry of media types.
//
// Representation: chains of records that are only ever put in front, each complete before the chain's head is
// set to it, so that readers need no lock. One writer at a time, under the mutex, keeps a media type from
// being added twice.
#include "buffers/format_description_registry.hpp"

#include <bedra/allocator.h>

#include <atomic>
#include <mutex>
#include <new>

#include "runtime/error.hpp"

namespace pv::format {

namespace {

struct Record {
  Entry entry;
  PVMediaType mediaType;
  const Record* next;
};

constexpr unsigned kChainBits = 5;

constinit std::atomic<const Record*> chains[1u << kChainBits] = {};
constinit std::mutex additionLock;
constinit std::atomic<bool> registryExists{false};

std::atomic<const Record*>& chainOf(PVMediaType mediaType) {
  return chains[mediaType * 0x9E3779B1u >> (32 - kChainBits)];
}

const Entry* findIn(const Record* record, PVMediaType mediaType) {
  while (record && record->mediaType != mediaType) record = record->next;
  return record ? &record->entry : nullptr;
}

// The media types that register themselves when one of theirs is first asked for. The specialisations stand
// on a floor above: these are the only calls that go up.
struct BuiltIn {
  PVMediaType mediaType;
  PVStatus (*registerEntry)();
};
constexpr BuiltIn kBuiltIns[] = {
    {kPVMediaType_Audio, KivAudioFormatDescriptionRegister},
    {kPVMediaType_Muxed, KivMuxedFormatDescriptionRegister},
    {kPVMediaType_TimeCode, KivTimeCodeFormatDescriptionRegister},
    {kPVMediaType_Video, KivVideoFormatDescriptionRegister},
};

}  // namespace

const Entry* findEntry(PVMediaType mediaType) {
  return findIn(chainOf(mediaType).load(std::memory_order_acquire), mediaType);
}

PVStatus entryForCreation(PVMediaType mediaType, const Entry** entryOut) {
  *entryOut = findEntry(mediaType);
  if (*entryOut) return 0;
  if (!registryExists.load(std::memory_order_acquire))
    return pv::signalError(kPVFormatDescriptionError_InvalidParameter);
  for (const BuiltIn& builtIn : kBuiltIns)
    if (builtIn.mediaType == mediaType)
      if (PVStatus status = builtIn.registerEntry()) return status;
  *entryOut = findEntry(mediaType);
  if (!*entryOut) *entryOut = findEntry(kKivMediaType_Generic);
  return *entryOut ? 0 : pv::signalError(kPVFormatDescriptionError_InvalidParameter);
}

}  // namespace pv::format

using namespace pv::format;

PVStatus KivDerivedFormatDescriptionRegister(PVMediaType mediaType,
                                             const KivDerivedFormatDescriptionCallbacks* callbacks) {
  if (!callbacks || callbacks->version != 0 || !callbacks->equal)
    return pv::signalError(kPVFormatDescriptionError_InvalidParameter);
  // Every creation of a built-in kind passes here: without the lock unless it is the first.
  if (findEntry(mediaType)) return 0;
  registryExists.store(true, std::memory_order_release);
  std::lock_guard guard(additionLock);
  auto& chain = chainOf(mediaType);
  const Record* first = chain.load(std::memory_order_relaxed);
  if (findIn(first, mediaType)) return 0;
  void* memory = BRAllocatorAllocate(nullptr, sizeof(Record));
  if (!memory) return pv::signalError(kPVFormatDescriptionError_AllocationFailed);
  chain.store(new (memory) Record{*callbacks, mediaType, first}, std::memory_order_release);
  return 0;
}

PVStatus KivGenericFormatDescriptionRegisterOnce(void) {
  static constexpr Entry kEntry{
      .version = 0,
      .derivedStorageSize = 0,
      .equal =
          [](PVFormatDescriptionRef a, PVFormatDescriptionRef b, BRTypeRef keys, BRTypeRef atomKeys) {
            return KivFormatDescriptionExtensionsDictionariesEqualIgnoringKeys(
                PVFormatDescriptionGetExtensions(a), PVFormatDescriptionGetExtensions(b), keys, atomKeys);
          },
      .copyDebugDescription = nullptr,
      .finalize = nullptr};
  return KivDerivedFormatDescriptionRegister(kKivMediaType_Generic, &kEntry);
}
