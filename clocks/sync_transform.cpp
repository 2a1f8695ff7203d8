// The arithmetic of sync transforms.
#include "clocks/sync_transform.hpp"

#include <cmath>

#include "runtime/error.hpp"

using pv::signalError;

namespace {

constexpr uint32_t kNotNumeric =
    29;  // valid, turned over by subtracting 1, and the bits of infinite and indefinite
constexpr int32_t kFineTimescale = 1'000'000'000;
constexpr double kLargestExactProduct = 2251799813685248.0;  // 2^51, beyond which products count as rounded

PVStatus missing() { return signalError(kPVSyncError_RequiredParameterMissing); }

uint32_t mergedFlags(uint32_t flags) { return flags & (kPVTimeFlags_Valid | kPVTimeFlags_HasBeenRounded); }
bool areNumeric(uint32_t flagsA, uint32_t flagsB, uint32_t flagsC) {
  return (((flagsA - 1) | (flagsB - 1) | (flagsC - 1)) & kNotNumeric) == 0;
}
bool hasNumericAnchors(const PVSyncTransform& transform) {
  return areNumeric(transform.fromAnchor.flags, transform.toAnchor.flags, kPVTimeFlags_Valid);
}

[[gnu::noinline]] PVTime applyAny(const PVSyncTransform& transform, const PVTime& time) {
  const PVTime elapsed = PVTimeSubtract(time, transform.fromAnchor);
  return PVTimeAdd(PVTimeMultiplyByFloat64(elapsed, transform.rate), transform.toAnchor);
}

// The same for numbers, in place as far as no step changes the timescale: where both have one, or an anchor
// of value 0 takes the other operand's; where the product is exact to the unit, which takes a fine timescale
// or a whole rate; where there are no epochs.
PVTime apply(const PVSyncTransform& transform, const PVTime& time) {
  const PVTime &from = transform.fromAnchor, &to = transform.toAnchor;
  int64_t elapsed, sum;
  if ((time.timescale != from.timescale && from.value != 0) || (time.epoch | from.epoch | to.epoch) != 0 ||
      __builtin_sub_overflow(time.value, from.value, &elapsed)) [[unlikely]]
    return applyAny(transform, time);
  if (time.timescale < kFineTimescale && std::trunc(transform.rate) != transform.rate) [[unlikely]]
    return applyAny(transform, time);
  const double product = static_cast<double>(elapsed) * transform.rate;
  if (!(std::fabs(product) < kLargestExactProduct)) [[unlikely]]  // NaN is not
    return applyAny(transform, time);
  const auto mapped = static_cast<int64_t>(product + std::copysign(0.5, product));
  const bool isInOneTimescale = time.timescale == to.timescale || (to.value == 0 && mapped != 0);
  if (!isInOneTimescale || __builtin_add_overflow(mapped, to.value, &sum)) [[unlikely]]
    return PVTimeAdd({mapped, time.timescale, mergedFlags(time.flags | from.flags), 0}, to);
  return {sum, time.timescale, mergedFlags(time.flags | from.flags | to.flags), 0};
}

}  // namespace

PVTime KivSyncApplyTransform(const PVSyncTransform* transform, PVTime time) {
  if (transform && areNumeric(time.flags, transform->fromAnchor.flags, transform->toAnchor.flags)) [[likely]]
    return apply(*transform, time);
  missing();
  return kPVTimeInvalid;
}

PVStatus KivSyncCombineTransforms(const PVSyncTransform* first, const PVSyncTransform* second,
                                  PVSyncTransform* combinedOut) {
  if (!first || !second || !combinedOut) return missing();
  if (!hasNumericAnchors(*first) || !hasNumericAnchors(*second))
    return signalError(kPVSyncError_InvalidParameter);
  *combinedOut = {first->fromAnchor, first->rate * second->rate, apply(*second, first->toAnchor)};
  return kPVStatus_Success;
}

PVStatus KivSyncInvertTransform(const PVSyncTransform* transform, PVSyncTransform* inverseOut) {
  if (!transform || !inverseOut || !hasNumericAnchors(*transform)) return missing();
  if (transform->rate == 0.0) return signalError(kPVSyncError_RateMustBeNonZero);
  *inverseOut = {transform->toAnchor, 1.0 / transform->rate, transform->fromAnchor};
  return kPVStatus_Success;
}
