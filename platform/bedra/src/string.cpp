// Strings. First cut: creation from UTF-8 and printf formats; the rest follows.
#include <bedra/literal.hpp>
#include <bedra/string.h>

#include <cstdio>
#include <cstring>

#include "src/internal.hpp"

namespace {

char* bytesOf(BRString* string) { return reinterpret_cast<char*>(string + 1); }

struct StringClass : BRString {
  bool equals(const StringClass& other) const {
    return lengthBytes == other.lengthBytes && std::memcmp(this + 1, &other + 1, lengthBytes) == 0;
  }
  BRHashCode hash() const {
    return cachedHash ? cachedHash : br::hashStringBytes(reinterpret_cast<const char*>(this + 1), lengthBytes);
  }
};

}  // namespace

constinit const BRRuntimeClass br::stringClass = br::makeClass<StringClass>();

BRTypeID BRStringGetTypeID(void) { return br::kStringTypeID; }

BRStringRef BRStringCreateWithBytes(BRAllocatorRef allocator, const void* bytes, size_t lengthBytes,
                                    BRStringEncoding) {
  BRString* string = br::create<BRString>(allocator, lengthBytes + 1, lengthBytes);
  if (string) std::memcpy(bytesOf(string), bytes, lengthBytes);
  return string;
}

BRStringRef BRStringCreateWithCString(BRAllocatorRef allocator, const char* text, BRStringEncoding encoding) {
  return BRStringCreateWithBytes(allocator, text, std::strlen(text), encoding);
}

BRStringRef BRStringCreateWithFormat(BRAllocatorRef allocator, const char* format, ...) {
  char text[512];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  return BRStringCreateWithCString(allocator, text, kBRStringEncodingUTF8);
}
