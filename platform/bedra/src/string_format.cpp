// Strings: printf formats with %@.
//
// A conversion is read into a Conversion, its argument taken with the type that the length modifier names,
// and its text made by snprintf from a rebuilt directive, except for %s, %c and %@, which are text
// already. Floating-point conversions run in the C locale, so that the decimal point is one whatever the
// program's locale says.
#include <locale.h>
#include <wchar.h>

#include <cstdio>

#include "src/string.hpp"
#include "src/text.hpp"

namespace {

enum class Length : uint8_t { kNone, kChar, kShort, kLong, kLongLong, kIntMax, kSize, kPtrDiff, kLongDouble };

struct Conversion {
  char flags[8];  // those of "-+ #0" that were given, each once
  bool leftAligned = false;
  int width = 0;
  int precision = -1;  // none
  Length length = Length::kNone;
  char letter = 0;
};

// The C locale for floating-point text; never freed. Making it takes no memory.
locale_t cLocale() {
  static const locale_t locale = newlocale(LC_ALL_MASK, "C", nullptr);
  return locale;
}

class Formatter {
 public:
  Formatter(br::TextBuffer& out, const char* format, va_list arguments) : out_(out), at_(format) {
    va_copy(arguments_, arguments);
  }
  ~Formatter() { va_end(arguments_); }

  bool run() {
    while (*at_) {
      const char* percent = strchrnul(at_, '%');
      out_.append({at_, static_cast<size_t>(percent - at_)});
      at_ = percent;
      if (*at_ == '%' && !convert()) return false;
    }
    return !out_.failed();
  }

 private:
  bool convert() {
    ++at_;
    if (*at_ == '%') {
      out_.append(*at_++);
      return true;
    }
    Conversion conversion;
    readFlags(conversion);
    if (!readNumber(conversion.width, false, conversion)) return false;
    if (*at_ == '.') {
      ++at_;
      if (!readNumber(conversion.precision, true, conversion)) return false;
    }
    conversion.length = readLength();
    conversion.letter = *at_;
    if (*at_) ++at_;
    return print(conversion) && !out_.failed();
  }

  void readFlags(Conversion& conversion) {
    size_t count = 0;
    for (; *at_ && std::strchr("-+ #0'", *at_); ++at_) {
      if (*at_ == '\'') continue;  // the C locale groups no digits
      conversion.leftAligned |= *at_ == '-';
      if (!std::memchr(conversion.flags, *at_, count)) conversion.flags[count++] = *at_;
    }
    conversion.flags[count] = '\0';
  }

  // Digits, none or '*'. A negative width asks for left alignment; a negative precision is none.
  bool readNumber(int& number, bool isPrecision, Conversion& conversion) {
    if (*at_ == '*') {
      ++at_;
      const int given = va_arg(arguments_, int);
      if (isPrecision) {
        number = given < 0 ? -1 : given;
        return true;
      }
      conversion.leftAligned |= given < 0;
      if (given == INT32_MIN) return false;
      number = given < 0 ? -given : given;
      return true;
    }
    int64_t value = 0;
    for (; *at_ >= '0' && *at_ <= '9'; ++at_) {
      value = value * 10 + (*at_ - '0');
      if (value > INT32_MAX) return false;
    }
    number = static_cast<int>(value);
    return true;
  }

  Length readLength() {
    const char modifier = *at_;
    if (!modifier || !std::strchr("hljztL", modifier)) return Length::kNone;
    const bool doubled = (modifier == 'h' || modifier == 'l') && at_[1] == modifier;
    at_ += doubled ? 2 : 1;
    switch (modifier) {
      case 'h':
        return doubled ? Length::kChar : Length::kShort;
      case 'l':
        return doubled ? Length::kLongLong : Length::kLong;
      case 'j':
        return Length::kIntMax;
      case 'z':
        return Length::kSize;
      case 't':
        return Length::kPtrDiff;
      default:
        return Length::kLongDouble;
    }
  }

  bool print(const Conversion& conversion) {
    if (!conversion.letter) return false;
    if (std::strchr("diouxX", conversion.letter)) return printInteger(conversion);
    if (std::strchr("eEfFgGaA", conversion.letter)) return printFloat(conversion);
    switch (conversion.letter) {
      case 'c':
        return printCharacter(conversion);
      case 's':
        return printCString(conversion);
      case '@':
        return printObject(conversion);
      case 'p':
        return conversion.length == Length::kNone &&
               printWithLibrary(conversion, "", va_arg(arguments_, void*));
      default:
        return false;
    }
  }

  // Arguments narrower than int come as int, and snprintf cuts them to size.
  bool printInteger(const Conversion& conversion) {
    switch (conversion.length) {
      case Length::kNone:
        return printWithLibrary(conversion, "", va_arg(arguments_, int));
      case Length::kChar:
        return printWithLibrary(conversion, "hh", va_arg(arguments_, int));
      case Length::kShort:
        return printWithLibrary(conversion, "h", va_arg(arguments_, int));
      case Length::kLong:
        return printWithLibrary(conversion, "l", va_arg(arguments_, long));
      case Length::kLongLong:
        return printWithLibrary(conversion, "ll", va_arg(arguments_, long long));
      case Length::kIntMax:
        return printWithLibrary(conversion, "j", va_arg(arguments_, intmax_t));
      case Length::kSize:
        return printWithLibrary(conversion, "z", va_arg(arguments_, size_t));
      case Length::kPtrDiff:
        return printWithLibrary(conversion, "t", va_arg(arguments_, ptrdiff_t));
      case Length::kLongDouble:
        return false;
    }
    return false;
  }

