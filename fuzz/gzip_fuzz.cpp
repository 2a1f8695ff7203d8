// Gzip streams: whatever the bytes are, reads agree with each other, and what is read at an offset is what is
// there.
#include <kiv/gzip_stream.h>

#include <algorithm>
#include <bedra/ref.hpp>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  br::Ref<PVBaseObject> file, stream, ending;
  if (KivByteStreamCreateForMemory(nullptr, data, size, kBRAllocatorNull, file.out()) != 0 ||
      KivByteStreamCreateForGzip(nullptr, file.get(), 0, stream.out()) != 0 ||
      KivByteStreamCreateForGzip(nullptr, file.get(), kKivGzipByteStream_EndsAtDamage, ending.out()) != 0)
    std::abort();
  int64_t readable = 0, length = 0;
  const PVStatus damage = KivGzipByteStreamVerify(stream.get(), &readable);
  if (KivByteStreamGetTotalLength(stream.get(), &length) != damage) std::abort();
  if (readable > 4 << 20) return 0;
  std::vector<uint8_t> whole(static_cast<size_t>(readable) + 1);
  size_t count = 0;
  if (KivByteStreamRead(ending.get(), 0, whole.size(), whole.data(), &count) != 0 ||
      static_cast<int64_t>(count) != readable || KivGzipByteStreamVerify(ending.get(), nullptr) != damage)
    std::abort();
  for (size_t i = 0; i < std::min<size_t>(size, 16); ++i) {
    uint8_t bytes[5];
    const size_t offset = size_t{data[i]} * 40503 % whole.size();
    const size_t there = std::min(sizeof bytes, static_cast<size_t>(readable) - offset);
    const PVStatus status =
        KivByteStreamRead(stream.get(), static_cast<int64_t>(offset), sizeof bytes, bytes, &count);
    if (there == sizeof bytes ? status != 0 : status != damage) std::abort();
    if (status == 0 && (count != there || std::memcmp(bytes, whole.data() + offset, count) != 0))
      std::abort();
  }
  return 0;
}
