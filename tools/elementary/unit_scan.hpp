// The NAL units of a byte stream that is in memory (Annex B of ITU-T H.264 and of H.265).
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

// Where the next 00 00 01 begins, at `from` or behind it; the size when there is none.
size_t findStartCode(std::span<const uint8_t> bytes, size_t from);

// A NAL unit without its start code and the zero bytes that may follow it.
struct UnitPlace {
  int64_t offset = 0;
  int64_t length = 0;
};

// Finds the units between two places, one after another; start codes that nothing follows are passed over.
class UnitScan {
 public:
  static constexpr int64_t kStartCodeBytes = 3;

  UnitScan(std::span<const uint8_t> bytes, int64_t begin, int64_t end)
      : bytes_(bytes.first(static_cast<size_t>(end))),
        code_(findStartCode(bytes_, static_cast<size_t>(begin))) {}

  std::optional<UnitPlace> next();

 private:
  std::span<const uint8_t> bytes_;
  size_t code_;  // where the next start code begins
};
