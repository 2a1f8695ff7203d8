// A file's bytes as one block buffer that holds none of them: they come from the disk when they are looked
// at.
#pragma once

#include <pevrin/block_buffer.h>

#include <bedra/ref.hpp>
#include <cstdint>

// Null when the system cannot map the file. The descriptor may be closed; whoever cuts the file while its
// bytes are being looked at kills the program, so copy from a file that others write.
br::Ref<PVBlockBuffer> mapMedia(int descriptor, int64_t size);

// A block buffer of that size whose bytes nobody is going to look at.
br::Ref<PVBlockBuffer> mediaWithoutBytes(int64_t size);

// Gives the memory of bytes that were looked at back to the system; they come from the disk again when they
// are looked at again.
void releasePages(PVBlockBufferRef media);
