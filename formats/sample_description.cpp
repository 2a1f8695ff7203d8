#include "formats/sample_description.hpp"

#include <bedra/array.h>
#include <bedra/data.h>
#include <bedra/string.h>

#include <bedra/literal.hpp>

using namespace br::literals;

extern "C" {
constinit const BRStringRef kPVImageDescriptionFlavor_ISOFamily = "ISOFamily"_br;
constinit const BRStringRef kPVSoundDescriptionFlavor_ISOFamily = "ISOFamily"_br;
constinit const BRStringRef kPVImageDescriptionFlavor_3GPFamily = "3GPFamily"_br;
constinit const BRStringRef kPVSoundDescriptionFlavor_3GPFamily = "3GPFamily"_br;
constinit const BRStringRef kPVImageDescriptionFlavor_TavloMovie = "TavloMovie"_br;
constinit const BRStringRef kPVSoundDescriptionFlavor_TavloMovie = "TavloMovie"_br;
constinit const BRStringRef kPVSoundDescriptionFlavor_TavloMovieV2 = "TavloMovieV2"_br;
}

namespace pv::record {

bool parseFlavor(BRStringRef flavor, Flavor* out) {
  struct Name {
    BRStringRef text;
    Flavor flavor;
  };
  static constexpr Name kNames[] = {{"TavloMovie"_br, Flavor::kMovie},
                                    {"TavloMovieV2"_br, Flavor::kMovieV2},
                                    {"ISOFamily"_br, Flavor::kISO},
                                    {"3GPFamily"_br, Flavor::k3GP}};
  *out = Flavor::kMovie;
  if (!flavor) return true;
  for (const Name& name : kNames) {
    *out = name.flavor;
    if (BREqual(name.text, flavor)) return true;
  }
  return false;
}

br::Ref<const BRString> copyCodeString(BRAllocatorRef allocator, PVFourCharCode code) {
  const PVFourCharCode bytes = bigEndian(code);
  return br::Ref<const BRString>::adopt(
      BRStringCreateWithBytes(allocator, &bytes, sizeof bytes, kBRStringEncodingWesternRoman));
}

std::optional<PVFourCharCode> codeOf(BRTypeRef string) {
  char text[64];  // a longer string is no code
  if (!string || BRGetTypeID(string) != BRStringGetTypeID()) return std::nullopt;
  auto* code = static_cast<BRStringRef>(string);
  if (BRStringGetLengthUTF16(code) < 4) return std::nullopt;
  if (!BRStringGetCString(code, text, sizeof text, kBRStringEncodingWesternRoman)) return std::nullopt;
  return loadBigEndian<uint32_t>(text);
}

PVStatus ContiguousBytes::open(PVBlockBufferRef buffer) {
  if (!buffer) return signalError(kPVSampleDescriptionError_InvalidParameter);
  size_t lengthAtStart = 0;
  char* pointer = nullptr;
  buffer_ = br::Ref<PVBlockBuffer>::retain(buffer);
  PVStatus status = PVBlockBufferGetDataPointer(buffer, 0, &lengthAtStart, &size_, &pointer);
  if (status == 0 && lengthAtStart < size_) {
    // the copy's memory is its own: a reference to the rest of the buffer would do no good
    status = PVBlockBufferCreateContiguous(BRGetAllocator(buffer), buffer, BRGetAllocator(buffer), nullptr, 0,
                                           size_, kPVBlockBufferAlwaysCopyDataFlag, buffer_.out());
    if (status == 0) status = PVBlockBufferGetDataPointer(buffer_.get(), 0, nullptr, nullptr, &pointer);
  }
  bytes_ = reinterpret_cast<const uint8_t*>(pointer);
  return status;
}

AtomStep nextAtom(ByteReader& reader, ExtensionAtom* out) {
  if (reader.remaining() < 8) return AtomStep::kEnd;
  const uint32_t size = reader.u32();
  out->type = reader.u32();
  if (size < 8) return AtomStep::kEnd;
  out->length = size - 8;
  out->payload = reader.take(out->length);
  return reader.ok() ? AtomStep::kAtom : AtomStep::kMalformed;
}

bool AtomCollector::add(const ExtensionAtom& atom) {
  if (!atoms_)
    atoms_ = br::Ref<BRDictionary>::adopt(BRDictionaryCreateMutable(
        allocator_, 0, &kBRCopyStringDictionaryKeyCallBacks, &kBRTypeDictionaryValueCallBacks));
  const auto key = copyCodeString(allocator_, atom.type);
  const auto data = br::Ref<const BRData>::adopt(BRDataCreate(allocator_, atom.payload, atom.length));
  if (!atoms_ || !key || !data) return false;
  BRTypeRef earlier = BRDictionaryGetValue(atoms_.get(), key.get());
  if (!earlier) return BRDictionaryAddValue(atoms_.get(), key.get(), data.get());
  if (BRGetTypeID(earlier) == BRArrayGetTypeID()) {
    auto* all = static_cast<BRMutableArrayRef>(const_cast<void*>(earlier));
    return BRArrayAppendValue(all, data.get());
  }
  auto both = br::Ref<BRArray>::adopt(BRArrayCreateMutable(allocator_, 2, &kBRTypeArrayCallBacks));
  return both && BRArrayAppendValue(both.get(), earlier) && BRArrayAppendValue(both.get(), data.get()) &&
         BRDictionarySetValue(atoms_.get(), key.get(), both.get());
}

bool AtomCollector::addFirst(const ExtensionAtom& atom) {
  const auto key = copyCodeString(allocator_, atom.type);
  return key && (BRDictionaryContainsKey(atoms_.get(), key.get()) || add(atom));
}

BRDictionaryRef extensionAtomsOf(PVFormatDescriptionRef description) {
  BRTypeRef atoms = PVFormatDescriptionGetExtension(
      description, kPVFormatDescriptionExtension_SampleDescriptionExtensionAtoms);
  return atoms && BRGetTypeID(atoms) == BRDictionaryGetTypeID() ? static_cast<BRDictionaryRef>(atoms)
                                                                : nullptr;
}

void writeAtom(ByteWriter& writer, PVFourCharCode type, const void* payload, size_t length) {
  const size_t start = openAtom(writer, type);
  writer.bytes(payload, length);
  closeAtom(writer, start);
}

void writeAtoms(ByteWriter& writer, BRDictionaryRef atoms, SkipAtom skip) {
  struct Context {
    ByteWriter& writer;
    SkipAtom skip;
  } context{writer, skip};
  const auto writeEach = [](const void* key, const void* value, void* info) {
    const auto& to = *static_cast<Context*>(info);
    const auto type = codeOf(key);
    if (!type || (to.skip && to.skip(*type, value))) return;
    const auto writeOne = [&](BRTypeRef payload) {
      if (!payload || BRGetTypeID(payload) != BRDataGetTypeID()) return;
      auto* data = static_cast<BRDataRef>(payload);
      writeAtom(to.writer, *type, BRDataGetBytePtr(data), BRDataGetLength(data));
    };
    if (BRGetTypeID(value) != BRArrayGetTypeID()) return writeOne(value);
    auto* array = static_cast<BRArrayRef>(value);
    for (size_t i = 0; i < BRArrayGetCount(array); ++i) writeOne(BRArrayGetValueAtIndex(array, i));
  };
  if (atoms) BRDictionaryApply(atoms, writeEach, &context);
}

PVStatus createRecord(BRAllocatorRef allocator, size_t length, PVBlockBufferRef* recordOut,
                      uint8_t** bytesOut) {
  char* pointer = nullptr;
  PVStatus status = PVBlockBufferCreateWithMemoryBlock(allocator, nullptr, length, allocator, nullptr, 0,
                                                       length, kPVBlockBufferAssureMemoryNowFlag, recordOut);
  if (status == 0) status = PVBlockBufferGetDataPointer(*recordOut, 0, nullptr, nullptr, &pointer);
  *bytesOut = reinterpret_cast<uint8_t*>(pointer);
  return status;
}

PVStatus writeCopy(BRAllocatorRef allocator, const uint8_t* bytes, size_t length,
                   PVBlockBufferRef* recordOut) {
  br::Ref<PVBlockBuffer> record;
  uint8_t* to;
  if (PVStatus status = createRecord(allocator, length, record.out(), &to)) return status;
  std::memcpy(to, bytes, length);
  *recordOut = record.detach();
  return 0;
}

BRDataRef verbatimOf(PVFormatDescriptionRef description, BRStringRef key) {
  BRTypeRef record = PVFormatDescriptionGetExtension(description, key);
  return record && BRGetTypeID(record) == BRDataGetTypeID() ? static_cast<BRDataRef>(record) : nullptr;
}

}  // namespace pv::record
