#include "metadata/built_in_data_types.hpp"

#include <pevrin/metadata_data_type.h>

#include <bedra/literal.hpp>

using namespace br::literals;

// constexpr, and not only constinit, so that the tables below may be made of them
extern "C" {
constexpr BRStringRef kPVMetadataBaseDataType_RawData = "xq.metadata.datatype.raw-data"_br;
constexpr BRStringRef kPVMetadataBaseDataType_UTF8 = "xq.metadata.datatype.UTF-8"_br;
constexpr BRStringRef kPVMetadataBaseDataType_UTF16 = "xq.metadata.datatype.UTF-16"_br;
constexpr BRStringRef kPVMetadataBaseDataType_GIF = "xq.metadata.datatype.GIF"_br;
constexpr BRStringRef kPVMetadataBaseDataType_JPEG = "xq.metadata.datatype.JPEG"_br;
constexpr BRStringRef kPVMetadataBaseDataType_PNG = "xq.metadata.datatype.PNG"_br;
constexpr BRStringRef kPVMetadataBaseDataType_BMP = "xq.metadata.datatype.BMP"_br;
constexpr BRStringRef kPVMetadataBaseDataType_Float32 = "xq.metadata.datatype.float32"_br;
constexpr BRStringRef kPVMetadataBaseDataType_Float64 = "xq.metadata.datatype.float64"_br;
constexpr BRStringRef kPVMetadataBaseDataType_SInt8 = "xq.metadata.datatype.int8"_br;
constexpr BRStringRef kPVMetadataBaseDataType_SInt16 = "xq.metadata.datatype.int16"_br;
constexpr BRStringRef kPVMetadataBaseDataType_SInt32 = "xq.metadata.datatype.int32"_br;
constexpr BRStringRef kPVMetadataBaseDataType_SInt64 = "xq.metadata.datatype.int64"_br;
constexpr BRStringRef kPVMetadataBaseDataType_UInt8 = "xq.metadata.datatype.uint8"_br;
constexpr BRStringRef kPVMetadataBaseDataType_UInt16 = "xq.metadata.datatype.uint16"_br;
constexpr BRStringRef kPVMetadataBaseDataType_UInt32 = "xq.metadata.datatype.uint32"_br;
constexpr BRStringRef kPVMetadataBaseDataType_UInt64 = "xq.metadata.datatype.uint64"_br;
constexpr BRStringRef kPVMetadataBaseDataType_PointF32 = "xq.metadata.datatype.point-float32"_br;
constexpr BRStringRef kPVMetadataBaseDataType_DimensionsF32 = "xq.metadata.datatype.dimensions-float32"_br;
constexpr BRStringRef kPVMetadataBaseDataType_RectF32 = "xq.metadata.datatype.rectangle-float32"_br;
constexpr BRStringRef kPVMetadataBaseDataType_AffineTransformF64 = "xq.metadata.affine-transform-float64"_br;
constexpr BRStringRef kPVMetadataBaseDataType_PolygonF32 = "xq.metadata.datatype.polygon-float32"_br;
constexpr BRStringRef kPVMetadataBaseDataType_PolylineF32 = "xq.metadata.datatype.polyline-float32"_br;
constexpr BRStringRef kPVMetadataBaseDataType_JSON = "xq.metadata.datatype.JSON"_br;
}

namespace pv::metadata {

constinit const BuiltInDataType kBaseDataTypes[kBaseDataTypeCount] = {
    {kPVMetadataBaseDataType_RawData, "Raw data"_br, nullptr},
    {kPVMetadataBaseDataType_UTF8, "UTF-8 string"_br, nullptr},
    {kPVMetadataBaseDataType_UTF16, "UTF-16 string"_br, nullptr},
    {kPVMetadataBaseDataType_GIF, "GIF image"_br, nullptr},
    {kPVMetadataBaseDataType_JPEG, "JPEG image"_br, nullptr},
    {kPVMetadataBaseDataType_PNG, "PNG image"_br, nullptr},
    {kPVMetadataBaseDataType_BMP, "BMP image"_br, nullptr},
    {kPVMetadataBaseDataType_Float32, "32-bit big endian float"_br, nullptr},
    {kPVMetadataBaseDataType_Float64, "64-bit big endian float"_br, nullptr},
    {kPVMetadataBaseDataType_SInt8, "8 bit integer"_br, nullptr},
    {kPVMetadataBaseDataType_SInt16, "16-bit big endian integer"_br, nullptr},
    {kPVMetadataBaseDataType_SInt32, "32-bit big endian integer"_br, nullptr},
    {kPVMetadataBaseDataType_SInt64, "64-bit big endian integer"_br, nullptr},
    {kPVMetadataBaseDataType_UInt8, "Unsigned 8 bit integer"_br, nullptr},
    {kPVMetadataBaseDataType_UInt16, "Unsigned 16-bit big endian integer"_br, nullptr},
    {kPVMetadataBaseDataType_UInt32, "Unsigned 32-bit big endian integer"_br, nullptr},
    {kPVMetadataBaseDataType_UInt64, "Unsigned 64-bit big endian integer"_br, nullptr},
    {kPVMetadataBaseDataType_PointF32, "X-Y point using 32-bit big endian floats"_br, nullptr},
    {kPVMetadataBaseDataType_DimensionsF32, "Width-Height using 32-bit big endian floats"_br, nullptr},
    {kPVMetadataBaseDataType_RectF32, "Rectangle using 32-bit big endian floats"_br, nullptr},
    {kPVMetadataBaseDataType_AffineTransformF64, "3x3 affine transform using 64-bit big endian floats"_br,
     nullptr},
    {kPVMetadataBaseDataType_PolygonF32, "Polygon using 32-bit big endian floats"_br, nullptr},
    {kPVMetadataBaseDataType_PolylineF32, "Polyline using 32-bit big endian floats"_br, nullptr},
    {kPVMetadataBaseDataType_JSON, "UTF-8 encoded JSON data"_br, nullptr},
    // of use inside files only
    {"xq.metadata.datatype.UTF-8-sort"_br, "UTF-8 variant for sorting only"_br, nullptr},
    {"xq.metadata.datatype.UTF-16-sort"_br, "UTF-16 variant for sorting only"_br, nullptr},
    {"xq.metadata.datatype.UPC"_br, "UTF-8 Universal Product Code"_br, nullptr},
    {"xq.metadata.datatype.Tavlo-metadata-box"_br, "Tavlo metadata box"_br, nullptr},
    {"xq.metadata.datatype.pixel-density"_br, "Pixel density using four 32-bit unsigned integers"_br,
     nullptr},
    {"xq.metadata.datatype.record-collection"_br, "Record collection"_br, nullptr},
    {"xq.metadata.datatype.array-collection"_br, "Array collection"_br, nullptr},
};

constinit const BuiltInDataType kConformingDataTypes[3] = {
    {"xq.tavlo.detected-face"_br, "detected face"_br, "xq.metadata.datatype.record-collection"_br},
    {"xq.tavlo.location.ISO6709"_br, "location in ISO 6709 format"_br, kPVMetadataBaseDataType_UTF8},
    {"xq.tavlo.direction"_br, "direction"_br, kPVMetadataBaseDataType_UTF8},
};

}  // namespace pv::metadata
