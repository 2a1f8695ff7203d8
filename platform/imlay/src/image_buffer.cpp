// What all image buffers do: their size, and what hangs on them.
#include "src/image_buffer.hpp"

GRSize IMImageBufferGetEncodedSize(IMImageBufferRef buffer) {
  return buffer ? buffer->encodedSize : GRSize{0, 0};
}

void IMBufferSetAttachment(IMBufferRef buffer, BRStringRef key, BRTypeRef value, IMAttachmentMode mode) {
  if (!buffer || !key || !value || mode > kIMAttachmentMode_ShouldPropagate) return;
  auto& wanted = buffer->attachments[mode];
  if (!wanted)
    wanted = br::Ref<BRDictionary>::adopt(BRDictionaryCreateMutable(
        BRGetAllocator(buffer), 0, &kBRCopyStringDictionaryKeyCallBacks, &kBRTypeDictionaryValueCallBacks));
  // Into the one before out of the other: when memory runs out the key stays as it was.
  if (BRDictionarySetValue(wanted.get(), key, value))
    BRDictionaryRemoveValue(buffer->attachments[1 - mode].get(), key);
}

BRTypeRef IMBufferGetAttachment(IMBufferRef buffer, BRStringRef key, IMAttachmentMode* modeOut) {
  if (!buffer || !key) return nullptr;
  for (IMAttachmentMode mode : {kIMAttachmentMode_ShouldNotPropagate, kIMAttachmentMode_ShouldPropagate})
    if (BRTypeRef value = BRDictionaryGetValue(buffer->attachments[mode].get(), key)) {
      if (modeOut) *modeOut = mode;
      return value;
    }
  return nullptr;
}

void IMBufferRemoveAttachment(IMBufferRef buffer, BRStringRef key) {
  if (!buffer || !key) return;
  // A key is in one mode only, and may have lived by that entry: it is not looked at again.
  for (auto& attachments : buffer->attachments)
    if (BRDictionaryRemoveValue(attachments.get(), key)) return;
}

void IMBufferRemoveAllAttachments(IMBufferRef buffer) {
  if (!buffer) return;
  for (auto& attachments : buffer->attachments) attachments = nullptr;
}

BRDictionaryRef IMBufferGetAttachments(IMBufferRef buffer, IMAttachmentMode mode) {
  if (!buffer || mode > kIMAttachmentMode_ShouldPropagate) return nullptr;
  BRDictionaryRef attachments = buffer->attachments[mode].get();
  return BRDictionaryGetCount(attachments) ? attachments : nullptr;
}
