/* Metadata data types: what the bytes of an item of metadata are.
 *
 * A data type is named by a string. Base data types say how values are coded: "xq.metadata.datatype.int16" is a
 * big-endian integer of 16 bits. Others say what a value means and conform to one or more data types, all of the same
 * base: whoever does not know "xq.tavlo.location.ISO6709" can still read it as what it conforms to, UTF-8 text.
 *
 * The registry is one per process. It begins with 31 base data types, of which seven are of use inside files only and
 * have no name here, and three that conform: "xq.tavlo.detected-face" (to "xq.metadata.datatype.record-collection"),
 * "xq.tavlo.location.ISO6709" and "xq.tavlo.direction" (to kPVMetadataBaseDataType_UTF8). Types are never taken out.
 *
 * What the Get functions return stays as long as the process; nobody releases it. A data type that is NULL is of no
 * kind: the answer is false or NULL.
 *
 * Threads: any.
 *
 *   BRStringRef take = ...;  "com.example.take-number"
 *   status = PVMetadataDataTypeRegistryRegisterDataType(take, NULL, arrayOf(kPVMetadataBaseDataType_UInt16));
 *   PVMetadataDataTypeRegistryDataTypeConformsToDataType(take, kPVMetadataBaseDataType_UInt16);  true */
#ifndef PEVRIN_METADATA_DATA_TYPE_H
#define PEVRIN_METADATA_DATA_TYPE_H

#include <bedra/array.h>
#include <bedra/string.h>
#include <pevrin/base.h>

PV_BEGIN_DECLS

enum {
  kPVMetadataDataTypeRegistryError_CreationFailed = -16310,       /* no registry, or no entry could be made: memory */
  kPVMetadataDataTypeRegistryError_InvalidParameter = -16311,     /* the data type is NULL */
  kPVMetadataDataTypeRegistryError_BadConformingDataType = -16312, /* one that is not a string */
  kPVMetadataDataTypeRegistryError_Conflict = -16313,             /* it is registered with other conforming types */
  kPVMetadataDataTypeRegistryError_NoBaseDataType = -16314,       /* none can be found */
  kPVMetadataDataTypeRegistryError_SeveralBaseDataTypes = -16315  /* the conforming types have different ones */
};

/* Base data types. Text and data: */
PV_EXPORT extern const BRStringRef kPVMetadataBaseDataType_RawData; /* "xq.metadata.datatype.raw-data" */
PV_EXPORT extern const BRStringRef kPVMetadataBaseDataType_UTF8;    /* "xq.metadata.datatype.UTF-8" */
PV_EXPORT extern const BRStringRef kPVMetadataBaseDataType_UTF16;   /* "xq.metadata.datatype.UTF-16" */
PV_EXPORT extern const BRStringRef kPVMetadataBaseDataType_JSON;    /* "xq.metadata.datatype.JSON", in UTF-8 */
/* Images, as whole files: */
PV_EXPORT extern const BRStringRef kPVMetadataBaseDataType_GIF;  /* "xq.metadata.datatype.GIF" */
PV_EXPORT extern const BRStringRef kPVMetadataBaseDataType_JPEG; /* "xq.metadata.datatype.JPEG" */
PV_EXPORT extern const BRStringRef kPVMetadataBaseDataType_PNG;  /* "xq.metadata.datatype.PNG" */
PV_EXPORT extern const BRStringRef kPVMetadataBaseDataType_BMP;  /* "xq.metadata.datatype.BMP" */
/* Numbers, big-endian: */
PV_EXPORT extern const BRStringRef kPVMetadataBaseDataType_Float32; /* "xq.metadata.datatype.float32" */
PV_EXPORT extern const BRStringRef kPVMetadataBaseDataType_Float64; /* "xq.metadata.datatype.float64" */
PV_EXPORT extern const BRStringRef kPVMetadataBaseDataType_SInt8;   /* "xq.metadata.datatype.int8" */
PV_EXPORT extern const BRStringRef kPVMetadataBaseDataType_SInt16;  /* "xq.metadata.datatype.int16" */
PV_EXPORT extern const BRStringRef kPVMetadataBaseDataType_SInt32;  /* "xq.metadata.datatype.int32" */
PV_EXPORT extern const BRStringRef kPVMetadataBaseDataType_SInt64;  /* "xq.metadata.datatype.int64" */
PV_EXPORT extern const BRStringRef kPVMetadataBaseDataType_UInt8;   /* "xq.metadata.datatype.uint8" */
PV_EXPORT extern const BRStringRef kPVMetadataBaseDataType_UInt16;  /* "xq.metadata.datatype.uint16" */
PV_EXPORT extern const BRStringRef kPVMetadataBaseDataType_UInt32;  /* "xq.metadata.datatype.uint32" */
PV_EXPORT extern const BRStringRef kPVMetadataBaseDataType_UInt64;  /* "xq.metadata.datatype.uint64" */
/* Geometry, of big-endian floats. The transform's string has no ".datatype" in it. */
PV_EXPORT extern const BRStringRef kPVMetadataBaseDataType_PointF32; /* "xq.metadata.datatype.point-float32": x, y */
PV_EXPORT extern const BRStringRef
    kPVMetadataBaseDataType_DimensionsF32; /* "xq.metadata.datatype.dimensions-float32": width, height */
