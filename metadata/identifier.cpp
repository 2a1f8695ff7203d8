// Making identifiers.
#include <bedra/number.h>
#include <bedra/runtime.h>
#include <kiv/metadata.h>

#include <cstring>
#include <span>

#include "metadata/key_space.hpp"
#include "runtime/error.hpp"

using namespace br::literals;
using pv::metadata::String;

namespace {

bool isA(BRTypeRef object, BRTypeID type) { return BRGetTypeID(object) == type; }

PVStatus bytesOfNumber(BRNumberRef key, uint8_t* bytes) {
  int64_t value = 0;
  if (!BRNumberGetValue(key, kBRNumberTypeSInt64, &value) || value < INT32_MIN || value > UINT32_MAX)
    return pv::signalError(kPVMetadataIdentifierError_BadNumericKey);
  for (int i = 0; i < 4; ++i) bytes[i] = static_cast<uint8_t>(value >> (24 - 8 * i));
  return kPVStatus_Success;
}

PVStatus bytesOfData(BRDataRef key, uint8_t* bytes) {
  if (BRDataGetLength(key) != 4) return pv::signalError(kPVMetadataIdentifierError_BadKeyLength);
  std::memcpy(bytes, BRDataGetBytePtr(key), 4);
  return kPVStatus_Success;
}

PVStatus bytesOfString(BRStringRef key, uint8_t* bytes) {
  if (BRStringGetLengthUTF16(key) != 4) return pv::signalError(kPVMetadataIdentifierError_BadKeyLength);
  const auto data =
      br::Ref<const BRData>::adopt(BRStringCreateData(nullptr, key, kBRStringEncodingWesternRoman));
  if (!data || BRDataGetLength(data.get()) != 4) return pv::signalError(kPVMetadataIdentifierError_BadKey);
  std::memcpy(bytes, BRDataGetBytePtr(data.get()), 4);
  return kPVStatus_Success;
}

// The key as text, one character for each of its four bytes.
PVStatus fourByteKey(BRTypeRef key, bool hasCopyright, String& text) {
  uint8_t bytes[4];
  PVStatus status = kPVStatus_Success;
  if (isA(key, BRStringGetTypeID()))
    status = bytesOfString(static_cast<BRStringRef>(key), bytes);
  else if (isA(key, BRNumberGetTypeID()))
    status = bytesOfNumber(static_cast<BRNumberRef>(key), bytes);
  else if (isA(key, BRDataGetTypeID()))
    status = bytesOfData(static_cast<BRDataRef>(key), bytes);
  else
    status = pv::signalError(kPVMetadataIdentifierError_UnsupportedKeyType);
  if (status != kPVStatus_Success) return status;
  if (hasCopyright && bytes[0] == '@') bytes[0] = 0xA9;
  text = String::adopt(BRStringCreateWithBytes(nullptr, bytes, 4, kBRStringEncodingWesternRoman));
  return text ? kPVStatus_Success : pv::signalError(kPVMetadataIdentifierError_BadKey);
}

// The text in some data, in the encoding that a byte order mark tells, which is no part of it.
String textIn(BRDataRef data) {
  struct Mark {
    std::span<const uint8_t> bytes;
    BRStringEncoding encoding;
  };
  static constexpr uint8_t kUTF8[] = {0xEF, 0xBB, 0xBF}, kBig[] = {0xFE, 0xFF}, kLittle[] = {0xFF, 0xFE};
  static constexpr Mark kMarks[] = {{kUTF8, kBRStringEncodingUTF8},
                                    {kBig, kBRStringEncodingUTF16BE},
                                    {kLittle, kBRStringEncodingUTF16LE},
                                    {{}, kBRStringEncodingUTF8}};
  const uint8_t* bytes = BRDataGetBytePtr(data);
  const size_t length = BRDataGetLength(data);
  for (const Mark& mark : kMarks) {
    const size_t skipped = mark.bytes.size();
    if (length >= skipped && (skipped == 0 || std::memcmp(bytes, mark.bytes.data(), skipped) == 0))
      return String::adopt(
          BRStringCreateWithBytes(nullptr, bytes + skipped, length - skipped, mark.encoding));
  }
  return nullptr;
}

PVStatus textKey(BRTypeRef key, String& text) {
  if (isA(key, BRStringGetTypeID()))
    text = String::retain(static_cast<BRStringRef>(key));
  else if (isA(key, BRDataGetTypeID()))
    text = textIn(static_cast<BRDataRef>(key));
  else
    return pv::signalError(kPVMetadataIdentifierError_UnsupportedKeyType);
  if (!text) return pv::signalError(kPVMetadataIdentifierError_BadKey);
  return BRStringGetLengthBytes(text.get()) > 0 ? kPVStatus_Success
                                                : pv::signalError(kPVMetadataIdentifierError_BadKeyLength);
}

PVStatus createIdentifier(BRAllocatorRef allocator, BRTypeRef key, BRStringRef keySpace,
                          BRStringRef* identifierOut) {
  if (BREqual(keySpace, "anon"_br)) {
    if (key) return pv::signalError(kPVMetadataIdentifierError_InvalidParameter);
    *identifierOut = "anon"_br;
    return kPVStatus_Success;
  }
  if (!key) return pv::signalError(kPVMetadataIdentifierError_BadKey);
  const String space = pv::metadata::writtenKeySpace(keySpace);
  if (!space) return pv::signalError(kPVMetadataIdentifierError_BadKeySpace);
  String text;
  const PVStatus status = pv::metadata::hasFourByteKeys(space.get())
                              ? fourByteKey(key, pv::metadata::hasCopyrightKeys(space.get()), text)
                              : textKey(key, text);
  if (status != kPVStatus_Success) return status;
  if (const String escaped = pv::metadata::escaped(nullptr, text.get()))
    *identifierOut = BRStringCreateWithFormat(allocator, "%@/%@", space.get(), escaped.get());
  return *identifierOut ? kPVStatus_Success : pv::signalError(kPVMetadataIdentifierError_CreationFailed);
}

// The characters of a code, without the zero bytes at its end; null for what is no code.
String keySpaceOf(PVFourCharCode code) {
  uint8_t bytes[4];
  size_t length = 0;
  for (int shift = 24; shift >= 0; shift -= 8) {
    const auto byte = static_cast<uint8_t>(code >> shift);
    if (byte == 0) break;
    if (byte < 0x20 || byte == 0x7F) return nullptr;
    bytes[length++] = byte;
  }
  if (length == 0 || (length < 4 && code << 8 * length != 0)) return nullptr;
  return String::adopt(BRStringCreateWithBytes(nullptr, bytes, length, kBRStringEncodingWesternRoman));
}

}  // namespace

PVStatus PVMetadataCreateIdentifierForKeyAndKeySpace(BRAllocatorRef allocator, BRTypeRef key,
                                                     BRStringRef keySpace, BRStringRef* identifierOut) {
  if (identifierOut) *identifierOut = nullptr;
  if (!identifierOut || !keySpace) return pv::signalError(kPVMetadataIdentifierError_InvalidParameter);
  return createIdentifier(allocator, key, keySpace, identifierOut);
}

PVStatus KivMetadataCreateIdentifierForKeyAndOSTypeKeySpace(BRAllocatorRef allocator, BRTypeRef key,
                                                            PVFourCharCode keySpaceCode,
                                                            BRStringRef* identifierOut) {
  if (!identifierOut) return pv::signalError(kPVMetadataIdentifierError_InvalidParameter);
  *identifierOut = nullptr;
  const String keySpace = keySpaceOf(keySpaceCode);
  if (!keySpace) return pv::signalError(kPVMetadataIdentifierError_BadKeySpace);
  return PVMetadataCreateIdentifierForKeyAndKeySpace(allocator, key, keySpace.get(), identifierOut);
}
