/* Strings: text, UTF-8 inside.
 *
 * A string is a sequence of Unicode characters and always valid: bytes that are malformed in their encoding
 * make no string (NULL), and formatting puts U+FFFD in their place. U+0000 is a character like others, though
 * functions that return a C string cannot show what follows it; a byte order mark is one too, and is kept. An
 * immutable string is one block of memory. A mutable one keeps its text in a block of its own allocator that
 * grows by half, so appending is linear. Both are of one class: equal, and hashed alike, when their texts are
 * the same characters; no normalisation is applied. The description of a string is its text.
 *
 * Where a string is only read, NULL counts as empty; a copy, conversion or append of NULL fails.
 *
 * Threads: immutable strings from any thread, mutable ones serialised by their user.
 *
 *   BRMutableStringRef text = BRStringCreateMutable(NULL, 0);
 *   BRStringAppendFormat(text, "%-10s = %@, %d frames", "duration", description, 24);
 *   puts(BRStringGetUTF8(text));
 *   BRRelease(text);
 *
 * Formats. The conversions of printf: flags "-+ #0'", width and precision (also '*'), lengths hh h l ll j z t
 * L, and d i o u x X c s p e E f F g G a A %%. Besides, %@ prints an object: a string's text, or what
 * BRCopyDescription says; NULL prints "(null)", as it does for %s. Width and precision of %@ and %s count
 * bytes, as in C; a character that the precision would cut is left out whole. The locale has no say: the
 * decimal point is a point, and the ' flag, which groups digits by the locale, does nothing. %n, %1$d and
 * whatever else printf does not define make the format malformed: then nothing is created or appended. There
 * is no limit to the length of the result. */
#ifndef BEDRA_STRING_H
#define BEDRA_STRING_H

#include <stdarg.h>

#include <bedra/base.h>

BR_BEGIN_DECLS

/* How characters stand in bytes. */
typedef uint32_t BRStringEncoding;
enum {
  kBRStringEncodingUTF8 = 1,  /* RFC 3629: no surrogates, no overlong forms */
  kBRStringEncodingUTF16 = 2, /* host order, no byte order mark; lone surrogates are malformed */
  kBRStringEncodingUTF16BE = 3,
  kBRStringEncodingUTF16LE = 4,
  /* the 8-bit Western Roman set of older movie files, with the euro sign at 0xDB */
  kBRStringEncodingWesternRoman = 5
};

/* The runtime type "BRString". */
BR_EXPORT BRTypeID BRStringGetTypeID(void);

/* Making strings. All return NULL when memory runs out. */

/* From bytes in an encoding. NULL also when they are malformed, the encoding is unknown, or bytes is NULL and
 * the length is not 0. */
BR_EXPORT BRStringRef BRStringCreateWithBytes(BRAllocatorRef allocator, const void *bytes, size_t lengthBytes,
                                              BRStringEncoding encoding);

/* From NUL-terminated text, in UTF-16 terminated by a NUL of two bytes. NULL also for NULL and as above. */
BR_EXPORT BRStringRef BRStringCreateWithCString(BRAllocatorRef allocator, const char *text,
                                                BRStringEncoding encoding);

/* From a format. NULL also when the format is NULL or malformed, or an object's description cannot be had. */
BR_EXPORT BRStringRef BRStringCreateWithFormat(BRAllocatorRef allocator, const char *format, ...);
BR_EXPORT BRStringRef BRStringCreateWithFormatAndArguments(BRAllocatorRef allocator, const char *format,
                                                           va_list arguments);

/* An immutable copy: the same object, retained, when it is a constant, or immutable and from the same
 * allocator. NULL also for NULL. */
BR_EXPORT BRStringRef BRStringCreateCopy(BRAllocatorRef allocator, BRStringRef string);

/* An empty mutable string with room for so many bytes; it grows beyond as needed. */
BR_EXPORT BRMutableStringRef BRStringCreateMutable(BRAllocatorRef allocator, size_t capacityBytes);

