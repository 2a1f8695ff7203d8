// Formats: a conversion with any flags, width and precision prints what the C library prints.
#include <bedra/bedra.h>
#include <bedra/ref.hpp>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

static void check(bool holds) {
  if (!holds) std::abort();
}

template <class Argument>
static void checkFormat(const std::string& format, Argument argument) {
  std::string expected(static_cast<size_t>(std::snprintf(nullptr, 0, format.c_str(), argument)), '\0');
  std::snprintf(expected.data(), expected.size() + 1, format.c_str(), argument);
  auto string = br::Ref<const BRString>::adopt(BRStringCreateWithFormat(nullptr, format.c_str(), argument));
  check(string && expected == BRStringGetUTF8(string.get()));
}

// The input: six bytes that pick flags, width and precision, and eight bytes of value.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  if (size < 14) return 0;
  std::string start = "é%";
  for (int i = 0; i < 6; ++i) start += "-+ #0'"[bytes[i] % 6];
  start = start.substr(0, start.find("%") + 1 + bytes[0] % 7) + std::to_string(bytes[1] + bytes[2]);
  if (bytes[3] % 2) start += "." + std::to_string(bytes[4] + bytes[5]);
  int64_t value;
  double number;
  std::memcpy(&value, bytes + 6, sizeof value);
  std::memcpy(&number, bytes + 6, sizeof number);
  for (const char* tail : {"d", "i", "o", "u", "x", "X", "hd", "hhu"})
    checkFormat(start + tail, static_cast<int>(value));
  for (const char* tail : {"lld", "jx", "zu", "tX", "li"}) checkFormat(start + tail, value);
  for (const char* tail : {"e", "E", "f", "F", "g", "G", "a", "A", "lf"}) checkFormat(start + tail, number);
  checkFormat(start + "Lg", static_cast<long double>(number));
  checkFormat(start + "s|%%", "some text");
  return 0;
}
