// What all image buffers share: the attachments. Each kind is a struct derived from this one, with a class of
// its own.
#ifndef IMLAY_SRC_IMAGE_BUFFER_HPP
#define IMLAY_SRC_IMAGE_BUFFER_HPP

#include <bedra/dictionary.h>
#include <imlay/image_buffer.h>

#include <bedra/object.hpp>
#include <bedra/ref.hpp>

struct IMImageBuffer : BRObject {
  explicit IMImageBuffer(GRSize size) : encodedSize(size) {}

  GRSize encodedSize;
  br::Ref<BRDictionary> attachments[2];  // one per mode, made when first needed; a key is in at most one
};

#endif
