#include "atom_output.hpp"

#include <algorithm>
#include <array>
#include <bedra/ref.hpp>

#include "atom_type.hpp"
#include "movie/big_endian.hpp"

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

void checkItems(const KivAtomStream& stream) {
  if (stream.currentAtomType != fourCC("meta") || stream.currentAtomDataLength < 8) return;
  std::array<uint8_t, 4> type{};
  check(KivAtomStreamReadCurrentAtomData(&stream, 4, type.size(), type.data()), "the input cannot be read");
  const bool quickTime = bigEndian32(type.data()) == fourCC("hdlr");  // without version and flags
  forEachChild(
      stream,
      [](const KivAtomStream& child) {
        if (child.currentAtomType != fourCC("iloc")) return;
        const std::vector<uint8_t> places = readAtomData(child);
        const size_t end = !places.empty() && places[0] >= 2 ? 10 : 8;  // of the number of items
        if (places.size() >= end &&
            std::any_of(places.begin() + 6, places.begin() + static_cast<ptrdiff_t>(end),
                        [](uint8_t byte) { return byte != 0; }))
          throw RemuxFailure("the movie has items in a 'meta', whose places in the file would be wrong");
      },
      quickTime ? 0 : 4);
}

void copyAtom(KivAtomWriter& parent, const KivAtomStream& stream) {
  checkSize(stream);
  checkItems(stream);
  br::Ref<PVBlockBuffer> atom;
  check(KivAtomStreamReadCurrentAtomAndCreateBBuf(&stream, atom.out()), "the input cannot be read");
  check(KivAtomWriterAppendBlockBufferData(&parent, atom.get()), "the output cannot be written");
}