  bool printFloat(const Conversion& conversion) {
    const bool isLong = conversion.length == Length::kLongDouble;
    if (!isLong && conversion.length != Length::kNone && conversion.length != Length::kLong) return false;
    const locale_t locale = cLocale();
    const locale_t previous = locale ? uselocale(locale) : nullptr;
    const bool printed = isLong ? printWithLibrary(conversion, "L", va_arg(arguments_, long double))
                                : printWithLibrary(conversion, "", va_arg(arguments_, double));
    if (previous) uselocale(previous);
    return printed;
  }

  // The text of one argument straight into the buffer; a second time when it needs more room than there was.
  template <class Argument>
  bool printWithLibrary(const Conversion& conversion, const char* length, Argument argument) {
    char directive[16];  // "%-", five flags, "*.*", a length of two, the letter and a NUL
    char* end = stpcpy(directive, conversion.leftAligned ? "%-" : "%");
    end = stpcpy(stpcpy(stpcpy(end, conversion.flags), "*.*"), length);
    end[0] = conversion.letter;
    end[1] = '\0';
    for (size_t room = out_.roomBytes();;) {
      char* to = out_.reserve(room);
      if (!to) return false;
      const int written =
          std::snprintf(to, room + 1, directive, conversion.width, conversion.precision, argument);
      if (written < 0) return false;
      if (static_cast<size_t>(written) <= room) {
        out_.commit(static_cast<size_t>(written));
        return true;
      }
      room = static_cast<size_t>(written);
    }
  }

  bool printCharacter(const Conversion& conversion) {
    char text[4];
    if (conversion.length == Length::kLong) {
      pad(conversion, {text, encodeWide(va_arg(arguments_, wint_t), text)});
      return true;
    }
    if (conversion.length != Length::kNone) return false;
    text[0] = static_cast<char>(va_arg(arguments_, int));
    pad(conversion, {text, 1});
    return true;
  }

  bool printCString(const Conversion& conversion) {
    if (conversion.length == Length::kLong)
      return printWideString(conversion, va_arg(arguments_, const wchar_t*));
    if (conversion.length != Length::kNone) return false;
    const char* text = va_arg(arguments_, const char*);
    if (!text) text = "(null)";
    const size_t limit = conversion.precision < 0 ? SIZE_MAX : static_cast<size_t>(conversion.precision);
    const size_t length = limit == SIZE_MAX ? std::strlen(text) : strnlen(text, limit);
    pad(conversion,
        length == limit ? br::withoutCutCharacter({text, length}) : std::string_view(text, length));
    return true;
  }

  bool printWideString(const Conversion& conversion, const wchar_t* wide) {
    br::TextBuffer text(out_.allocator());
    size_t left = conversion.precision < 0 ? SIZE_MAX : static_cast<size_t>(conversion.precision);
    for (wide = wide ? wide : L"(null)"; left > 0 && *wide; ++wide) {
      char character[4];
      const size_t length = encodeWide(static_cast<wint_t>(*wide), character);
      if (length > left) break;
      text.append({character, length});
      left -= length;
    }
    pad(conversion, text.text());
    return !text.failed();
  }

  bool printObject(const Conversion& conversion) {
    if (conversion.length != Length::kNone) return false;
    BRTypeRef object = va_arg(arguments_, BRTypeRef);
    if (!object || BRGetTypeID(object) == br::kStringTypeID) {
      padCut(conversion, object ? br::textOf(static_cast<BRStringRef>(object)) : "(null)");
      return true;
    }
    BRStringRef description = BRCopyDescription(object);
    if (!description) return false;
    padCut(conversion, br::textOf(description));
    BRRelease(description);
    return true;
  }

  static size_t encodeWide(wint_t wide, char* out) {
    return br::encodeUTF8(br::isScalar(wide) ? static_cast<char32_t>(wide) : 0xFFFD, out);
  }

  void padCut(const Conversion& conversion, std::string_view text) {
    const size_t limit = conversion.precision < 0 ? SIZE_MAX : static_cast<size_t>(conversion.precision);
    pad(conversion, text.size() > limit ? br::withoutCutCharacter(text.substr(0, limit)) : text);
  }

  void pad(const Conversion& conversion, std::string_view text) {
    const size_t width = static_cast<size_t>(conversion.width);
    const size_t blanks = text.size() < width ? width - text.size() : 0;
    if (!conversion.leftAligned) out_.append(blanks, ' ');
    out_.append(text);
    if (conversion.leftAligned) out_.append(blanks, ' ');
  }

  br::TextBuffer& out_;
  const char* at_;
  va_list arguments_;
};

}  // namespace

bool br::appendFormat(TextBuffer& out, const char* format, va_list arguments) {
  return Formatter(out, format, arguments).run();
}
