// What is attached to a sample buffer, as a whole and to its samples.
#include <bedra/dictionary.h>
#include <bedra/number.h>
#include <kiv/attachment.h>

#include <bedra/literal.hpp>
#include <memory>

#include "buffers/samples/sample_buffer.hpp"

using namespace br::literals;
using namespace pv::sample;
using pv::signalError;

extern "C" {
constinit const BRStringRef kPVSampleBufferAttachmentKey_TrimDurationAtStart = "TrimDurationAtStart"_br;
constinit const BRStringRef kPVSampleBufferAttachmentKey_TrimDurationAtEnd = "TrimDurationAtEnd"_br;
constinit const BRStringRef kPVSampleBufferAttachmentKey_SpeedMultiplier = "SpeedMultiplier"_br;
constinit const BRStringRef kPVSampleBufferAttachmentKey_Reverse = "Reverse"_br;
constinit const BRStringRef kPVSampleAttachmentKey_NotSync = "NotSync"_br;
constinit const BRStringRef kPVSampleAttachmentKey_PartialSync = "PartialSync"_br;
constinit const BRStringRef kPVSampleAttachmentKey_HasRedundantCoding = "HasRedundantCoding"_br;
constinit const BRStringRef kPVSampleAttachmentKey_IsDependedOnByOthers = "IsDependedOnByOthers"_br;
constinit const BRStringRef kPVSampleAttachmentKey_DependsOnOthers = "DependsOnOthers"_br;
constinit const BRStringRef kPVSampleAttachmentKey_EarlierDisplayTimesAllowed =
    "EarlierDisplayTimesAllowed"_br;
constinit const BRStringRef kPVSampleAttachmentKey_DisplayImmediately = "DisplayImmediately"_br;
constinit const BRStringRef kPVSampleAttachmentKey_DoNotDisplay = "DoNotDisplay"_br;
}

namespace {

bool isEdit(BRStringRef key) {
  for (BRStringRef edit :
       {kPVSampleBufferAttachmentKey_TrimDurationAtStart, kPVSampleBufferAttachmentKey_TrimDurationAtEnd,
        kPVSampleBufferAttachmentKey_SpeedMultiplier, kPVSampleBufferAttachmentKey_Reverse})
    if (BREqual(key, edit)) return true;
  return false;
}

bool readTrim(const pv::AttachmentStore& attachments, BRStringRef key, PVTime& out) {
  out = PVTimeMakeFromDictionary(static_cast<BRDictionaryRef>(attachments.get(key, nullptr)));
  return PVTimeIsNumeric(out);
}

void readEdits(const pv::AttachmentStore& attachments, Edits& out) {
  out.hasTrimAtStart =
      readTrim(attachments, kPVSampleBufferAttachmentKey_TrimDurationAtStart, out.trimAtStart);
  out.hasTrimAtEnd = readTrim(attachments, kPVSampleBufferAttachmentKey_TrimDurationAtEnd, out.trimAtEnd);
  BRTypeRef speed = attachments.get(kPVSampleBufferAttachmentKey_SpeedMultiplier, nullptr);
  out.hasSpeed = speed && BRGetTypeID(speed) == BRNumberGetTypeID();
  if (out.hasSpeed) BRNumberGetValue(static_cast<BRNumberRef>(speed), kBRNumberTypeFloat64, &out.speed);
  BRTypeRef reverse = attachments.get(kPVSampleBufferAttachmentKey_Reverse, nullptr);
  out.reversed = reverse && BRGetTypeID(reverse) == BRBooleanGetTypeID() &&
                 BRBooleanGetValue(static_cast<BRBooleanRef>(reverse));
}

void updateEdits(PVSampleBuffer& buffer) {
  if (buffer.rare) readEdits(buffer.attachments, buffer.rare->edits);
}

PVSampleBuffer& bearerOf(PVAttachmentBearerRef bearer) {
  return *static_cast<PVSampleBuffer*>(const_cast<void*>(bearer));
}

constexpr KivAttachmentBearerCallbacks kAttachmentCallbacks{
    .version = 0,
    .setAttachment =
        [](PVAttachmentBearerRef bearer, BRStringRef key, BRTypeRef value, PVAttachmentMode mode) {
          if (!refused(&bearerOf(bearer))) setAttachment(bearerOf(bearer), key, value, mode);
        },
    .getAttachment = [](PVAttachmentBearerRef bearer, BRStringRef key,
                        PVAttachmentMode* modeOut) -> BRTypeRef {
      return refused(&bearerOf(bearer)) ? nullptr : bearerOf(bearer).attachments.get(key, modeOut);
    },
    .removeAttachment =
        [](PVAttachmentBearerRef bearer, BRStringRef key) {
          if (!refused(&bearerOf(bearer))) setAttachment(bearerOf(bearer), key, nullptr, 0);
        },
    .removeAllAttachments =
        [](PVAttachmentBearerRef bearer) {
          if (refused(&bearerOf(bearer))) return;
          bearerOf(bearer).attachments.removeAll();
          updateEdits(bearerOf(bearer));
        },
    .copyDictionaryOfAttachments = [](BRAllocatorRef allocator, PVAttachmentBearerRef bearer,
                                      PVAttachmentMode mode) -> BRDictionaryRef {
      return refused(&bearerOf(bearer)) ? nullptr : bearerOf(bearer).attachments.copy(allocator, mode);
    }};

}  // namespace