PV_EXPORT extern const BRStringRef kPVMetadataBaseDataType_RectF32;       /* "xq.metadata.datatype.rectangle-float32" */
PV_EXPORT extern const BRStringRef kPVMetadataBaseDataType_PolygonF32;    /* "xq.metadata.datatype.polygon-float32" */
PV_EXPORT extern const BRStringRef kPVMetadataBaseDataType_PolylineF32;   /* "xq.metadata.datatype.polyline-float32" */
PV_EXPORT extern const BRStringRef
    kPVMetadataBaseDataType_AffineTransformF64; /* "xq.metadata.affine-transform-float64": 3 x 3 */

/* Registers a data type. The strings are copied; description may be NULL.
 *
 * Without conforming types (NULL) the data type must be one of the 31 base types, or a dynamic one (<kiv/metadata.h>).
 * With them, the base of each that is registered is taken, those that are not registered are passed over, and the bases
 * must be one and the same. A data type that is registered already stays as it is, description included; this succeeds
 * when both lists are missing or hold the same types in any order.
 *
 * In this order: kPVMetadataDataTypeRegistryError_CreationFailed without a registry, _InvalidParameter,
 * _NoBaseDataType for an empty list, _BadConformingDataType, _SeveralBaseDataTypes, _NoBaseDataType when none was
 * found, _Conflict, _CreationFailed when memory runs out. */
PV_EXPORT PVStatus PVMetadataDataTypeRegistryRegisterDataType(BRStringRef dataType, BRStringRef description,
                                                              BRArrayRef conformingDataTypes);

/* True when the data type is in the registry. */
PV_EXPORT bool PVMetadataDataTypeRegistryDataTypeIsRegistered(BRStringRef dataType);

/* The description it was registered with, or NULL. */
PV_EXPORT BRStringRef PVMetadataDataTypeRegistryGetDataTypeDescription(BRStringRef dataType);

/* The data types, strings, that it was registered as conforming to; NULL for base types. */
PV_EXPORT BRArrayRef PVMetadataDataTypeRegistryGetConformingDataTypes(BRStringRef dataType);

/* The 24 base data types that have a name in this header. */
PV_EXPORT BRArrayRef PVMetadataDataTypeRegistryGetBaseDataTypes(void);

/* True for all 31 base data types, and for dynamic ones. */
PV_EXPORT bool PVMetadataDataTypeRegistryDataTypeIsBaseDataType(BRStringRef dataType);

/* The base data type of a registered one; base types are their own. NULL when it is not registered. */
PV_EXPORT BRStringRef PVMetadataDataTypeRegistryGetBaseDataTypeForConformingDataType(BRStringRef dataType);

/* Whether dataType is otherDataType (registered or not; also NULL and NULL), or conforms to it directly or through
 * others. The conforming types are searched depth first, in the order of their lists; meeting one that is not
 * registered ends the search with false. */
PV_EXPORT bool PVMetadataDataTypeRegistryDataTypeConformsToDataType(BRStringRef dataType, BRStringRef otherDataType);

PV_END_DECLS

#endif
