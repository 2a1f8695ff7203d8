// respell SOURCE COPY: copies a movie and puts the library's own spelling in the place of every sample entry.
//
// Each entry becomes a format description, loses the record that the description remembers, and is written
// anew. The sizes of the atoms around it are mended, and the chunk offsets when the 'moov' stands before the
// media. What is written must read back as an equal description. Meant for sound movies made by others;
// anything unexpected ends the program with status 1. An entry of a kind that the library does not write is
// copied.
#include <bedra/array.h>
#include <bedra/dictionary.h>
#include <pevrin/audio_format_description.h>
#include <pevrin/block_buffer.h>
#include <pevrin/closed_caption_description.h>
#include <pevrin/image_description.h>
#include <pevrin/sound_description.h>
#include <pevrin/text_description.h>
#include <pevrin/timecode_format_description.h>

#include <algorithm>
#include <bedra/ref.hpp>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;
using View = std::span<const uint8_t>;
using Description = br::Ref<PVFormatDescription>;

void require(bool condition, const std::string& what) {
  if (condition) return;
  std::fprintf(stderr, "respell: %s\n", what.c_str());
  std::exit(1);
}

uint64_t number(View bytes, size_t at, size_t length) {
  require(at + length <= bytes.size(), "an atom is too short");
  uint64_t value = 0;
  for (size_t i = 0; i < length; ++i) value = value << 8 | bytes[at + i];
  return value;
}

void patch(Bytes& bytes, size_t at, size_t length, uint64_t value) {
  for (size_t i = length; i-- > 0; value >>= 8) bytes[at + i] = static_cast<uint8_t>(value);
}

std::string typeAt(View bytes, size_t at) {
  require(at + 4 <= bytes.size(), "an atom is too short");
  return {reinterpret_cast<const char*>(bytes.data()) + at, 4};
}

struct Atom {
  std::string type;
  size_t start, size;
};

std::vector<Atom> atomsOf(View bytes, size_t at) {
  std::vector<Atom> atoms;
  while (at + 8 <= bytes.size()) {
    uint64_t size = number(bytes, at, 4);
    if (size == 1) size = number(bytes, at + 8, 8);
    if (size == 0) size = bytes.size() - at;
    require(size >= 8 && size <= bytes.size() - at, "an atom's size is wrong");
    atoms.push_back({typeAt(bytes, at + 4), at, static_cast<size_t>(size)});
    at += static_cast<size_t>(size);
  }
  return atoms;
}

struct Kind {
  std::string_view handlers;
  decltype(&PVTextFormatDescriptionCreateFromBigEndianTextDescriptionData) read;
  decltype(&PVTextFormatDescriptionCopyAsBigEndianTextDescriptionBlockBuffer) write;
};
constexpr Kind kKinds[] = {
    {"vide", PVVideoFormatDescriptionCreateFromBigEndianImageDescriptionData,
     PVVideoFormatDescriptionCopyAsBigEndianImageDescriptionBlockBuffer},
    {"soun", PVAudioFormatDescriptionCreateFromBigEndianSoundDescriptionData,
     PVAudioFormatDescriptionCopyAsBigEndianSoundDescriptionBlockBuffer},
    {"text sbtl subt", PVTextFormatDescriptionCreateFromBigEndianTextDescriptionData,
     PVTextFormatDescriptionCopyAsBigEndianTextDescriptionBlockBuffer},
    {"clcp", PVClosedCaptionFormatDescriptionCreateFromBigEndianClosedCaptionDescriptionData,
     PVClosedCaptionFormatDescriptionCopyAsBigEndianClosedCaptionDescriptionBlockBuffer},
    {"tmcd", PVTimeCodeFormatDescriptionCreateFromBigEndianTimeCodeDescriptionData,
     PVTimeCodeFormatDescriptionCopyAsBigEndianTimeCodeDescriptionBlockBuffer},
};

// The same description made from its parts, without the record that it remembers.
Description forgetRecord(PVFormatDescriptionRef from) {
  auto extensions = br::Ref<BRDictionary>::adopt(
      BRDictionaryCreateMutableCopy(nullptr, PVFormatDescriptionGetExtensions(from)));
  BRDictionaryRemoveValue(extensions.get(), kPVFormatDescriptionExtension_VerbatimSampleDescription);
  BRDictionaryRemoveValue(extensions.get(), kPVFormatDescriptionExtension_VerbatimISOSampleEntry);
  const PVMediaType type = PVFormatDescriptionGetMediaType(from);
  const PVFourCharCode subType = PVFormatDescriptionGetMediaSubType(from);
  Description to;
  PVStatus status;
  if (type == kPVMediaType_Video) {
    const auto [width, height] = PVVideoFormatDescriptionGetDimensions(from);
    status = PVVideoFormatDescriptionCreate(nullptr, subType, width, height, extensions.get(), to.out());
  } else if (type == kPVMediaType_Audio) {
    size_t layoutSize = 0, cookieSize = 0;
    const AudioChannelLayout* layout = PVAudioFormatDescriptionGetChannelLayout(from, &layoutSize);
    const void* cookie = PVAudioFormatDescriptionGetMagicCookie(from, &cookieSize);
    status =
        PVAudioFormatDescriptionCreate(nullptr, PVAudioFormatDescriptionGetStreamBasicDescription(from),
                                       layoutSize, layout, cookieSize, cookie, extensions.get(), to.out());
  } else if (type == kPVMediaType_TimeCode) {
    status = PVTimeCodeFormatDescriptionCreate(
        nullptr, subType, PVTimeCodeFormatDescriptionGetFrameDuration(from),
        PVTimeCodeFormatDescriptionGetFrameQuanta(from), PVTimeCodeFormatDescriptionGetTimeCodeFlags(from),
        extensions.get(), to.out());
  } else {
    status = PVFormatDescriptionCreate(nullptr, type, subType, extensions.get(), to.out());
  }
  require(status == 0, "a description cannot be made from its parts, status " + std::to_string(status));
  return to;
}

