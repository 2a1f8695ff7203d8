// Sample description records: read, written in every flavour, and read again. A record that was written must
// be readable, and its description must be equal to the one that it was written from but for the remembered
// records; written again it must be the same bytes.
#pragma once

#include <pevrin/block_buffer.h>
#include <pevrin/format_description.h>
#include <pevrin/sample_description.h>
#include <bedra/ref.hpp>

#include <cstdlib>
#include <string>
#include <vector>

struct RecordKind {
  PVStatus (*read)(BRAllocatorRef, const uint8_t*, size_t, BRStringRef, PVFormatDescriptionRef*);
  PVStatus (*write)(BRAllocatorRef, PVFormatDescriptionRef, BRStringRef, PVBlockBufferRef*);
  PVStatus (*toHost)(uint8_t*, size_t);
  PVStatus (*toBig)(uint8_t*, size_t);
  bool (*equal)(PVFormatDescriptionRef, PVFormatDescriptionRef) = [](PVFormatDescriptionRef a,
                                                                     PVFormatDescriptionRef b) {
    return PVFormatDescriptionEqualIgnoringExtensionKeys(
        a, b, kPVFormatDescriptionExtension_VerbatimSampleDescription, nullptr);
  };
  bool steady = true;  // what is read again is written alike
};

inline std::string bytesOf(PVBlockBufferRef buffer) {
  std::string bytes(PVBlockBufferGetDataLength(buffer), '\0');
  if (PVBlockBufferCopyDataBytes(buffer, 0, bytes.size(), bytes.data()) != 0) std::abort();
  return bytes;
}

inline void fuzzSwaps(const RecordKind& kind, const uint8_t* data, size_t size) {
  std::vector<uint8_t> record(data, data + size);
  if (kind.toHost(record.data(), size) != 0) return;
  // what cannot be turned back is what was left alone because its colour table does not fit
  if (kind.toBig(record.data(), size) == 0 && !std::equal(record.begin(), record.end(), data)) std::abort();
}

inline int fuzzRecord(const RecordKind& kind, const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const BRStringRef flavors[] = {nullptr, kPVImageDescriptionFlavor_ISOFamily,
                                 kPVImageDescriptionFlavor_3GPFamily, kPVSoundDescriptionFlavor_TavloMovieV2};
  fuzzSwaps(kind, data + 1, size - 1);
  br::Ref<PVFormatDescription> first;
  if (kind.read(nullptr, data + 1, size - 1, flavors[data[0] % 4], first.out()) != 0) return 0;
  for (BRStringRef flavor : flavors) {
    br::Ref<PVBlockBuffer> record, again;
    br::Ref<PVFormatDescription> second;
    if (kind.write(nullptr, first.get(), flavor, record.out()) != 0) continue;
    const std::string bytes = bytesOf(record.get());
    const auto* written = reinterpret_cast<const uint8_t*>(bytes.data());
    if (kind.read(nullptr, written, bytes.size(), flavor, second.out()) != 0) std::abort();
    if (!kind.equal(first.get(), second.get())) std::abort();
    if (kind.write(nullptr, second.get(), flavor, again.out()) != 0) std::abort();
    if (kind.steady && bytesOf(again.get()) != bytes) std::abort();
  }
  return 0;
}