/* A mutable copy, never the same object. NULL also for NULL. */
BR_EXPORT BRMutableStringRef BRStringCreateMutableCopy(BRAllocatorRef allocator, BRStringRef string);

/* Appending. All answer false, with the string unchanged, when it is not mutable, memory runs out, or what is
 * to be appended would make no string of its own by the rules above. A string may be appended to itself. */
BR_EXPORT bool BRStringAppend(BRMutableStringRef string, BRStringRef suffix);
BR_EXPORT bool BRStringAppendBytes(BRMutableStringRef string, const void *bytes, size_t lengthBytes,
                                   BRStringEncoding encoding);
BR_EXPORT bool BRStringAppendCString(BRMutableStringRef string, const char *text, BRStringEncoding encoding);
BR_EXPORT bool BRStringAppendFormat(BRMutableStringRef string, const char *format, ...);
BR_EXPORT bool BRStringAppendFormatAndArguments(BRMutableStringRef string, const char *format,
                                                va_list arguments);

/* Reading. */

/* The length in UTF-8, the NUL not counted. */
BR_EXPORT size_t BRStringGetLengthBytes(BRStringRef string);

/* The length in 16-bit units of UTF-16. Walks the text. */
BR_EXPORT size_t BRStringGetLengthUTF16(BRStringRef string);

/* The text as UTF-8, NUL-terminated; borrowed until the string goes or changes. "" for NULL. */
BR_EXPORT const char *BRStringGetUTF8(BRStringRef string);

/* Writes the text and a terminating NUL (one byte, two for UTF-16) into the buffer. False when it does not
 * fit, a character has no place in the encoding, or string or buffer is NULL; nothing is promised about what
 * the buffer then holds. Never writes beyond bufferBytes. */
BR_EXPORT bool BRStringGetCString(BRStringRef string, char *buffer, size_t bufferBytes,
                                  BRStringEncoding encoding);

/* The text's bytes in an encoding, no terminator. NULL when a character has no place in the encoding, for
 * NULL, or when memory runs out. */
BR_EXPORT BRDataRef BRStringCreateData(BRAllocatorRef allocator, BRStringRef string,
                                       BRStringEncoding encoding);

/* Orders by the numbers of the characters (code points), the prefix first: a total order, the same
 * everywhere, meant for sorting keys and not for readers of a language. */
BR_EXPORT BRComparisonResult BRStringCompare(BRStringRef a, BRStringRef b);

/* Percent escapes (RFC 3986): every byte of a character in the encoding, as '%' and two hexadecimal digits.
 */

/* Escapes all characters but the unreserved (A-Z a-z 0-9 - . _ ~), in UTF-8. Those in leaveAlone are left
 * alone too, those in escapeToo are escaped in any case; either may be NULL. NULL for a NULL string or when
 * memory runs out. */
BR_EXPORT BRStringRef BRStringCreateByAddingPercentEscapes(BRAllocatorRef allocator, BRStringRef string,
                                                           BRStringRef leaveAlone, BRStringRef escapeToo);

/* The same with the escaped bytes in an encoding, which must be UTF-8 or Western Roman. NULL also for another
 * encoding and when a character to be escaped has no place in it. */
BR_EXPORT BRStringRef BRStringCreateByAddingPercentEscapesInEncoding(BRAllocatorRef allocator,
                                                                     BRStringRef string,
                                                                     BRStringRef leaveAlone,
                                                                     BRStringRef escapeToo,
                                                                     BRStringEncoding encoding);

/* Replaces every escape, in UTF-8, by what it stands for. NULL when an escape is malformed or the result is
 * not UTF-8, for a NULL string, or when memory runs out. */
BR_EXPORT BRStringRef BRStringCreateByReplacingPercentEscapes(BRAllocatorRef allocator, BRStringRef string);

/* The same with the escaped bytes in an encoding, which must be UTF-8 or Western Roman. NULL also for
 * another. */
BR_EXPORT BRStringRef BRStringCreateByReplacingPercentEscapesInEncoding(BRAllocatorRef allocator,
                                                                        BRStringRef string,
                                                                        BRStringEncoding encoding);

BR_END_DECLS

#endif
