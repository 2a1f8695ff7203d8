// What reading and writing sample descriptions takes, whatever their kind: flavours, the record's bytes out
// of a block buffer and into one, extension atoms, and the verbatim forms.
#ifndef PEVRIN_FORMATS_SAMPLE_DESCRIPTION_HPP
#define PEVRIN_FORMATS_SAMPLE_DESCRIPTION_HPP

#include <bedra/dictionary.h>
#include <pevrin/block_buffer.h>
#include <pevrin/format_description.h>
#include <pevrin/sample_description.h>

#include <bedra/ref.hpp>
#include <optional>

#include "formats/record_fields.hpp"
#include "runtime/error.hpp"

namespace pv::record {

enum class Flavor { kMovie, kMovieV2, kISO, k3GP };

// NULL is kMovie. False for a flavour that is not known.
bool parseFlavor(BRStringRef flavor, Flavor* out);

// ISO and 3GPP files.
inline bool isISO(Flavor flavor) { return flavor == Flavor::kISO || flavor == Flavor::k3GP; }

// A four-character code as a string of four characters, Western Roman; and the code of a string's first four
// characters, 0 when there are none.
br::Ref<const BRString> copyCodeString(BRAllocatorRef allocator, PVFourCharCode code);
std::optional<PVFourCharCode> codeOf(BRTypeRef string);

// --- Reading

// A block buffer's bytes in one piece, for as long as this lives.
class ContiguousBytes {
 public:
  // Signals and returns what goes wrong: InvalidParameter for a null buffer, else what the block buffer says.
  PVStatus open(PVBlockBufferRef buffer);
  const uint8_t* bytes() const { return bytes_; }
  size_t size() const { return size_; }

 private:
  br::Ref<PVBlockBuffer> buffer_;
  const uint8_t* bytes_ = nullptr;
  size_t size_ = 0;
};

struct ExtensionAtom {
  PVFourCharCode type;
  const uint8_t* payload;
  size_t length;  // of the payload
};

enum class AtomStep { kAtom, kEnd, kMalformed };

// The next atom of a run of atoms. kEnd when fewer than 8 bytes are left, or the size is below 8: some
// writers end their lists with a zero word. kMalformed when the atom reaches past the end.
AtomStep nextAtom(ByteReader& reader, ExtensionAtom* out);

// The dictionary that a description keeps its extension atoms in: a type that comes once has its payload as
// data, one that comes more often an array of them.
class AtomCollector {
 public:
  explicit AtomCollector(BRAllocatorRef allocator) : allocator_(allocator) {}
  // False when memory runs out.
  bool add(const ExtensionAtom& atom);
  // Nothing when there is one of its type already.
  bool addFirst(const ExtensionAtom& atom);
  // Null when nothing was added.
  BRDictionaryRef atoms() const { return BRDictionaryGetCount(atoms_.get()) ? atoms_.get() : nullptr; }

 private:
  BRAllocatorRef allocator_;
  br::Ref<BRDictionary> atoms_;
};

// --- Writing

// The extension atoms of a description, or null.
BRDictionaryRef extensionAtomsOf(PVFormatDescriptionRef description);

// Opens an atom; closeAtom, with what this returned, sets its size.
inline size_t openAtom(ByteWriter& writer, PVFourCharCode type) {
  const size_t start = writer.position();
  writer.u32(0).u32(type);
  return start;
}
inline void closeAtom(ByteWriter& writer, size_t start) {
  writer.patchU32(start, static_cast<uint32_t>(writer.position() - start));
}
void writeAtom(ByteWriter& writer, PVFourCharCode type, const void* payload, size_t length);
// Every atom of an extension-atoms dictionary whose key is a type and whose value is data, or an array of
// data; those that skip() answers true for are passed over.
using SkipAtom = bool (*)(PVFourCharCode type, BRTypeRef value);
void writeAtoms(ByteWriter& writer, BRDictionaryRef atoms, SkipAtom skip = nullptr);

// A new block buffer of length bytes of memory in one piece, not filled.
PVStatus createRecord(BRAllocatorRef allocator, size_t length, PVBlockBufferRef* recordOut,
                      uint8_t** bytesOut);

// Writes a record: write(writer) is called twice, first to count and then to write the same bytes. The
// record's size field is patched in.
template <class Write>
PVStatus writeRecord(BRAllocatorRef allocator, PVBlockBufferRef* recordOut, const Write& write) {
  ByteWriter counter(nullptr, SIZE_MAX);
  write(counter);
  const size_t length = counter.position();
  if (length > INT32_MAX) return signalError(kPVSampleDescriptionError_Unsupported);
  br::Ref<PVBlockBuffer> record;
  uint8_t* bytes;
  if (PVStatus status = createRecord(allocator, length, record.out(), &bytes)) return status;
  ByteWriter writer(bytes, length);
  write(writer);
  writer.patchU32(0, static_cast<uint32_t>(length));
  *recordOut = record.detach();
  return 0;
}

// A new block buffer with a copy of the bytes.
PVStatus writeCopy(BRAllocatorRef allocator, const uint8_t* bytes, size_t length,
                   PVBlockBufferRef* recordOut);

// A verbatim record that a description remembers, or null.
BRDataRef verbatimOf(PVFormatDescriptionRef description, BRStringRef key);

}  // namespace pv::record

#endif
