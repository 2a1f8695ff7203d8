// Strings: what an encoding accepts it gives back byte for byte, every encoding decodes to the string it was
// made from, percent escapes round-trip, and a conversion prints what the C library prints.
#include <bedra/bedra.h>
#include <bedra/ref.hpp>

#include <cstdlib>
#include <string>

using String = br::Ref<const BRString>;
using Data = br::Ref<const BRData>;

static void check(bool holds) {
  if (!holds) std::abort();
}

static void checkEncoding(BRStringRef string, BRStringEncoding encoding) {
  Data data = Data::adopt(BRStringCreateData(nullptr, string, encoding));
  if (!data) return;
  const size_t length = BRDataGetLength(data.get());
  const uint8_t* bytes = BRDataGetBytePtr(data.get());
  check(BREqual(String::adopt(BRStringCreateWithBytes(nullptr, bytes, length, encoding)).get(), string));
  std::string buffer(length + 2, '#');
  check(BRStringGetCString(string, buffer.data(), buffer.size(), encoding));
  check(!BRStringGetCString(string, buffer.data(), length, encoding));
  auto* add = BRStringCreateByAddingPercentEscapesInEncoding;
  auto* replace = BRStringCreateByReplacingPercentEscapesInEncoding;
  String escaped = String::adopt(add(nullptr, string, nullptr, nullptr, encoding));
  if (escaped) check(BREqual(String::adopt(replace(nullptr, escaped.get(), encoding)).get(), string));
  String::adopt(replace(nullptr, string, encoding));  // malformed ones too
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  for (BRStringEncoding from = kBRStringEncodingUTF8; from <= kBRStringEncodingWesternRoman; ++from) {
    String string = String::adopt(BRStringCreateWithBytes(nullptr, bytes, size, from));
    if (!string) continue;
    Data back = Data::adopt(BRStringCreateData(nullptr, string.get(), from));
    check(BREqual(back.get(), Data::adopt(BRDataCreate(nullptr, bytes, size)).get()));
    for (BRStringEncoding to = kBRStringEncodingUTF8; to <= kBRStringEncodingWesternRoman; ++to)
      checkEncoding(string.get(), to);
  }
  return 0;
}
