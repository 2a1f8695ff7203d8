/* Numbers, booleans and null. */
#ifndef BEDRA_NUMBER_H
#define BEDRA_NUMBER_H

#include <bedra/base.h>

BR_BEGIN_DECLS

typedef uint32_t BRNumberType;
enum {
  kBRNumberTypeSInt8 = 1,
  kBRNumberTypeSInt16 = 2,
  kBRNumberTypeSInt32 = 3,
  kBRNumberTypeSInt64 = 4,
  kBRNumberTypeUInt8 = 5,
  kBRNumberTypeUInt16 = 6,
  kBRNumberTypeUInt32 = 7,
  kBRNumberTypeUInt64 = 8,
  kBRNumberTypeFloat32 = 9,
  kBRNumberTypeFloat64 = 10
};

BR_EXPORT BRTypeID BRNumberGetTypeID(void);
BR_EXPORT BRNumberRef BRNumberCreate(BRAllocatorRef allocator, BRNumberType type, const void *value);
BR_EXPORT BRNumberType BRNumberGetType(BRNumberRef number);
BR_EXPORT bool BRNumberIsFloat(BRNumberRef number);
/* Writes the number as the type into *value, converted as needed; true when nothing was lost. */
BR_EXPORT bool BRNumberGetValue(BRNumberRef number, BRNumberType type, void *value);
BR_EXPORT BRComparisonResult BRNumberCompare(BRNumberRef a, BRNumberRef b);

BR_EXPORT extern const BRBooleanRef kBRBooleanTrue;
BR_EXPORT extern const BRBooleanRef kBRBooleanFalse;
BR_EXPORT BRTypeID BRBooleanGetTypeID(void);
BR_EXPORT bool BRBooleanGetValue(BRBooleanRef boolean);

BR_EXPORT extern const BRNullRef kBRNull;
BR_EXPORT BRTypeID BRNullGetTypeID(void);

BR_END_DECLS

#endif
