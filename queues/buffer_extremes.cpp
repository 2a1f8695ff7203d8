#include "queues/buffer_extremes.hpp"

#include <cstring>

namespace pv {

namespace {

// How many names an insertion may change.
constexpr size_t kMostRenamed = 16;

PVTime timeOf(Extreme extreme, const StoreEntry& entry) {
  switch (extreme) {
    case Extreme::kMinPresentation:
    case Extreme::kMaxPresentation:
      return entry.presentation;
    case Extreme::kMinDecode:
      return entry.decode;
    case Extreme::kMaxEnd:
      return PVTimeAdd(entry.presentation, entry.duration);
  }
  return kPVTimeInvalid;
}

// Above 0 when a is strictly better than b, 0 when they are equal.
int32_t compareWorth(Extreme extreme, const PVTime& a, const PVTime& b) {
  const bool isMinimum = extreme == Extreme::kMinPresentation || extreme == Extreme::kMinDecode;
  return isMinimum ? PVTimeCompare(b, a) : PVTimeCompare(a, b);
}

// The better of two, of which either may be null; of equal ones the first.
StoreEntry* better(Extreme extreme, StoreEntry* first, StoreEntry* second) {
  if (!first || !second) return first ? first : second;
  return compareWorth(extreme, timeOf(extreme, *second), timeOf(extreme, *first)) > 0 ? second : first;
}

// Two that are equal, as times, but not the same: then it matters which is nearer to the head.
bool isSpelledAnew(Extreme extreme, const StoreEntry& a, const StoreEntry& b) {
  const PVTime x = timeOf(extreme, a), y = timeOf(extreme, b);
  return PVTimeCompare(x, y) == 0 && std::memcmp(&x, &y, sizeof x) != 0;
}

StoreEntry* ifValid(Extreme extreme, StoreEntry* entry) {
  return PVTimeIsValid(timeOf(extreme, *entry)) ? entry : nullptr;
}

StoreEntry*& bestFrom(Extreme extreme, StoreEntry* entry) {
  return entry->best[static_cast<size_t>(extreme)];
}

}  // namespace

void BufferExtremes::learn(Extreme extreme, const BufferStore& store) {
  StoreEntry* best = nullptr;
  for (size_t i = store.count(); i-- > 0;) {
    StoreEntry* entry = store.at(i);
    best = better(extreme, ifValid(extreme, entry), best);
    bestFrom(extreme, entry) = best;
  }
  known_[static_cast<size_t>(extreme)] = {true, store.count(), nullptr};
  ++knownCount_;
}

void BufferExtremes::unlearn(Known& known) {
  known.isKnown = false;
  --knownCount_;
}

PVTime BufferExtremes::of(Extreme extreme, const BufferStore& store) {
  Known& known = known_[static_cast<size_t>(extreme)];
  if (!known.isKnown) learn(extreme, store);
  StoreEntry* front = known.frontCount ? bestFrom(extreme, store.head()) : nullptr;
  StoreEntry* best = better(extreme, front, known.bestOfBack);
  return best ? timeOf(extreme, *best) : kPVTimeInvalid;
}

void BufferExtremes::insertedIntoKnown(size_t index, const BufferStore& store) {
  for (size_t i = 0; i < kExtremes; ++i) {
    if (!known_[i].isKnown) continue;
    if (index < known_[i].frontCount)
      insertedIntoFront(static_cast<Extreme>(i), index, store);
    else
      insertedIntoBack(static_cast<Extreme>(i), index, store);
  }
}

void BufferExtremes::insertedIntoFront(Extreme extreme, size_t index, const BufferStore& store) {
  Known& known = known_[static_cast<size_t>(extreme)];
  StoreEntry* entry = store.at(index);
  StoreEntry* candidate = ifValid(extreme, entry);
  ++known.frontCount;
  StoreEntry* following = bestFrom(extreme, store.at(index + 1));
  bestFrom(extreme, entry) = better(extreme, candidate, following);
  if (bestFrom(extreme, entry) == following) return;
  // Entries before it that name one behind it, or a worse one, name it now. None does before one that does
  // not.
  for (size_t i = index, left = kMostRenamed; i > 0; --i, --left) {
    StoreEntry*& best = bestFrom(extreme, store.at(i - 1));
    if (best != following && better(extreme, best, candidate) != candidate) return;
    if (left == 0) return cutFront(extreme, index, candidate, following);
    best = candidate;
  }
}

// Instead of many names the back changes, and now begins with the candidate. What the front names may stand
// in the back: it will be there as long as the entry that names it.
void BufferExtremes::cutFront(Extreme extreme, size_t index, StoreEntry* candidate, StoreEntry* following) {
  Known& known = known_[static_cast<size_t>(extreme)];
  known.frontCount = index;
  known.bestOfBack = better(extreme, candidate, known.bestOfBack);
  if (following && isSpelledAnew(extreme, *candidate, *following)) unlearn(known);
}

void BufferExtremes::insertedIntoBack(Extreme extreme, size_t index, const BufferStore& store) {
  Known& known = known_[static_cast<size_t>(extreme)];
  StoreEntry* candidate = ifValid(extreme, store.at(index));
  if (!candidate) return;
  if (!known.bestOfBack) {
    known.bestOfBack = candidate;
    return;
  }
  if (index + 1 < store.count() && isSpelledAnew(extreme, *candidate, *known.bestOfBack))
    unlearn(known);
  else
    known.bestOfBack = better(extreme, known.bestOfBack, candidate);
}

void BufferExtremes::removesKnownHead(const BufferStore& store) {
  for (Known& known : known_) {
    if (!known.isKnown) continue;
    if (known.frontCount)
      --known.frontCount;
    else if (known.bestOfBack == store.head())
      unlearn(known);
  }
}

}  // namespace pv
