// The format list of an audio description, and what is chosen from it.
//
// The list is made without a lock: whoever finds none makes one, and the first to put theirs into the
// description is the one whose list stays. It is complete by then, layouts included, and never changes.
#include <bedra/allocator.h>

#include <algorithm>
#include <bit>

#include "formats/audio_format_description.hpp"
#include "formats/tonvik_loader.hpp"
#include "runtime/error.hpp"

namespace pv::audio {

namespace {

constexpr size_t kItemBytes = sizeof(AudioFormatListItem), kLayoutBytes = sizeof(AudioChannelLayout);

bool isTagOfArrangement(AudioChannelLayoutTag tag) {
  return tag < kAudioChannelLayoutTag_Unknown && tag != kAudioChannelLayoutTag_UseChannelDescriptions &&
         tag != kAudioChannelLayoutTag_UseChannelBitmap;
}

// A list with room for so many bytes of items, at least one.
FormatList* allocateList(BRAllocatorRef allocator, size_t itemsBytes) {
  const size_t itemsEnd = sizeof(FormatList) + (itemsBytes + 3) / 4 * 4;
  void* block = BRAllocatorAllocate(allocator, itemsEnd + itemsBytes / kItemBytes * kLayoutBytes);
  if (!block) {
    pv::signalError(kPVFormatDescriptionError_AllocationFailed);
    return nullptr;
  }
  auto* list = static_cast<FormatList*>(block);
  list->count = 0;
  list->layouts = reinterpret_cast<AudioChannelLayout*>(static_cast<char*>(block) + itemsEnd);
  return list;
}

// Tonvik's list. Without one the status is 0 and the list null.
PVStatus askForList(BRAllocatorRef allocator, const Storage& storage, FormatList** listOut) {
  *listOut = nullptr;
  AudioFormatInfo info{storage.description, nullptr, 0};
  if (storage.cookie.size() <= UINT32_MAX) {
    info.magicCookie = storage.cookie.data();
    info.magicCookieSize = static_cast<uint32_t>(storage.cookie.size());
  }
  uint32_t size = 0;
  if (Tonvik_AudioFormatGetPropertyInfo(kAudioFormatProperty_FormatList, sizeof info, &info, &size) != 0 ||
      size < kItemBytes)
    return 0;
  FormatList* list = allocateList(allocator, size);
  if (!list) return kPVFormatDescriptionError_AllocationFailed;
  const uint32_t room = size;
  const AudioStatus status = Tonvik_AudioFormatGetProperty(kAudioFormatProperty_FormatList, sizeof info,
                                                           &info, &size, list->items());
  if (status != 0 || size < kItemBytes || size > room) {
    BRAllocatorDeallocate(allocator, list);
    return 0;
  }
  list->count = size / kItemBytes;
  *listOut = list;
  return 0;
}

FormatList* makeOwnList(BRAllocatorRef allocator, const Storage& storage) {
  FormatList* list = allocateList(allocator, kItemBytes);
  if (!list) return nullptr;
  const bool hasTag = storage.layout.isWhole() && isTagOfArrangement(storage.layout.header->channelLayoutTag);
  list->items()[0] = {storage.description,
                      hasTag ? storage.layout.header->channelLayoutTag : kAudioChannelLayoutTag_Unknown};
  list->count = 1;
  return list;
}

FormatList* makeList(BRAllocatorRef allocator, const Storage& storage) {
  FormatList* list;
  if (askForList(allocator, storage, &list) != 0) return nullptr;
  if (!list) list = makeOwnList(allocator, storage);
  for (size_t i = 0; list && i < list->count; ++i)
    list->layouts[i] = AudioChannelLayout{list->items()[i].channelLayoutTag, 0, 0};
  return list;
}

// The first item whose format ID is among those that can be decoded.
const AudioFormatListItem* findDecodable(BRAllocatorRef allocator, const FormatList& list) {
  uint32_t size = 0;
  AudioStatus status =
      Tonvik_AudioFormatGetPropertyInfo(kAudioFormatProperty_DecodeFormatIDs, 0, nullptr, &size);
  if (status != 0 || size < sizeof(AudioFormatID)) {
    pv::signalError(status);
    return nullptr;
  }
  auto* formatIDs = static_cast<AudioFormatID*>(BRAllocatorAllocate(allocator, size));
  if (!formatIDs) {
    pv::signalError(kPVFormatDescriptionError_AllocationFailed);
    return nullptr;
  }
  const AudioFormatID* end = formatIDs + size / sizeof(AudioFormatID);
  std::fill_n(reinterpret_cast<char*>(formatIDs), size, '\0');
  status = Tonvik_AudioFormatGetProperty(kAudioFormatProperty_DecodeFormatIDs, 0, nullptr, &size, formatIDs);
  const AudioFormatListItem* found = nullptr;
  if (status != 0)
    pv::signalError(status);
  else
    for (size_t i = 0; i < list.count && !found; ++i)
      if (std::find(static_cast<const AudioFormatID*>(formatIDs), end,
                    list.items()[i].streamBasicDescription.formatID) != end)
        found = &list.items()[i];
  BRAllocatorDeallocate(allocator, formatIDs);
  return found;
}

const AudioFormatListItem* findRichest(BRAllocatorRef allocator, const FormatList& list) {
  uint32_t index = UINT32_MAX, size = sizeof index;
  const AudioStatus status = Tonvik_AudioFormatGetProperty(kAudioFormatProperty_FirstPlayableFormatFromList,
                                                           static_cast<uint32_t>(list.count * kItemBytes),
                                                           list.items(), &size, &index);
  if (status == 0) return index < list.count ? &list.items()[index] : nullptr;
  if (status == kAudioFormatUnsupportedPropertyError) return findDecodable(allocator, list);
  if (status != kAudioFormatUnsupportedDataFormatError) pv::signalError(status);
  return nullptr;
}

// Writes the layout that goes with an item of the list, or with none.
const AudioFormatListItem* withLayout(const AudioFormatListItem* item, const FormatList* list,
                                      const Storage* storage, size_t* layoutSizeOut,
                                      const AudioChannelLayout** layoutOut) {
  Layout layout;
  if (item && storage->layout.isWhole() &&
      storage->layout.channelCount() == item->streamBasicDescription.channelsPerFrame)
    layout = storage->layout;
  else if (item && item->channelLayoutTag != kAudioChannelLayoutTag_Unknown)
    layout = {&list->layouts[item - list->items()], kLayoutBytes};
  if (layoutSizeOut) *layoutSizeOut = layout.sizeBytes;
  if (layoutOut) *layoutOut = layout.header;
  return item;
}

}  // namespace

bool Layout::isWhole() const {
  return sizeBytes >= kLayoutBytes &&
         (header->channelLayoutTag != kAudioChannelLayoutTag_UseChannelDescriptions ||
          header->numberChannelDescriptions <= (sizeBytes - kLayoutBytes) / sizeof(AudioChannelDescription));
}

uint32_t Layout::channelCount() const {
  switch (header->channelLayoutTag) {
    case kAudioChannelLayoutTag_UseChannelBitmap:
      return static_cast<uint32_t>(std::popcount(header->channelBitmap));
    case kAudioChannelLayoutTag_UseChannelDescriptions:
      return header->numberChannelDescriptions;
    default:
      return header->channelLayoutTag & 0xFFFF;
  }
}

const FormatList* formatListOf(PVFormatDescriptionRef description, Storage& storage) {
  FormatList* list = storage.formatList.load(std::memory_order_acquire);
  if (list) return list;
  const BRAllocatorRef allocator = BRGetAllocator(description);
  FormatList* made = makeList(allocator, storage);
  if (!made) return nullptr;
  if (storage.formatList.compare_exchange_strong(list, made, std::memory_order_acq_rel,
                                                 std::memory_order_acquire))
    return made;
  BRAllocatorDeallocate(allocator, made);
  return list;
}

}  // namespace pv::audio

