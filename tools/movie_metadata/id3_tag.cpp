#include "id3_tag.hpp"

#include <algorithm>
#include <cstring>
#include <vector>

#include "atom_type.hpp"
#include "metadata_item.hpp"

namespace {

using Bytes = std::span<const uint8_t>;

constexpr size_t kHeaderBytes = 10;
enum TagFlag : uint8_t { kUnsynchronised = 0x80, kHasExtendedHeader = 0x40 };
// What the second byte of a frame's flags says; each version has its own.
struct FrameFlags {
  uint8_t packed, grouped, unsynchronised, hasLength;  // packed: compressed or encrypted
};
constexpr FrameFlags kFlags3 = {0xC0, 0x20, 0, 0}, kFlags4 = {0x0C, 0x40, 0x02, 0x01};
enum Encoding : uint8_t { kLatin1, kUTF16, kUTF16BE, kUTF8 };

uint32_t number(Bytes bytes, int bits) {
  uint32_t value = 0;
  for (uint8_t byte : bytes.first(4)) value = value << bits | byte;
  return value;
}

// Without the zero bytes that were put behind FF.
std::vector<uint8_t> synchronised(Bytes bytes) {
  std::vector<uint8_t> result;
  for (size_t i = 0; i < bytes.size(); ++i)
    if (i == 0 || bytes[i] != 0 || bytes[i - 1] != 0xFF) result.push_back(bytes[i]);
  return result;
}

std::optional<std::string> textOf(Bytes bytes, uint8_t encoding) {
  if (encoding == kUTF8) return utf8Of(bytes, kBRStringEncodingUTF8);
  if (encoding == kUTF16BE) return utf8Of(bytes, kBRStringEncodingUTF16BE);
  if (encoding == kUTF16) return utf16Of(bytes);
  if (encoding != kLatin1) return std::nullopt;
  std::string text;
  for (uint8_t byte : bytes) {
    if (byte >= 0x80) text += static_cast<char>(0xC0 | byte >> 6);
    text += static_cast<char>(byte >= 0x80 ? 0x80 | (byte & 0x3F) : byte);
  }
  return text;
}

// Takes text up to its terminator, or to the end, off the front.
std::optional<std::string> takeText(Bytes& bytes, uint8_t encoding) {
  const size_t unit = encoding == kUTF16 || encoding == kUTF16BE ? 2 : 1;
  size_t end = 0;
  while (end + unit <= bytes.size() &&
         !std::ranges::all_of(bytes.subspan(end, unit), [](uint8_t b) { return b == 0; }))
    end += unit;
  const bool isTerminated = end + unit <= bytes.size();
  const auto text = textOf(bytes.first(isTerminated ? end : bytes.size()), encoding);
  bytes = bytes.subspan(isTerminated ? end + unit : bytes.size());
  return text;
}

using Use = std::function<void(const ID3Frame&)>;

// A text frame may have several texts.
void useFrame(PVFourCharCode id, Bytes data, const Use& use) {
  const bool isComment = id == fourCC("COMM"), isNamed = isComment || id == fourCC("TXXX");
  constexpr size_t kLanguageBytes = 3;
  if ((!isComment && id >> 24 != 'T') || data.size() < (isComment ? 1 + kLanguageBytes : 1))
    return use({id, {}, std::nullopt, data});
  const uint8_t encoding = data[0];
  Bytes rest = data.subspan(isComment ? 1 + kLanguageBytes : 1);
  std::string name;
  if (isNamed) name = takeText(rest, encoding).value_or("");
  if (name.size() > kMostNameBytes) return use({id, {}, std::nullopt, data});
  do {
    auto text = takeText(rest, encoding);
    use({id, name, std::move(text), data});
  } while (!rest.empty() && !isComment);
}

// Takes off what the flags put before and into the data. What is compressed or encrypted is left as it is.
void useFlagged(PVFourCharCode id, uint8_t flags, const FrameFlags& meaning, Bytes data, const Use& use) {
  const size_t skipped = (flags & meaning.grouped ? 1 : 0) + (flags & meaning.hasLength ? 4 : 0);
  if ((flags & meaning.packed) || skipped > data.size()) return use({id, {}, std::nullopt, data});
  data = data.subspan(skipped);
  if (!(flags & meaning.unsynchronised)) return useFrame(id, data, use);
  const std::vector<uint8_t> own = synchronised(data);
  useFrame(id, own, use);
}

}  // namespace

bool readID3Tag(Bytes tag, const std::function<void(const ID3Frame&)>& use) {
  if (tag.size() < kHeaderBytes || std::memcmp(tag.data(), "ID3", 3) != 0) return false;
  const uint8_t version = tag[3], flags = tag[5];
  if (version != 3 && version != 4) return false;
  const uint32_t size = number(tag.subspan(6), 7);
  if (size > tag.size() - kHeaderBytes) return false;
  std::vector<uint8_t> own;
  Bytes rest = tag.subspan(kHeaderBytes, size);
  if ((flags & kUnsynchronised) && version == 3) {  // sizes count what version 4 has before this
    own = synchronised(rest);
    rest = own;
  }
  const int sizeBits = version == 4 ? 7 : 8;
  if (flags & kHasExtendedHeader) {
    if (rest.size() < 4) return false;
    const size_t length = size_t{number(rest, sizeBits)} + (version == 4 ? 0 : 4);  // with the number itself
    if (length < 4 || length > rest.size()) return false;
    rest = rest.subspan(length);
  }
  while (rest.size() >= kHeaderBytes && rest[0] != 0) {
    const uint32_t id = number(rest, 8), length = number(rest.subspan(4), sizeBits);
    const auto frameFlags = static_cast<uint8_t>(
        rest[9] | (version == 4 && flags & kUnsynchronised ? kFlags4.unsynchronised : 0));
    rest = rest.subspan(kHeaderBytes);
    if (length > rest.size()) return false;
    useFlagged(id, frameFlags, version == 3 ? kFlags3 : kFlags4, rest.first(length), use);
    rest = rest.subspan(length);
  }
  return true;
}
