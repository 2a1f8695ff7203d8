#include "media_map.hpp"

#include <sys/mman.h>

br::Ref<PVBlockBuffer> mapMedia(int descriptor, int64_t size) {
  br::Ref<PVBlockBuffer> media;
  const auto length = static_cast<size_t>(size);
  void* bytes =
      length ? mmap(nullptr, length, PROT_READ, MAP_PRIVATE | MAP_NORESERVE, descriptor, 0) : MAP_FAILED;
  if (bytes == MAP_FAILED) return media;
  const PVBlockBufferCustomBlockSource source = {
      0, nullptr, [](void*, void* block, size_t blockLength) { munmap(block, blockLength); }, nullptr};
  if (PVBlockBufferCreateWithMemoryBlock(nullptr, bytes, length, nullptr, &source, 0, length, 0,
                                         media.out()) != kPVStatus_Success)
    munmap(bytes, length);
  return media;
}

br::Ref<PVBlockBuffer> mediaWithoutBytes(int64_t size) {
  br::Ref<PVBlockBuffer> media;
  const auto length = static_cast<size_t>(size);
  const PVBlockBufferCustomBlockSource source = {0, [](void*, size_t) -> void* { return nullptr; }, nullptr,
                                                 nullptr};
  if (size > 0)
    PVBlockBufferCreateWithMemoryBlock(nullptr, nullptr, length, nullptr, &source, 0, length, 0, media.out());
  return media;
}

void releasePages(PVBlockBufferRef media) {
  size_t length = 0;
  char* bytes = nullptr;
  if (PVBlockBufferGetDataPointer(media, 0, &length, nullptr, &bytes) == kPVStatus_Success)
    madvise(bytes, length, MADV_DONTNEED);
}