using namespace pv::audio;

const AudioFormatListItem* PVAudioFormatDescriptionGetFormatList(PVAudioFormatDescriptionRef description,
                                                                 size_t* sizeOut) {
  Storage* storage = storageOf(description);
  const FormatList* list = storage ? formatListOf(description, *storage) : nullptr;
  if (sizeOut) *sizeOut = list ? list->count * kItemBytes : 0;
  return list ? list->items() : nullptr;
}

const AudioFormatListItem* PVAudioFormatDescriptionGetMostCompatibleFormat(
    PVAudioFormatDescriptionRef description) {
  return KivAudioFormatDescriptionGetMostCompatibleFormatAndChannelLayout(description, nullptr, nullptr);
}

const AudioFormatListItem* PVAudioFormatDescriptionGetRichestDecodableFormat(
    PVAudioFormatDescriptionRef description) {
  return KivAudioFormatDescriptionGetRichestDecodableFormatAndChannelLayout(description, nullptr, nullptr);
}

const AudioFormatListItem* KivAudioFormatDescriptionGetRichestDecodableFormatAndChannelLayout(
    PVAudioFormatDescriptionRef description, size_t* layoutSizeOut, const AudioChannelLayout** layoutOut) {
  Storage* storage = storageOf(description);
  const FormatList* list = storage ? formatListOf(description, *storage) : nullptr;
  const AudioFormatListItem* item = list ? findRichest(BRGetAllocator(description), *list) : nullptr;
  return withLayout(item, list, storage, layoutSizeOut, layoutOut);
}

const AudioFormatListItem* KivAudioFormatDescriptionGetMostCompatibleFormatAndChannelLayout(
    PVAudioFormatDescriptionRef description, size_t* layoutSizeOut, const AudioChannelLayout** layoutOut) {
  Storage* storage = storageOf(description);
  const FormatList* list = storage ? formatListOf(description, *storage) : nullptr;
  const AudioFormatListItem* item = list ? &list->items()[list->count - 1] : nullptr;
  return withLayout(item, list, storage, layoutSizeOut, layoutOut);
}
