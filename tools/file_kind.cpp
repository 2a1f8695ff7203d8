#include "file_kind.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>
#include <utility>
#include <vector>

#include "atom_type.hpp"
#include "codec_names.hpp"

namespace {

// How far into the file a start code is looked for.
constexpr size_t kLookedAtBytes = 4096;

constexpr std::pair<std::string_view, Codec> kExtensions[] = {
    {".264", Codec::H264},  {".26l", Codec::H264},  {".avc", Codec::H264}, {".h264", Codec::H264},
    {".jsv", Codec::H264},  {".jvt", Codec::H264},  {".265", Codec::HEVC}, {".bit", Codec::HEVC},
    {".h265", Codec::HEVC}, {".hevc", Codec::HEVC}, {".hvc", Codec::HEVC},
};

std::optional<Codec> codecOfName(std::string fileName) {
  if (fileName.ends_with(".gz")) fileName.resize(fileName.size() - 3);
  const size_t dot = fileName.find_last_of("./");
  if (dot == std::string::npos || fileName[dot] == '/') return std::nullopt;
  std::string extension = fileName.substr(dot);
  for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  const auto found = std::ranges::find(kExtensions, extension, &std::pair<std::string_view, Codec>::first);
  if (found == std::end(kExtensions)) return std::nullopt;
  return found->second;
}

uint64_t number(std::span<const uint8_t> bytes, size_t at, size_t length) {
  uint64_t value = 0;
  for (size_t i = at; i < at + length; ++i) value = value << 8 | bytes[i];
  return value;
}

// An atom of a type that movies begin with, however long; or of any type that can be spelt, when the file has
// room for it. No start code is taken for one: the byte behind it is the first of the type, or the last of
// its size.
bool beginsWithAtom(std::span<const uint8_t> beginning, int64_t fileSize) {
  if (beginning.size() < 8) return false;
  const auto type = static_cast<PVFourCharCode>(number(beginning, 4, 4));
  if (beginsMovies(type)) return true;
  uint64_t size = number(beginning, 0, 4);
  if (size == 1) size = beginning.size() < 16 ? 0 : number(beginning, 8, 8);
  const auto spelt = [](uint8_t c) { return (c >= 0x20 && c < 0x7F) || c == 0xA9; };
  return size >= 8 && size <= static_cast<uint64_t>(fileSize) &&
         std::ranges::all_of(beginning.subspan(4, 4), spelt);
}

bool beginsWithStartCode(std::span<const uint8_t> beginning) {
  const auto first = std::ranges::find_if(beginning, [](uint8_t byte) { return byte != 0; });
  return first - beginning.begin() >= 2 && first != beginning.end() && *first == 1;
}

// Tries bytes as a sequence parameter set. Much text that begins with a 'g' can be read as one of H.264; it
// does not have a profile and a level that there are. Picture parameter sets are not tried: most bytes could
// be one.
class Trial final : public ParameterSetVisitor {
 public:
  static bool isSequenceSet(Codec codec, std::span<const uint8_t> bytes) {
    if (setKindOf(codec, bytes) != SetKind::SPS) return false;
    Trial trial;
    visitParameterSet(codec, bytes, 0, "", trial);
    return trial.plausible_ && trial.sound_;
  }

 private:
  bool parameterSet(ParameterSet set) override {
    const SequenceFacts& facts = set.sequence;
    const bool reservedBitsAreZero = (facts.constraintFlags & 3) == 0;
    const bool hasLevel = facts.level >= 9 && facts.level <= 62;
    plausible_ = set.codec == Codec::HEVC ||
                 (reservedBitsAreZero && hasLevel && isKnownProfile(set.codec, facts.profile));
    return false;
  }
  void damaged(Damage) override { sound_ = false; }
  bool plausible_ = false, sound_ = true;
};

std::optional<Codec> codecOfSingleSet(std::span<const uint8_t> bytes) {
  for (const Codec codec : {Codec::H264, Codec::HEVC})
    if (Trial::isSequenceSet(codec, bytes)) return codec;
  // No other file begins like these: their second byte is that of the base layer's lowest sub-layer.
  if (bytes.size() > 2 && setKindOf(Codec::HEVC, bytes) && bytes[1] == 1) return Codec::HEVC;
  return std::nullopt;
}

}  // namespace

FileKind fileKindOf(KivByteStreamRef file, int64_t fileSize, const std::string& fileName) {
  std::vector<uint8_t> bytes(kLargestSet);
  size_t count = 0;
  if (KivByteStreamRead(file, 0, bytes.size(), bytes.data(), &count) != kPVStatus_Success) count = 0;
  const auto all = std::span<const uint8_t>(bytes).first(count);
  const auto beginning = all.first(std::min(count, kLookedAtBytes));

  const std::optional<Codec> named = codecOfName(fileName);
  if (beginsWithAtom(beginning, fileSize)) return {true, std::nullopt};
  if (beginsWithStartCode(beginning)) return {false, named};
  if (static_cast<size_t>(fileSize) == count) {
    if (const auto codec = codecOfSingleSet(all)) return {false, codec};
  }
  return {!named, named};
}
