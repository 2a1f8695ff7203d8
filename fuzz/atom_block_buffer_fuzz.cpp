// Any bytes, cut into blocks of any sizes, read as atoms like the same bytes in one piece.
#include <kiv/atom_stream.h>

#include <bedra/ref.hpp>
#include <cstdlib>
#include <vector>

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

// The first bytes of the input say how long the blocks are.
br::Ref<PVBlockBuffer> scatter(const uint8_t lengths[4], std::vector<uint8_t>& bytes) {
  br::Ref<PVBlockBuffer> buffer;
  require(PVBlockBufferCreateEmpty(nullptr, lengths[0] % 4, 0, buffer.out()) == 0);
  for (size_t offset = 0, i = 0, length; offset < bytes.size(); offset += length, ++i) {
    length = std::min<size_t>(1 + lengths[i % 4] % 32, bytes.size() - offset);
    require(PVBlockBufferAppendMemoryBlock(buffer.get(), bytes.data() + offset, length, kBRAllocatorNull,
                                           nullptr, 0, length, 0) == 0);
  }
  return buffer;
}

void compareData(const KivAtomStream& memory, const KivAtomStream& blocks) {
  std::vector<uint8_t> wanted(static_cast<size_t>(memory.currentAtomDataLength)), got(wanted.size());
  const PVStatus status = KivAtomStreamReadCurrentAtomData(&memory, 0, wanted.size(), wanted.data());
  require(KivAtomStreamReadCurrentAtomData(&blocks, 0, got.size(), got.data()) == status && got == wanted);
  br::Ref<PVBlockBuffer> run;
  require(KivAtomStreamReadCurrentAtomDataAndCreateBBuf(&blocks, 0, 0, run.out()) == status);
  if (status == 0) require(PVBlockBufferIsRangeContiguous(run.get(), 0, wanted.size()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* input, size_t length) {
  if (length < 6) return 0;
  std::vector<uint8_t> bytes(input + 5, input + length);
  const br::Ref<PVBlockBuffer> buffer = scatter(input + 1, bytes);
  KivAtomStream memory, blocks;
  PVStatus status = KivAtomStreamInitWithMemoryBlock(bytes.data(), bytes.size(), 0, input[0], &memory);
  require(KivAtomStreamInitWithBBuf(buffer.get(), 0, input[0], &blocks) == status);
  while (status == 0) {
    require(memory.currentAtomDataOffset == blocks.currentAtomDataOffset);
    require(memory.currentAtomSize == blocks.currentAtomSize &&
            memory.currentAtomType == blocks.currentAtomType);
    compareData(memory, blocks);
    // down where there are children, else on along the level
    status = KivAtomStreamInitWithParent(&memory, 0, &memory);
    require(KivAtomStreamInitWithParent(&blocks, 0, &blocks) == status);
    if (status == 0) continue;
    status = KivAtomStreamAdvanceToNextAtom(&memory);
    require(KivAtomStreamAdvanceToNextAtom(&blocks) == status);
  }
  return 0;
}
