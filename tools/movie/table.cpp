#include "table.hpp"

#include <fmt/format.h>

#include <algorithm>

std::optional<Fault> AtomFields::read(const KivAtomStream* stream, uint8_t lastVersion, size_t count) {
  int64_t length = 0;
  KivAtomStreamGetCurrentAtomTypeAndDataLength(stream, nullptr, &length);
  const size_t wanted = 4 + count;
  const PVStatus status = length < static_cast<int64_t>(wanted)
                              ? static_cast<PVStatus>(kKivAtomStreamError_OutOfBounds)
                              : KivAtomStreamReadCurrentAtomData(stream, 0, wanted, bytes_.data());
  if (status == kKivAtomStreamError_OutOfBounds)
    return Fault{status,
                 fmt::format("its data are {} bytes, too few for its {} bytes of fields", length, wanted)};
  if (status != kPVStatus_Success) return Fault{status, "its data could not be read"};
  if (version() > lastVersion)
    return Fault{kKivAtomStreamError_MalformedAtom, fmt::format("its version {} is not known", version())};
  return std::nullopt;
}

std::optional<Fault> Table::read(const KivAtomStream* stream, int64_t dataOffset, uint64_t count,
                                 unsigned entryBits) {
  int64_t length = 0;
  KivAtomStreamGetCurrentAtomTypeAndDataLength(stream, nullptr, &length);
  const uint64_t room = length > dataOffset ? static_cast<uint64_t>(length - dataOffset) * 8 / entryBits : 0;
  const uint64_t kept = std::min(count, room);
  state_ = State::Unreadable;
  if (kept > 0) {
    const size_t size = (kept * entryBits + 7) / 8;
    bytes_ = std::make_unique_for_overwrite<uint8_t[]>(size);
    if (PVStatus status = KivAtomStreamReadCurrentAtomData(stream, dataOffset, size, bytes_.get()))
      return Fault{status, "its data could not be read"};
  }
  count_ = kept;
  state_ = State::Read;
  if (kept == count) return std::nullopt;
  return Fault{kKivAtomStreamError_OutOfBounds,
               fmt::format("it lists {} entries but has room for {}", count, room)};
}
