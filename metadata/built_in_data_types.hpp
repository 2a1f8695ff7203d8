// The data types that the registry begins with.
#ifndef PEVRIN_METADATA_BUILT_IN_DATA_TYPES_HPP
#define PEVRIN_METADATA_BUILT_IN_DATA_TYPES_HPP

#include <bedra/string.h>

#include <cstddef>

namespace pv::metadata {

struct BuiltInDataType {
  BRStringRef type, description;
  BRStringRef conformsTo;  // null for base types
};

inline constexpr size_t kBaseDataTypeCount = 31, kPublicBaseDataTypeCount = 24;
extern const BuiltInDataType kBaseDataTypes[kBaseDataTypeCount];  // the public ones first
extern const BuiltInDataType kConformingDataTypes[3];

}  // namespace pv::metadata

#endif
