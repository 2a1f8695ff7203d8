// Strings: storage, copies, appending and comparison.
//
// Representation: see bedra/literal.hpp for the immutable string. A mutable one has a ByteBlock behind the
// struct whose bytes come from the string's own allocator; the block is null until the first byte arrives,
// and holds lengthBytes bytes and a NUL from then on. The text of every string is valid UTF-8: it is checked
// where it comes in. The cached hash is 0 until asked for, and goes back to 0 with every change.
#include "src/string.hpp"

#include <bedra/ref.hpp>

#include <atomic>

#include "src/internal.hpp"
#include "src/text.hpp"

namespace {

char* inlineText(const BRString* string) {
  return const_cast<char*>(reinterpret_cast<const char*>(string)) + br::kStringTextOffset;
}

br::ByteBlock& blockOf(const BRString* string) {
  return *reinterpret_cast<br::ByteBlock*>(const_cast<BRString*>(string + 1));
}

// The class's operations; never constructed.
struct StringClass : BRString {
  ~StringClass() {
    if (isMutable()) BRAllocatorDeallocate(BRGetAllocator(this), blockOf(this).bytes);
  }
  bool equals(const StringClass& other) const { return br::textOf(this) == br::textOf(&other); }
  BRHashCode hash() const {
    auto cached = std::atomic_ref(const_cast<uint32_t&>(cachedHash));
    uint32_t hash = cached.load(std::memory_order_relaxed);
    if (hash == 0) {
      const std::string_view text = br::textOf(this);
      hash = br::hashStringBytes(text.data(), text.size());
      cached.store(hash, std::memory_order_relaxed);
    }
    return hash;
  }
  BRStringRef copyDescription() const { return BRStringCreateCopy(BRGetAllocator(this), this); }
};

bool isMutableString(BRMutableStringRef string) { return string && string->isMutable(); }

// Room for that many more bytes at the end of a mutable string, and a NUL behind them; null when memory runs
// out.
char* reserveAtEnd(BRMutableStringRef string, size_t moreBytes) {
  const size_t length = string->lengthBytes;
  if (moreBytes > SIZE_MAX - length - 1) return nullptr;
  br::ByteBlock& block = blockOf(string);
  const size_t neededBytes = length + moreBytes + 1;
  if (neededBytes > block.capacityBytes && !br::growBlock(block, BRGetAllocator(string), length, neededBytes))
    return nullptr;
  return block.bytes + length;
}

void commitAtEnd(BRMutableStringRef string, size_t writtenBytes) {
  if (writtenBytes == 0) return;
  string->lengthBytes += writtenBytes;
  blockOf(string).bytes[string->lengthBytes] = '\0';
  std::atomic_ref(string->cachedHash).store(0, std::memory_order_relaxed);
}

// Valid UTF-8, possibly lying in the string's own block, which may move.
bool appendText(BRMutableStringRef string, std::string_view text) {
  if (text.empty()) return true;
  const uintptr_t own = reinterpret_cast<uintptr_t>(blockOf(string).bytes);
  const size_t offset = reinterpret_cast<uintptr_t>(text.data()) - own;
  const bool isOwn = own && offset < string->lengthBytes;
  char* room = reserveAtEnd(string, text.size());
  if (!room) return false;
  std::memmove(room, isOwn ? blockOf(string).bytes + offset : text.data(), text.size());
  commitAtEnd(string, text.size());
  return true;
}

// The length of NUL-terminated text; UTF-16 ends with a NUL of two bytes.
size_t cStringLength(const char* text, BRStringEncoding encoding) {
  const bool isWide = encoding >= kBRStringEncodingUTF16 && encoding <= kBRStringEncodingUTF16LE;
  if (!isWide) return std::strlen(text);
  size_t length = 0;
  while (text[length] || text[length + 1]) length += 2;
  return length;
}

// Text formatted into scratch memory, made valid UTF-8, is handed to the consumer.
template <class Result, class Consumer>
Result withFormattedText(BRAllocatorRef allocator, const char* format, va_list arguments, Consumer consume) {
  br::TextBuffer formatted(allocator);
  if (!format || !br::appendFormat(formatted, format, arguments)) return Result{};
  if (br::isValidUTF8(formatted.text())) return consume(formatted.text());
  br::TextBuffer repaired(allocator);
  br::appendRepaired(repaired, formatted.text());
  return repaired.failed() ? Result{} : consume(repaired.text());
}

}  // namespace

constinit const BRRuntimeClass br::stringClass = br::makeClass<StringClass>();

std::string_view br::textOf(BRStringRef string) {
  if (!string) return {"", 0};
  if (!string->isMutable()) return {inlineText(string), string->lengthBytes};
  const char* bytes = blockOf(string).bytes;
  return {bytes ? bytes : "", string->lengthBytes};
}

BRString* br::createStringToFill(BRAllocatorRef allocator, size_t lengthBytes, char** text) {
  constexpr size_t kRoomInStruct = sizeof(BRString) - kStringTextOffset;
  if (lengthBytes >= SIZE_MAX - sizeof(BRString)) return nullptr;
  const size_t extraBytes = lengthBytes < kRoomInStruct ? 0 : lengthBytes + 1 - kRoomInStruct;
  BRString* string = createUnfilled<BRString>(allocator, extraBytes, lengthBytes);
  if (!string) return nullptr;
  *text = inlineText(string);
  (*text)[lengthBytes] = '\0';
  return string;
}