template <>
BRTypeID br::typeID<PVSampleBuffer>() {
  static const BRTypeID id = [] {
    const BRTypeID registered = BRRuntimeRegisterClass(&br::kClassOf<PVSampleBuffer>);
    KivRuntimeRegisterAttachmentBearerWithTypeID(&kAttachmentCallbacks, registered);
    return registered;
  }();
  return id;
}

namespace pv::sample {

bool setAttachment(PVSampleBuffer& buffer, BRStringRef key, BRTypeRef value, uint32_t mode) {
  const bool edit = isEdit(key);
  if (edit && value && !buffer.makeRare()) {
    signalError(kPVSampleBufferError_AllocationFailed);
    return false;
  }
  if (!buffer.attachments.set(BRGetAllocator(&buffer), key, value, mode)) return false;
  if (edit) updateEdits(buffer);
  return true;
}

bool copyPropagatingAttachments(const PVSampleBuffer& source, PVSampleBuffer& copy) {
  constexpr uint32_t kMode = kPVAttachmentMode_ShouldPropagate;
  if (!source.attachments.dictionary(kMode)) return true;
  if (!copy.attachments.copyMode(BRGetAllocator(&copy), source.attachments, kMode)) return false;
  if (!source.rare) return true;
  if (!copy.makeRare()) return false;
  updateEdits(copy);
  return true;
}

}  // namespace pv::sample

namespace {

// The array of as many dictionaries as the buffer has samples, made one after the other. Null when memory
// runs out.
template <class Make>
BRArrayRef makeArray(const PVSampleBuffer& buffer, Make make) {
  const auto count = static_cast<size_t>(buffer.numSamples);
  BRAllocatorRef allocator = BRGetAllocator(&buffer);
  auto array = br::Ref<BRArray>::adopt(BRArrayCreateMutable(allocator, count, &kBRTypeArrayCallBacks));
  for (size_t i = 0; array && i < count; ++i) {
    auto dictionary = br::Ref<BRDictionary>::adopt(make(allocator, i));
    if (!dictionary || !BRArrayAppendValue(array.get(), dictionary.get())) return nullptr;
  }
  return array ? BRArrayCreateCopy(allocator, array.get()) : nullptr;
}

}  // namespace

bool pv::sample::copySampleAttachments(const PVSampleBuffer& source, int64_t location, PVSampleBuffer& copy) {
  if (!source.sampleAttachments || copy.numSamples == 0) return true;
  copy.sampleAttachments =
      br::Ref<const BRArray>::adopt(makeArray(copy, [&](BRAllocatorRef allocator, size_t index) {
        return BRDictionaryCreateMutableCopy(
            allocator, static_cast<BRDictionaryRef>(BRArrayGetValueAtIndex(
                           source.sampleAttachments.get(), static_cast<size_t>(location) + index)));
      }));
  return copy.sampleAttachments.get() != nullptr;
}

BRArrayRef PVSampleBufferGetSampleAttachmentsArray(PVSampleBufferRef buffer, bool createIfNecessary) {
  if (refused(buffer)) return nullptr;
  if (buffer->sampleAttachments || !createIfNecessary || buffer->numSamples == 0)
    return buffer->sampleAttachments.get();
  buffer->sampleAttachments =
      br::Ref<const BRArray>::adopt(makeArray(*buffer, [](BRAllocatorRef allocator, size_t) {
        return BRDictionaryCreateMutable(allocator, 0, &kBRCopyStringDictionaryKeyCallBacks,
                                         &kBRTypeDictionaryValueCallBacks);
      }));
  if (!buffer->sampleAttachments) signalError(kPVSampleBufferError_AllocationFailed);
  return buffer->sampleAttachments.get();
}
