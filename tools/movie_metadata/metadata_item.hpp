// An item of metadata: a name, and a value whose type is known.
#pragma once

#include <bedra/string.h>
#include <pevrin/base.h>

#include <bedra/ref.hpp>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

// Of a name, or of a key that is one. Every item has its own copy, and much longer ones are no names.
constexpr size_t kMostNameBytes = 1024;

struct MetadataItem {
  std::optional<size_t> track;       // its index in the movie; none for the movie's own
  std::string identifier;            // as <pevrin/metadata.h> has it
  std::string name;                  // of items whose key does not tell one from another; mostly empty
  br::Ref<const BRString> dataType;  // as <pevrin/metadata_data_type.h> has it
  std::vector<uint8_t> bytes;        // of the value: the first of them when there are very many
  uint64_t length = 0;               // of the value
};

// Data types of the variants of a text that items are sorted by.
extern const BRStringRef kUTF8SortDataType, kUTF16SortDataType;

// What the bytes say by the base type of their data type: text, numbers, one or more, or only bytes
// (monostate).
using MetadataValue = std::variant<std::monostate, std::string, int64_t, uint64_t, std::vector<double>>;
MetadataValue valueOf(const MetadataItem& item);

// The identifier of a four-byte key, or of a name; empty when it cannot be one.
std::string identifierOf(BRStringRef keySpace, PVFourCharCode key);
std::string identifierOf(PVFourCharCode keySpace, std::string_view key);

// Text in an encoding as UTF-8. Empty when it is none.
std::optional<std::string> utf8Of(std::span<const uint8_t> bytes, BRStringEncoding encoding);
// The same of UTF-16, big-endian unless a byte order mark says otherwise; and of UTF-8, unless there is such
// a mark.
std::optional<std::string> utf16Of(std::span<const uint8_t> bytes);
std::optional<std::string> utf8OrMarked(std::span<const uint8_t> bytes);