class Respelling {
 public:
  explicit Respelling(View movie) : movie_(movie) {}

  Bytes run() {
    Bytes copy;
    for (const Atom& atom : atomsOf(movie_, 0)) {
      const View bytes = movie_.subspan(atom.start, atom.size);
      if (atom.type == "ftyp") setFlavor(typeAt(bytes, 8));
      const size_t start = copy.size();
      if (atom.type == "moov") {
        const Bytes moov = container(bytes);
        copy.insert(copy.end(), moov.begin(), moov.end());
        moveChunks(copy, start, atom.start + atom.size, static_cast<int64_t>(moov.size() - atom.size));
      } else {
        copy.insert(copy.end(), bytes.begin(), bytes.end());
      }
    }
    return copy;
  }

 private:
  void setFlavor(const std::string& brand) {
    if (brand.starts_with("3g"))
      flavor_ = kPVImageDescriptionFlavor_3GPFamily;
    else if (brand != "qt  ")
      flavor_ = kPVImageDescriptionFlavor_ISOFamily;
  }

  // 'moov', 'trak', 'mdia', 'minf' or 'stbl'
  Bytes container(View bytes) {
    Bytes copy(bytes.begin(), bytes.begin() + 8);
    for (const Atom& atom : atomsOf(bytes, 8)) {
      const View inside = bytes.subspan(atom.start, atom.size);
      if (atom.type == "hdlr" && typeAt(bytes, 4) == "mdia") handler_ = typeAt(inside, 16);
      const bool holds =
          atom.type == "trak" || atom.type == "mdia" || atom.type == "minf" || atom.type == "stbl";
      const Bytes child = holds                 ? container(inside)
                          : atom.type == "stsd" ? entries(inside)
                                                : Bytes(inside.begin(), inside.end());
      copy.insert(copy.end(), child.begin(), child.end());
    }
    patch(copy, 0, 4, copy.size());
    return copy;
  }

  Bytes entries(View bytes) {
    Bytes copy(bytes.begin(), bytes.begin() + 16);
    for (const Atom& atom : atomsOf(bytes, 16)) {
      const Bytes entry = respell(bytes.subspan(atom.start, atom.size));
      copy.insert(copy.end(), entry.begin(), entry.end());
    }
    patch(copy, 0, 4, copy.size());
    return copy;
  }

  Bytes respell(View entry) {
    const auto kind = std::ranges::find_if(
        kKinds, [&](const Kind& one) { return one.handlers.find(handler_) != std::string_view::npos; });
    if (kind == std::end(kKinds)) return {entry.begin(), entry.end()};
    Description read, again;
    PVStatus status = kind->read(nullptr, entry.data(), entry.size(), flavor_, read.out());
    require(status == 0, "an entry cannot be read, status " + std::to_string(status));
    const Description bare = forgetRecord(read.get());
    br::Ref<PVBlockBuffer> record;
    status = kind->write(nullptr, bare.get(), flavor_, record.out());
    require(status == 0, "an entry cannot be written, status " + std::to_string(status));
    Bytes copy(PVBlockBufferGetDataLength(record.get()));
    require(PVBlockBufferCopyDataBytes(record.get(), 0, copy.size(), copy.data()) == 0, "no bytes");
    std::copy_n(entry.begin() + 14, 2, copy.begin() + 14);  // which data reference: the file's own business
    status = kind->read(nullptr, copy.data(), copy.size(), flavor_, again.out());
    require(status == 0, "what was written cannot be read, status " + std::to_string(status));
    br::Ref<BRArray> none = br::Ref<BRArray>::adopt(BRArrayCreateMutable(nullptr, 0, &kBRTypeArrayCallBacks));
    require(PVFormatDescriptionEqualIgnoringExtensionKeys(read.get(), again.get(), none.get(), nullptr),
            "the description of '" + typeAt(entry, 4) + "' has changed");
    return copy;
  }

  // Chunks that lie behind the 'moov' have moved with what follows it.
  static void moveChunks(Bytes& copy, size_t at, size_t oldEnd, int64_t distance) {
    const size_t end = at + number(copy, at, 4);
    for (at += 8; at + 8 <= end;) {
      const std::string type = typeAt(copy, at + 4);
      const size_t size = number(copy, at, 4), width = type == "stco" ? 4 : 8;
      if (type == "stco" || type == "co64") {
        for (size_t i = 0; i < number(copy, at + 12, 4); ++i) {
          const size_t field = at + 16 + i * width;
          const uint64_t chunk = number(copy, field, width);
          if (chunk >= oldEnd) patch(copy, field, width, chunk + static_cast<uint64_t>(distance));
        }
      }
      const bool holds = type == "trak" || type == "mdia" || type == "minf" || type == "stbl";
      at += holds ? 8 : size;
    }
  }

  View movie_;
  BRStringRef flavor_ = kPVImageDescriptionFlavor_TavloMovie;
  std::string handler_;
};

}  // namespace

int main(int argc, char** argv) {
  require(argc == 3, "give a movie and the name of its copy");
  std::ifstream in(argv[1], std::ios::binary);
  require(in.good(), "cannot open " + std::string(argv[1]));
  const Bytes movie((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  const Bytes copy = Respelling(movie).run();
  std::ofstream out(argv[2], std::ios::binary);
  out.write(reinterpret_cast<const char*>(copy.data()), static_cast<std::streamsize>(copy.size()));
  out.close();
  require(out.good(), "cannot write " + std::string(argv[2]));
  return 0;
}
