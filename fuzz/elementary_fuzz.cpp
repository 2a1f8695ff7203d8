// The reader of elementary streams: any bytes are a stream. Samples hold what they say, and are shown in an
// order that each of them has one place in, none before it is decoded.
#include <pevrin/sample_buffer_data.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "elementary/elementary_video.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const Codec codec = data[0] & 1 ? Codec::HEVC : Codec::H264;
  br::Ref<PVBlockBuffer> stream;
  if (PVBlockBufferCreateWithMemoryBlock(nullptr, const_cast<uint8_t*>(data + 1), size - 1, kBRAllocatorNull,
                                         nullptr, 0, size - 1, 0, stream.out()) != 0)
    std::abort();
  const ElementaryVideo video(stream, codec, FrameRate{30000, 1001});
  if (video.damage()) return 0;
  std::vector<int64_t> shown;
  int64_t bytes = 0;
  for (uint64_t i = 0; i < video.sampleCount(); ++i) {
    const MovieSample sample = video.sample(i);
    br::Ref<PVSampleBuffer> buffer;
    if (video.create(i, buffer.out()) != 0) std::abort();
    const size_t length = PVBlockBufferGetDataLength(PVSampleBufferGetDataBuffer(buffer.get()));
    if (static_cast<int64_t>(length) != sample.size || sample.composition < sample.decode ||
        sample.decode != static_cast<int64_t>(i) * 1001)
      std::abort();
    bytes += sample.size;
    shown.push_back(sample.composition);
  }
  if (shown.empty() || bytes > 3 * static_cast<int64_t>(size)) std::abort();
  std::ranges::sort(shown);
  for (size_t i = 1; i < shown.size(); ++i)
    if (shown[i] - shown[i - 1] != 1001) std::abort();
  return 0;
}
