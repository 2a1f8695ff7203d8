// Walks any bytes as atoms in memory, down to eight levels, and reads what each atom holds.
#include <kiv/atom_stream.h>

#include <bedra/ref.hpp>
#include <cstdlib>
#include <vector>

namespace {

constexpr size_t kLevels = 8;

void require(bool holds) {
  if (!holds) std::abort();
}

void visit(const KivAtomStream& stream, size_t length) {
  int64_t offset, size, dataLength, headerSize;
  require(KivAtomStreamGetCurrentAtomGlobalOffset(&stream, &offset, &size) == 0);
  require(KivAtomStreamGetCurrentAtomTypeAndDataLength(&stream, nullptr, &dataLength) == 0);
  require(KivAtomStreamGetCurrentAtomHeaderSize(&stream, &headerSize) == 0);
  require(offset >= 0 && size >= headerSize && headerSize >= 8 && headerSize + dataLength == size);
  require(static_cast<uint64_t>(offset) + static_cast<uint64_t>(size) <= length);
  std::vector<uint8_t> data(static_cast<size_t>(dataLength));
  const PVStatus status = KivAtomStreamReadCurrentAtomData(&stream, 0, data.size(), data.data());
  require(status == (dataLength > 0 ? 0 : kKivAtomStreamError_OutOfBounds));
  br::Ref<PVBlockBuffer> whole;
  require(KivAtomStreamReadCurrentAtomAndCreateBBuf(&stream, whole.out()) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* input, size_t length) {
  if (length == 0) return 0;
  const std::vector<uint8_t> bytes(input + 1, input + length);
  KivAtomStream levels[kLevels];
  if (KivAtomStreamInitWithMemoryBlock(bytes.data(), bytes.size(), 0, input[0], &levels[0]) != 0) return 0;
  const PVFourCharCode path[] = {levels[0].currentAtomType, 0x7472616B, 0x6D646961};
  KivAtomStream found = levels[0];
  if (KivAtomStreamPositionViaAtomPath(&found, 3, path) == 0) visit(found, bytes.size());
  for (size_t depth = 1; depth > 0;) {
    visit(levels[depth - 1], bytes.size());
    if (depth < kLevels && KivAtomStreamInitWithParent(&levels[depth - 1], 0, &levels[depth]) == 0) {
      ++depth;
      continue;
    }
    while (depth > 0 && KivAtomStreamAdvanceToNextAtom(&levels[depth - 1]) != 0) --depth;
  }
  return 0;
}
