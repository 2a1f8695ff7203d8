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
  if (encoding == kUTF16) return bytes.empty() ? std::optional(std::string()) : utf8OrMarked(bytes);
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

ID3Frame frameOf(PVFourCharCode id, Bytes data) {
  ID3Frame frame{id, {}, std::nullopt, data};
  const bool isComment = id == fourCC("COMM"), isNamed = isComment || id == fourCC("TXXX");
  if ((!isComment && id >> 24 != 'T') || data.empty()) return frame;
  const uint8_t encoding = data[0];
  Bytes rest = data.subspan(1);
  constexpr size_t kLanguageBytes = 3;
  if (isComment && rest.size() < kLanguageBytes) return frame;
  if (isComment) rest = rest.subspan(kLanguageBytes);
  if (isNamed) frame.name = takeText(rest, encoding).value_or("");
  frame.text = takeText(rest, encoding);
  return frame;
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
  if (flags & kUnsynchronised) {
    own = synchronised(rest);
    rest = own;
  }
  const int sizeBits = version == 4 ? 7 : 8;
  if (flags & kHasExtendedHeader) {
    if (rest.size() < 4) return false;
    const size_t length = number(rest, sizeBits) + (version == 4 ? 0u : 4u);
    if (length > rest.size()) return false;
    rest = rest.subspan(length);
  }
  while (rest.size() >= kHeaderBytes && rest[0] != 0) {
    const uint32_t id = number(rest, 8), length = number(rest.subspan(4), sizeBits);
    rest = rest.subspan(kHeaderBytes);
    if (length > rest.size()) return false;
    use(frameOf(id, rest.first(length)));
    rest = rest.subspan(length);
  }
  return true;
}
