#include "atom_output.hpp"

#include <bedra/ref.hpp>

namespace {

// Of what is copied or looked at in one piece: tables of samples are not.
constexpr int64_t kMostBytes = int64_t{256} << 20;

void checkSize(const KivAtomStream& stream) {
  if (stream.currentAtomDataLength > kMostBytes)
    throw RemuxFailure(
        fmt::format("an atom of {} bytes is too large to be carried over", stream.currentAtomSize));
}

}  // namespace

std::vector<uint8_t> readAtomData(const KivAtomStream& stream) {
  checkSize(stream);
  std::vector<uint8_t> bytes(static_cast<size_t>(stream.currentAtomDataLength));
  if (!bytes.empty())
    check(KivAtomStreamReadCurrentAtomData(&stream, 0, bytes.size(), bytes.data()),
          "the input cannot be read");
  return bytes;
}

void copyAtom(KivAtomWriter& parent, const KivAtomStream& stream) {
  checkSize(stream);
  br::Ref<PVBlockBuffer> atom;
  check(KivAtomStreamReadCurrentAtomAndCreateBBuf(&stream, atom.out()), "the input cannot be read");
  check(KivAtomWriterAppendBlockBufferData(&parent, atom.get()), "the output cannot be written");
}
