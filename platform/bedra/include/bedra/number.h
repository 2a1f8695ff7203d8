/* Numbers, booleans and null: the small values of property lists.
 *
 * A number is immutable and keeps the type it was made with, but counts by its value: 1 as an 8-bit integer,
 * as an unsigned 64-bit integer and as a double are equal, hash alike and compare exactly. A number and a
 * boolean are never equal. The description is the shortest text that reads back as the same value ("0.1",
 * "inf", "nan").
 *
 * Booleans and null are constants: two booleans and one null for the whole process, described as "true",
 * "false" and "null". Everything here may be used from any thread.
 *
 *   int32_t frames = 24;
 *   BRNumberRef number = BRNumberCreate(NULL, kBRNumberTypeSInt32, &frames);
 *   double rate;
 *   if (BRNumberGetValue(number, kBRNumberTypeFloat64, &rate)) ...  // 24.0, nothing lost
 *   BRRelease(number);
 */
#ifndef BEDRA_NUMBER_H
#define BEDRA_NUMBER_H

#include <bedra/base.h>

BR_BEGIN_DECLS

/* The C types that a number is made from and read as. */
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
  kBRNumberTypeFloat32 = 9, /* float */
  kBRNumberTypeFloat64 = 10 /* double */
};

/* The runtime type "BRNumber". */
BR_EXPORT BRTypeID BRNumberGetTypeID(void);

/* Makes a number from the value of that type at *value. NULL when value is NULL, the type is unknown or
 * memory runs out. */
BR_EXPORT BRNumberRef BRNumberCreate(BRAllocatorRef allocator, BRNumberType type, const void *value);

/* The type it was made with; 0 for NULL. */
BR_EXPORT BRNumberType BRNumberGetType(BRNumberRef number);

/* True for the two floating-point types. */
BR_EXPORT bool BRNumberIsFloat(BRNumberRef number);

/* Writes the number as the type into *value and tells whether nothing was lost, that is, whether what was
 * written compares equal to the number. Otherwise the nearest that the type has was written:
 *  - an integer type takes floating-point values without their fraction (toward zero), the end of its range
 * for what lies beyond, and 0 for NaN;
 *  - a floating-point type takes values rounded to nearest, ties to even; what is too large for a float
 * becomes infinity. NaN stays NaN, which counts as nothing lost. False, with nothing written, when number or
 * value is NULL or the type unknown. */
BR_EXPORT bool BRNumberGetValue(BRNumberRef number, BRNumberType type, void *value);

/* Orders by exact value, whatever the types: 2^53 + 1 as an integer is greater than 2^53 as a double. -0.0 is
 * equal to 0. Every NaN is equal to every other and less than all other numbers, so the order is total. NULL
 * comes first. */
BR_EXPORT BRComparisonResult BRNumberCompare(BRNumberRef a, BRNumberRef b);

/* The two booleans. */
BR_EXPORT extern const BRBooleanRef kBRBooleanTrue;
BR_EXPORT extern const BRBooleanRef kBRBooleanFalse;

/* The runtime type "BRBoolean". */
BR_EXPORT BRTypeID BRBooleanGetTypeID(void);

/* False for NULL. */
BR_EXPORT bool BRBooleanGetValue(BRBooleanRef boolean);

/* The one null: a value that says "none" where a NULL pointer cannot stand. */
BR_EXPORT extern const BRNullRef kBRNull;

/* The runtime type "BRNull". */
BR_EXPORT BRTypeID BRNullGetTypeID(void);

BR_END_DECLS

#endif
