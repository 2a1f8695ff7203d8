// Taking identifiers apart.
#include <bedra/runtime.h>
#include <kiv/metadata.h>

#include <cstring>

#include "metadata/key_space.hpp"
#include "runtime/error.hpp"

using namespace br::literals;
using pv::metadata::String;

namespace {

using Data = br::Ref<const BRData>;

Data bytesOf(BRAllocatorRef allocator, BRStringRef string, BRStringEncoding encoding) {
  return Data::adopt(BRStringCreateData(allocator, string, encoding));
}

// Both as they are written.
struct Parts {
  String keySpace, key;  // no key in "anon"
};

PVStatus split(BRStringRef identifier, Parts& parts) {
  const char* text = BRStringGetUTF8(identifier);
  const size_t length = BRStringGetLengthBytes(identifier);
  if (BREqual(identifier, "anon"_br)) {
    parts.keySpace = String::retain(identifier);
    return kPVStatus_Success;
  }
  const auto* slash = static_cast<const char*>(std::memchr(text, '/', length));
  if (!slash) return pv::signalError(kPVMetadataIdentifierError_BadKeySpace);
  const auto keySpaceLength = static_cast<size_t>(slash - text);
  parts.keySpace =
      String::adopt(BRStringCreateWithBytes(nullptr, text, keySpaceLength, kBRStringEncodingUTF8));
  parts.key = String::adopt(
      BRStringCreateWithBytes(nullptr, slash + 1, length - keySpaceLength - 1, kBRStringEncodingUTF8));
  return parts.keySpace && parts.key ? kPVStatus_Success
                                     : pv::signalError(kPVMetadataIdentifierError_CreationFailed);
}

PVStatus splitKeySpace(BRAllocatorRef allocator, BRStringRef identifier, String& keySpace) {
  Parts parts;
  if (PVStatus status = split(identifier, parts)) return status;
  keySpace = pv::metadata::givenKeySpace(allocator, parts.keySpace.get());
  return keySpace ? kPVStatus_Success : pv::signalError(kPVMetadataIdentifierError_BadKeySpace);
}

// The key as text, and whether it stands for four bytes.
PVStatus splitKey(BRAllocatorRef allocator, BRStringRef identifier, String& key, bool& hasFourBytes) {
  Parts parts;
  if (PVStatus status = split(identifier, parts)) return status;
  // However it is spelt here.
  const String given = pv::metadata::givenKeySpace(nullptr, parts.keySpace.get());
  const String written = given ? pv::metadata::writtenKeySpace(given.get()) : nullptr;
  if (!written) return pv::signalError(kPVMetadataIdentifierError_BadKeySpace);
  if (BREqual(written.get(), "anon"_br)) return pv::signalError(kPVMetadataIdentifierError_BadKey);
  hasFourBytes = pv::metadata::hasFourByteKeys(written.get());
  key = pv::metadata::unescaped(allocator, parts.key.get());
  if (!key) return pv::signalError(kPVMetadataIdentifierError_BadKey);
  const size_t length = BRStringGetLengthUTF16(key.get());
  if (hasFourBytes ? length != 4 : length == 0)
    return pv::signalError(kPVMetadataIdentifierError_BadKeyLength);
  if (hasFourBytes && !bytesOf(nullptr, key.get(), kBRStringEncodingWesternRoman))
    return pv::signalError(kPVMetadataIdentifierError_BadKey);
  return kPVStatus_Success;
}

}  // namespace

PVStatus PVMetadataCreateKeyFromIdentifier(BRAllocatorRef allocator, BRStringRef identifier,
                                           BRStringRef* keyOut) {
  if (keyOut) *keyOut = nullptr;
  if (!identifier || !keyOut) return pv::signalError(kPVMetadataIdentifierError_InvalidParameter);
  String key;
  bool hasFourBytes = false;
  if (PVStatus status = splitKey(allocator, identifier, key, hasFourBytes)) return status;
  *keyOut = key.detach();
  return kPVStatus_Success;
}

PVStatus PVMetadataCreateKeyFromIdentifierAsBRData(BRAllocatorRef allocator, BRStringRef identifier,
                                                   BRDataRef* keyOut) {
  if (keyOut) *keyOut = nullptr;
  if (!identifier || !keyOut) return pv::signalError(kPVMetadataIdentifierError_InvalidParameter);
  String key;
  bool hasFourBytes = false;
  if (PVStatus status = splitKey(nullptr, identifier, key, hasFourBytes)) return status;
  Data bytes =
      bytesOf(allocator, key.get(), hasFourBytes ? kBRStringEncodingWesternRoman : kBRStringEncodingUTF8);
  if (!bytes) return pv::signalError(kPVMetadataIdentifierError_CreationFailed);
  *keyOut = bytes.detach();
  return kPVStatus_Success;
}

PVStatus PVMetadataCreateKeySpaceFromIdentifier(BRAllocatorRef allocator, BRStringRef identifier,
                                                BRStringRef* keySpaceOut) {
  if (keySpaceOut) *keySpaceOut = nullptr;
  if (!identifier || !keySpaceOut) return pv::signalError(kPVMetadataIdentifierError_InvalidParameter);
  String keySpace;
  if (PVStatus status = splitKeySpace(allocator, identifier, keySpace)) return status;
  *keySpaceOut = keySpace.detach();
  return kPVStatus_Success;
}

PVStatus KivMetadataGetKeySpaceAsOSTypeFromIdentifier(BRStringRef identifier, PVFourCharCode* codeOut) {
  if (!identifier || !codeOut) return pv::signalError(kPVMetadataIdentifierError_InvalidParameter);
  String keySpace;
  if (PVStatus status = splitKeySpace(nullptr, identifier, keySpace)) return status;
  const bool isShort =
      BREqual(keySpace.get(), kPVMetadataKeySpace_ID3) || BREqual(keySpace.get(), kPVMetadataKeySpace_Icy);
  const Data bytes = bytesOf(nullptr, keySpace.get(), kBRStringEncodingWesternRoman);
  if (!bytes) return pv::signalError(kPVMetadataIdentifierError_BadKeySpace);
  PVFourCharCode code = 0;
  for (size_t i = 0; i < 4; ++i) {
    const bool isThere = i < BRDataGetLength(bytes.get());
    const uint8_t byte = isThere ? BRDataGetBytePtr(bytes.get())[i] : isShort ? ' ' : 0;
    if (isThere && (byte < 0x20 || byte == 0x7F))
      return pv::signalError(kPVMetadataIdentifierError_BadKeySpace);
    code = code << 8 | byte;
  }
  *codeOut = code;
  return kPVStatus_Success;
}
