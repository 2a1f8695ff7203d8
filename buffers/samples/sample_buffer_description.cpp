// The text that a debugger shows of a sample buffer.
#include <bedra/dictionary.h>
#include <bedra/string.h>
#include <pevrin/attachment.h>

#include "buffers/samples/sample_buffer.hpp"

using namespace pv::sample;

namespace {

const char* yesOrNo(bool answer) { return answer ? "YES" : "NO"; }

struct EntryFormat {
  BRMutableStringRef text;
  const char* mark;  // null: a sample's attachment
};

void appendEntry(const void* key, const void* value, void* context) {
  const EntryFormat& format = *static_cast<EntryFormat*>(context);
  const char* name = BRStringGetUTF8(static_cast<BRStringRef>(key));
  if (format.mark)
    BRStringAppendFormat(format.text, "\t\t%-10s%s = %@\n", name, format.mark, value);
  else
    BRStringAppendFormat(format.text, "\t\t\t%-10s = %@\n", name, value);
}

void appendReadiness(BRMutableStringRef text, const PVSampleBuffer& buffer) {
  if (buffer.dataFailed)
    BRStringAppendFormat(text, "\tdataFailed = YES\n");
  else
    BRStringAppendFormat(text, "\tdataReady = %s\n\tmakeDataReadyCallback = %p\n\tmakeDataReadyRefcon = %p\n",
                         yesOrNo(buffer.dataReady), reinterpret_cast<void*>(buffer.makeDataReady),
                         buffer.makeDataReadyRefCon);
}

void appendAttachments(BRMutableStringRef text, const pv::AttachmentStore& attachments) {
  if (attachments.isEmpty()) return;
  BRStringAppendFormat(text, "\tbuffer-level attachments:\n");
  for (uint32_t mode = 0; mode < pv::AttachmentStore::kModes; ++mode) {
    EntryFormat format{text, mode == kPVAttachmentMode_ShouldPropagate ? "(P)" : "   "};
    if (BRDictionaryRef dictionary = attachments.dictionary(mode))
      BRDictionaryApply(dictionary, appendEntry, &format);
  }
}

void appendTiming(BRMutableStringRef text, std::span<const PVSampleTimingInfo> timing) {
  if (timing.empty()) return;
  BRStringAppendFormat(text, "\tsampleTimingArray[%d] = {\n", static_cast<int>(timing.size()));
  const auto describe = [](PVTime time) {
    return br::Ref<const BRString>::adopt(PVTimeCopyDescription(nullptr, time));
  };
  for (const PVSampleTimingInfo& entry : timing)
    BRStringAppendFormat(text, "\t\t{PTS = %@, DTS = %@, duration = %@},\n",
                         describe(entry.presentationTimeStamp).get(), describe(entry.decodeTimeStamp).get(),
                         describe(entry.duration).get());
  BRStringAppendFormat(text, "\t}\n");
}

void appendSizes(BRMutableStringRef text, std::span<const size_t> sizes) {
  if (sizes.empty()) return;
  BRStringAppendFormat(text, "\tsampleSizeArray[%d] = {\n", static_cast<int>(sizes.size()));
  for (size_t size : sizes) BRStringAppendFormat(text, "\t\tsampleSize = %zu,\n", size);
  BRStringAppendFormat(text, "\t}\n");
}

void appendSampleAttachments(BRMutableStringRef text, const PVSampleBuffer& buffer) {
  if (!buffer.sampleAttachments) return;
  BRStringAppendFormat(text, "\tsampleAttachmentsArray[%d] = {\n", static_cast<int>(buffer.sizes().size()));
  EntryFormat format{text, nullptr};
  for (size_t i = 0; i < BRArrayGetCount(buffer.sampleAttachments.get()); ++i) {
    BRStringAppendFormat(text, "\t\tsample %d:\n", static_cast<int>(i));
    BRDictionaryApply(static_cast<BRDictionaryRef>(BRArrayGetValueAtIndex(buffer.sampleAttachments.get(), i)),
                      appendEntry, &format);
  }
  BRStringAppendFormat(text, "\t}\n");
}

}  // namespace

BRStringRef PVSampleBuffer::copyDescription() const {
  auto text = br::Ref<BRString>::adopt(BRStringCreateMutable(nullptr, 0));
  if (!text) return nullptr;
  BRStringAppendFormat(text.get(), "PVSampleBuffer %p retainCount: %d allocator: %p\n\tinvalid = %s\n",
                       static_cast<const void*>(this), static_cast<int>(BRGetRetainCount(this)),
                       static_cast<const void*>(BRGetAllocator(this)), yesOrNo(invalidated));
  appendReadiness(text.get(), *this);
  appendAttachments(text.get(), attachments);
  BRStringAppendFormat(text.get(),
                       "\tformatDescription = %@\n\tsbufToTrackReadiness = %p\n\tnumSamples = %ld\n",
                       format.get(), static_cast<const void*>(tracked.get()), static_cast<long>(numSamples));
  appendTiming(text.get(), timing());
  appendSizes(text.get(), sizes());
  appendSampleAttachments(text.get(), *this);
  BRStringAppendFormat(text.get(), isImage ? "\timageBuffer = %p\n" : "\tdataBuffer = %p\n", data.get());
  return text.detach();
}
