// Imlay's image buffers as bearers of attachments: the buffers keep their own, in the same two modes.
#include "foundation/attachment_image_buffer.hpp"

#include <bedra/dictionary.h>
#include <imlay/encoded_image_buffer.h>
#include <imlay/pixel_buffer.h>
#include <kiv/attachment.h>

namespace {

static_assert(PVAttachmentMode{kPVAttachmentMode_ShouldNotPropagate} == kIMAttachmentMode_ShouldNotPropagate);
static_assert(PVAttachmentMode{kPVAttachmentMode_ShouldPropagate} == kIMAttachmentMode_ShouldPropagate);

IMBufferRef asBuffer(PVAttachmentBearerRef bearer) {
  return static_cast<IMBufferRef>(const_cast<void*>(bearer));
}

constexpr KivAttachmentBearerCallbacks kCallbacks{
    .version = 0,
    .setAttachment =
        [](PVAttachmentBearerRef bearer, BRStringRef key, BRTypeRef value, PVAttachmentMode mode) {
          if (value)
            IMBufferSetAttachment(asBuffer(bearer), key, value, mode);
          else
            IMBufferRemoveAttachment(asBuffer(bearer), key);
        },
    .getAttachment =
        [](PVAttachmentBearerRef bearer, BRStringRef key, PVAttachmentMode* modeOut) {
          return IMBufferGetAttachment(asBuffer(bearer), key, modeOut);
        },
    .removeAttachment = [](PVAttachmentBearerRef bearer,
                           BRStringRef key) { IMBufferRemoveAttachment(asBuffer(bearer), key); },
    .removeAllAttachments =
        [](PVAttachmentBearerRef bearer) { IMBufferRemoveAllAttachments(asBuffer(bearer)); },
    .copyDictionaryOfAttachments =
        [](BRAllocatorRef allocator, PVAttachmentBearerRef bearer, PVAttachmentMode mode) {
          return BRDictionaryCreateCopy(allocator, IMBufferGetAttachments(asBuffer(bearer), mode));
        }};

}  // namespace

namespace pv {

void registerImageBufferBearer() {
  KivRuntimeRegisterAttachmentBearerWithTypeID(&kCallbacks, IMPixelBufferGetTypeID());
  KivRuntimeRegisterAttachmentBearerWithTypeID(&kCallbacks, IMEncodedImageBufferGetTypeID());
}

}  // namespace pv
