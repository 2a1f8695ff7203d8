#include "metadata_item.hpp"

#include <bedra/number.h>
#include <bedra/runtime.h>
#include <kiv/metadata.h>
#include <pevrin/metadata_data_type.h>

#include <algorithm>
#include <bedra/literal.hpp>
#include <bit>
#include <initializer_list>

using namespace br::literals;

constinit const BRStringRef kUTF8SortDataType = "xq.metadata.datatype.UTF-8-sort"_br;
constinit const BRStringRef kUTF16SortDataType = "xq.metadata.datatype.UTF-16-sort"_br;

namespace {

uint64_t unsignedIn(std::span<const uint8_t> bytes) {
  uint64_t value = 0;
  for (uint8_t byte : bytes) value = value << 8 | byte;
  return value;
}

int64_t signedIn(std::span<const uint8_t> bytes) {
  const int shift = 64 - 8 * static_cast<int>(bytes.size());
  return static_cast<int64_t>(unsignedIn(bytes) << shift) >> shift;
}

// count numbers of so many bytes each, or any whole number of them when count is 0.
MetadataValue floatsIn(std::span<const uint8_t> bytes, size_t numberBytes, size_t count) {
  if (bytes.empty() || bytes.size() % numberBytes != 0) return {};
  if (count != 0 && bytes.size() != count * numberBytes) return {};
  std::vector<double> values;
  for (size_t i = 0; i < bytes.size(); i += numberBytes) {
    const uint64_t bits = unsignedIn(bytes.subspan(i, numberBytes));
    values.push_back(numberBytes == 4 ? std::bit_cast<float>(static_cast<uint32_t>(bits))
                                      : std::bit_cast<double>(bits));
  }
  return values;
}

// Numbers by base type: how many bytes one has, how many there are (0: any number), and what they are.
struct NumberForm {
  BRStringRef const* base;
  size_t bytes, count;
  enum : uint8_t { kSigned, kUnsigned, kFloat } kind;
};
constexpr NumberForm kNumbers[] = {
    {&kPVMetadataBaseDataType_SInt8, 1, 1, NumberForm::kSigned},
    {&kPVMetadataBaseDataType_SInt16, 2, 1, NumberForm::kSigned},
    {&kPVMetadataBaseDataType_SInt32, 4, 1, NumberForm::kSigned},
    {&kPVMetadataBaseDataType_SInt64, 8, 1, NumberForm::kSigned},
    {&kPVMetadataBaseDataType_UInt8, 1, 1, NumberForm::kUnsigned},
    {&kPVMetadataBaseDataType_UInt16, 2, 1, NumberForm::kUnsigned},
    {&kPVMetadataBaseDataType_UInt32, 4, 1, NumberForm::kUnsigned},
    {&kPVMetadataBaseDataType_UInt64, 8, 1, NumberForm::kUnsigned},
    {&kPVMetadataBaseDataType_Float32, 4, 1, NumberForm::kFloat},
    {&kPVMetadataBaseDataType_Float64, 8, 1, NumberForm::kFloat},
    {&kPVMetadataBaseDataType_PointF32, 4, 2, NumberForm::kFloat},
    {&kPVMetadataBaseDataType_DimensionsF32, 4, 2, NumberForm::kFloat},
    {&kPVMetadataBaseDataType_RectF32, 4, 4, NumberForm::kFloat},
    {&kPVMetadataBaseDataType_AffineTransformF64, 8, 9, NumberForm::kFloat},
    {&kPVMetadataBaseDataType_PolygonF32, 4, 0, NumberForm::kFloat},
    {&kPVMetadataBaseDataType_PolylineF32, 4, 0, NumberForm::kFloat},
};

MetadataValue numberIn(const NumberForm& form, std::span<const uint8_t> bytes) {
  if (form.kind == NumberForm::kFloat) return floatsIn(bytes, form.bytes, form.count);
  if (bytes.size() != form.bytes) return {};
  if (form.kind == NumberForm::kSigned) return signedIn(bytes);
  return unsignedIn(bytes);
}

std::string textOf(BRStringRef string) {
  return string ? std::string(BRStringGetUTF8(string), BRStringGetLengthBytes(string)) : std::string();
}

// With a byte order mark of UTF-16.
bool isMarked(std::span<const uint8_t> bytes) {
  return bytes.size() >= 2 && (bytes[0] ^ bytes[1]) == (0xFE ^ 0xFF) && std::max(bytes[0], bytes[1]) == 0xFF;
}

}  // namespace

MetadataValue valueOf(const MetadataItem& item) {
  BRStringRef base = PVMetadataDataTypeRegistryGetBaseDataTypeForConformingDataType(item.dataType.get());
  if (!base || item.bytes.size() != item.length) return {};
  const auto isOneOf = [base](std::initializer_list<BRStringRef> others) {
    return std::ranges::any_of(others, [base](BRStringRef other) { return BREqual(base, other); });
  };
  std::optional<std::string> text;
  if (isOneOf({kPVMetadataBaseDataType_UTF8, kUTF8SortDataType, kPVMetadataBaseDataType_JSON}))
    text = utf8Of(item.bytes, kBRStringEncodingUTF8);
  else if (isOneOf({kPVMetadataBaseDataType_UTF16, kUTF16SortDataType}))
    text = utf16Of(item.bytes);
  if (text) return *text;
  const auto form =
      std::ranges::find_if(kNumbers, [&](const NumberForm& one) { return BREqual(base, *one.base); });
  return form == std::end(kNumbers) ? MetadataValue() : numberIn(*form, item.bytes);
}

std::string identifierOf(BRStringRef keySpace, PVFourCharCode key) {
  const auto code = static_cast<int64_t>(key);
  const auto number = br::Ref<const BRNumber>::adopt(BRNumberCreate(nullptr, kBRNumberTypeSInt64, &code));
  br::Ref<const BRString> identifier;
  PVMetadataCreateIdentifierForKeyAndKeySpace(nullptr, number.get(), keySpace, identifier.out());
  return textOf(identifier.get());
}

std::string identifierOf(PVFourCharCode keySpace, std::string_view key) {
  const auto data = br::Ref<const BRData>::adopt(BRDataCreate(nullptr, key.data(), key.size()));
  br::Ref<const BRString> identifier;
  KivMetadataCreateIdentifierForKeyAndOSTypeKeySpace(nullptr, data.get(), keySpace, identifier.out());
  return textOf(identifier.get());
}

std::optional<std::string> utf8Of(std::span<const uint8_t> bytes, BRStringEncoding encoding) {
  const auto string =
      br::Ref<const BRString>::adopt(BRStringCreateWithBytes(nullptr, bytes.data(), bytes.size(), encoding));
  return string ? std::optional(textOf(string.get())) : std::nullopt;
}

std::optional<std::string> utf16Of(std::span<const uint8_t> bytes) {
  if (!isMarked(bytes)) return utf8Of(bytes, kBRStringEncodingUTF16BE);
  return utf8Of(bytes.subspan(2), bytes[0] == 0xFE ? kBRStringEncodingUTF16BE : kBRStringEncodingUTF16LE);
}

std::optional<std::string> utf8OrMarked(std::span<const uint8_t> bytes) {
  return isMarked(bytes) ? utf16Of(bytes) : utf8Of(bytes, kBRStringEncodingUTF8);
}
