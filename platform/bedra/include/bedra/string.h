/* Strings: text, UTF-8 inside. */
#ifndef BEDRA_STRING_H
#define BEDRA_STRING_H

#include <stdarg.h>

#include <bedra/base.h>

BR_BEGIN_DECLS

typedef uint32_t BRStringEncoding;
enum {
  kBRStringEncodingUTF8 = 1,
  kBRStringEncodingUTF16 = 2,       /* host order, no byte order mark */
  kBRStringEncodingUTF16BE = 3,
  kBRStringEncodingUTF16LE = 4,
  kBRStringEncodingWesternRoman = 5 /* the 8-bit Western Roman set of older movie files */
};

BR_EXPORT BRTypeID BRStringGetTypeID(void);

BR_EXPORT BRStringRef BRStringCreateWithBytes(BRAllocatorRef allocator, const void *bytes, size_t lengthBytes,
                                              BRStringEncoding encoding);
BR_EXPORT BRStringRef BRStringCreateWithCString(BRAllocatorRef allocator, const char *text, BRStringEncoding encoding);
BR_EXPORT BRStringRef BRStringCreateWithFormat(BRAllocatorRef allocator, const char *format, ...);
BR_EXPORT BRStringRef BRStringCreateWithFormatAndArguments(BRAllocatorRef allocator, const char *format,
                                                           va_list arguments);
BR_EXPORT BRStringRef BRStringCreateCopy(BRAllocatorRef allocator, BRStringRef string);
BR_EXPORT BRMutableStringRef BRStringCreateMutable(BRAllocatorRef allocator, size_t capacityBytes);
BR_EXPORT BRMutableStringRef BRStringCreateMutableCopy(BRAllocatorRef allocator, BRStringRef string);

/* Appends: false, and the string unchanged, when memory runs out. */
BR_EXPORT bool BRStringAppend(BRMutableStringRef string, BRStringRef suffix);
BR_EXPORT bool BRStringAppendBytes(BRMutableStringRef string, const void *bytes, size_t lengthBytes,
                                   BRStringEncoding encoding);
BR_EXPORT bool BRStringAppendCString(BRMutableStringRef string, const char *text, BRStringEncoding encoding);
BR_EXPORT bool BRStringAppendFormat(BRMutableStringRef string, const char *format, ...);
BR_EXPORT bool BRStringAppendFormatAndArguments(BRMutableStringRef string, const char *format, va_list arguments);

BR_EXPORT size_t BRStringGetLengthBytes(BRStringRef string);
BR_EXPORT size_t BRStringGetLengthUTF16(BRStringRef string);
/* The text as UTF-8, NUL-terminated; borrowed until the string goes or changes. */
BR_EXPORT const char *BRStringGetUTF8(BRStringRef string);
/* Writes the text and a terminating NUL (one byte, two for UTF-16) into the buffer. False, with nothing promised about
 * the buffer, when it does not fit or a character has no place in the encoding. */
BR_EXPORT bool BRStringGetCString(BRStringRef string, char *buffer, size_t bufferBytes, BRStringEncoding encoding);
/* The text's bytes in an encoding, no terminator. NULL when a character has no place in the encoding. */
BR_EXPORT BRDataRef BRStringCreateData(BRAllocatorRef allocator, BRStringRef string, BRStringEncoding encoding);
BR_EXPORT BRComparisonResult BRStringCompare(BRStringRef a, BRStringRef b);
BR_EXPORT BRStringRef BRStringCreateByAddingPercentEscapes(BRAllocatorRef allocator, BRStringRef string,
                                                           BRStringRef leaveAlone, BRStringRef escapeToo);
BR_EXPORT BRStringRef BRStringCreateByReplacingPercentEscapes(BRAllocatorRef allocator, BRStringRef string);

BR_END_DECLS

#endif
