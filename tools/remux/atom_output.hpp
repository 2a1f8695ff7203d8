// Writing atoms: the library's writer with failures thrown, and fields put together big-endian.
#pragma once

#include <kiv/atom_stream.h>
#include <kiv/atom_writer.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "failure.hpp"

// The fields of an atom, in order.
class Fields {
 public:
  Fields& u8(uint8_t value) { return put(value, 1); }
  Fields& u16(uint16_t value) { return put(value, 2); }
  Fields& u32(uint32_t value) { return put(value, 4); }
  Fields& u64(uint64_t value) { return put(value, 8); }
  Fields& zeros(size_t count) {
    bytes_.resize(bytes_.size() + count);
    return *this;
  }
  Fields& put(const void* bytes, size_t count) {
    const size_t before = bytes_.size();
    bytes_.resize(before + count);
    if (count) std::memcpy(bytes_.data() + before, bytes, count);
    return *this;
  }
  // At the place of fields that are there.
  void replace(size_t offset, uint64_t value, size_t size) {
    for (size_t i = 0; i < size; ++i) bytes_[offset + i] = static_cast<uint8_t>(value >> 8 * (size - 1 - i));
  }
  std::vector<uint8_t>& bytes() { return bytes_; }
  const std::vector<uint8_t>& bytes() const { return bytes_; }

 private:
  Fields& put(uint64_t value, size_t size) {
    bytes_.resize(bytes_.size() + size);
    replace(bytes_.size() - size, value, size);
    return *this;
  }
  std::vector<uint8_t> bytes_;
};

inline void append(KivAtomWriter& atom, const std::vector<uint8_t>& bytes) {
  check(KivAtomWriterAppendData(&atom, bytes.data(), bytes.size()), "the output cannot be written");
}
inline void append(KivAtomWriter& atom, const Fields& fields) { append(atom, fields.bytes()); }

// Writes one atom, which fill(writer) fills.
template <class Fill>
void writeAtomWith(KivAtomWriter& writer, PVFourCharCode type, Fill fill) {
  check(KivAtomWriterBeginAtom(&writer, type, false), "the output cannot be written");
  try {
    fill(writer);
  } catch (...) {
    KivAtomWriterEndAtom(&writer);
    throw;
  }
  check(KivAtomWriterEndAtom(&writer), "the output cannot be written");
}

// The same inside an atom.
template <class Fill>
void writeAtom(KivAtomWriter& parent, PVFourCharCode type, Fill fill) {
  KivAtomWriter child;
  check(KivAtomWriterInitWithParent(&parent, &child), "the output cannot be written");
  writeAtomWith(child, type, fill);
}

inline void writeAtom(KivAtomWriter& parent, PVFourCharCode type, const Fields& fields) {
  writeAtom(parent, type, [&](KivAtomWriter& atom) { append(atom, fields); });
}

// The data of the atom that a stream stands on.
std::vector<uint8_t> readAtomData(const KivAtomStream& stream);

// Throws when the atom is a 'meta' with items (ISO/IEC 14496-12 8.11.3): they may stand anywhere in the
// input, which the output has in other places.
void checkItems(const KivAtomStream& stream);

// Copies the atom that the stream stands on, header and all, into an atom.
void copyAtom(KivAtomWriter& parent, const KivAtomStream& stream);

// Calls use(child) on each atom inside the one that the stream stands on, from an offset in its data on.
template <class Use>
void forEachChild(const KivAtomStream& stream, Use use, int64_t offset = 0) {
  KivAtomStream child;
  PVStatus status = KivAtomStreamInitWithParent(&stream, offset, &child);
  for (; status == kPVStatus_Success; status = KivAtomStreamAdvanceToNextAtom(&child)) use(child);
  const bool atEnd = status == kKivAtomStreamError_NoMoreAtoms || status == kKivAtomStreamError_NotEnoughData;
  if (!atEnd) check(status, "the input's header cannot be read");
}