BRString* br::createStringWithText(BRAllocatorRef allocator, std::string_view text) {
  char* room;
  BRString* string = createStringToFill(allocator, text.size(), &room);
  if (string && !text.empty()) std::memcpy(room, text.data(), text.size());
  return string;
}

BRTypeID BRStringGetTypeID(void) { return br::kStringTypeID; }

BRStringRef BRStringCreateWithBytes(BRAllocatorRef allocator, const void* bytes, size_t lengthBytes,
                                    BRStringEncoding encoding) {
  if (!bytes && lengthBytes) return nullptr;
  const std::string_view source(static_cast<const char*>(bytes), lengthBytes);
  const size_t utf8Bytes = br::measureAsUTF8(source, encoding);
  if (utf8Bytes == br::kNotExpressible) return nullptr;
  char* text;
  BRString* string = br::createStringToFill(allocator, utf8Bytes, &text);
  if (string) br::convertToUTF8(source, encoding, text);
  return string;
}

BRStringRef BRStringCreateWithCString(BRAllocatorRef allocator, const char* text, BRStringEncoding encoding) {
  return text ? BRStringCreateWithBytes(allocator, text, cStringLength(text, encoding), encoding) : nullptr;
}

BRStringRef BRStringCreateWithFormat(BRAllocatorRef allocator, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  BRStringRef string = BRStringCreateWithFormatAndArguments(allocator, format, arguments);
  va_end(arguments);
  return string;
}

BRStringRef BRStringCreateWithFormatAndArguments(BRAllocatorRef allocator, const char* format,
                                                 va_list arguments) {
  return withFormattedText<BRStringRef>(allocator, format, arguments, [allocator](std::string_view text) {
    return br::createStringWithText(allocator, text);
  });
}

BRStringRef BRStringCreateCopy(BRAllocatorRef allocator, BRStringRef string) {
  if (!string) return nullptr;
  const bool isConstant = BRGetRetainCount(string) == br::kImmortalCount;
  if (isConstant || (!string->isMutable() && br::sameAllocator(string, allocator)))
    return static_cast<BRStringRef>(BRRetain(string));
  return br::createStringWithText(allocator, br::textOf(string));
}

BRMutableStringRef BRStringCreateMutable(BRAllocatorRef allocator, size_t capacityBytes) {
  auto string = br::Ref<BRString>::adopt(br::create<BRString>(allocator, sizeof(br::ByteBlock), 0));
  if (!string) return nullptr;
  string->flags |= br::kClassFlag0;
  if (capacityBytes) {
    char* room = reserveAtEnd(string.get(), capacityBytes);
    if (!room) return nullptr;
    *room = '\0';
  }
  return string.detach();
}

BRMutableStringRef BRStringCreateMutableCopy(BRAllocatorRef allocator, BRStringRef source) {
  if (!source) return nullptr;
  const std::string_view text = br::textOf(source);
  auto string = br::Ref<BRString>::adopt(BRStringCreateMutable(allocator, text.size()));
  return string && appendText(string.get(), text) ? string.detach() : nullptr;
}

bool BRStringAppend(BRMutableStringRef string, BRStringRef suffix) {
  return isMutableString(string) && suffix && appendText(string, br::textOf(suffix));
}

bool BRStringAppendBytes(BRMutableStringRef string, const void* bytes, size_t lengthBytes,
                         BRStringEncoding encoding) {
  if (!isMutableString(string) || (!bytes && lengthBytes)) return false;
  const std::string_view source(static_cast<const char*>(bytes), lengthBytes);
  const size_t utf8Bytes = br::measureAsUTF8(source, encoding);
  if (utf8Bytes == br::kNotExpressible) return false;
  if (encoding == kBRStringEncodingUTF8) return appendText(string, source);
  // The source may lie in the string's own block, which may move.
  br::TextBuffer converted(BRGetAllocator(string));
  char* room = converted.reserve(utf8Bytes);
  if (!room) return false;
  br::convertToUTF8(source, encoding, room);
  converted.commit(utf8Bytes);
  return appendText(string, converted.text());
}

bool BRStringAppendCString(BRMutableStringRef string, const char* text, BRStringEncoding encoding) {
  return text && BRStringAppendBytes(string, text, cStringLength(text, encoding), encoding);
}

bool BRStringAppendFormat(BRMutableStringRef string, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const bool appended = BRStringAppendFormatAndArguments(string, format, arguments);
  va_end(arguments);
  return appended;
}

bool BRStringAppendFormatAndArguments(BRMutableStringRef string, const char* format, va_list arguments) {
  return isMutableString(string) &&
         withFormattedText<bool>(BRGetAllocator(string), format, arguments,
                                 [string](std::string_view text) { return appendText(string, text); });
}

size_t BRStringGetLengthBytes(BRStringRef string) { return string ? string->lengthBytes : 0; }

const char* BRStringGetUTF8(BRStringRef string) { return br::textOf(string).data(); }

BRComparisonResult BRStringCompare(BRStringRef a, BRStringRef b) {
  // UTF-8 bytes sort as the characters do
  const int order = br::textOf(a).compare(br::textOf(b));
  return order < 0 ? kBRCompareLessThan : order > 0 ? kBRCompareGreaterThan : kBRCompareEqualTo;
}
