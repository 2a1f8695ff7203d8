#include "queues/buffer_extremes.hpp"

#include <cstring>

namespace pv {

namespace {

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
  StoreEntry* entry = store.at(index);
  StoreEntry* candidate = ifValid(extreme, entry);
  ++known_[static_cast<size_t>(extreme)].frontCount;
  StoreEntry* following = bestFrom(extreme, store.at(index + 1));
  StoreEntry* best = better(extreme, candidate, following);
  bestFrom(extreme, entry) = best;
  if (best == following) return;
  // Entries before it that name one behind it, or a worse one, name it now. None does before one that does
  // not.
  for (size_t i = index; i-- > 0;) {
    StoreEntry*& other = bestFrom(extreme, store.at(i));
    if (other != following && better(extreme, other, candidate) != candidate) break;
    other = candidate;
  }
}

void BufferExtremes::insertedIntoBack(Extreme extreme, size_t index, const BufferStore& store) {
  Known& known = known_[static_cast<size_t>(extreme)];
  StoreEntry* candidate = ifValid(extreme, store.at(index));
  if (!candidate) return;
  if (!known.bestOfBack) {
    known.bestOfBack = candidate;
    return;
  }
  const PVTime time = timeOf(extreme, *candidate), best = timeOf(extreme, *known.bestOfBack);
  const int32_t worth = compareWorth(extreme, time, best);
  if (worth > 0) known.bestOfBack = candidate;
  // Which of two equal ones is nearer to the head is not known, and matters when they are spelled
  // differently.
  if (worth == 0 && index + 1 < store.count() && std::memcmp(&time, &best, sizeof time) != 0) unlearn(known);
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
