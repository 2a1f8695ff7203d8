// The percent escapes of identifiers: what RFC 3986 lets stand in a URI stands for itself, but not the slash.
#ifndef PEVRIN_METADATA_ESCAPES_HPP
#define PEVRIN_METADATA_ESCAPES_HPP

#include <bedra/string.h>

#include <bedra/literal.hpp>
#include <bedra/ref.hpp>

namespace pv::metadata {

using String = br::Ref<const BRString>;

// Both are null when memory runs out; the first also for characters that Western Roman does not have, the
// other for malformed escapes.
inline String escaped(BRAllocatorRef allocator, BRStringRef string) {
  using namespace br::literals;
  return String::adopt(BRStringCreateByAddingPercentEscapesInEncoding(
      allocator, string, ":?#[]@!$&'()*+,;="_br, "/"_br, kBRStringEncodingWesternRoman));
}

inline String unescaped(BRAllocatorRef allocator, BRStringRef string) {
  return String::adopt(
      BRStringCreateByReplacingPercentEscapesInEncoding(allocator, string, kBRStringEncodingWesternRoman));
}

}  // namespace pv::metadata

#endif
