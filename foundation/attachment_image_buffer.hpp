// The bridge that makes Imlay's image buffers bearers of attachments.
#ifndef PEVRIN_FOUNDATION_ATTACHMENT_IMAGE_BUFFER_HPP
#define PEVRIN_FOUNDATION_ATTACHMENT_IMAGE_BUFFER_HPP

namespace pv {

// Registers both kinds; to be called once.
void registerImageBufferBearer();

}  // namespace pv

#endif
