#include "unit_scan.hpp"

#include <cstring>

size_t findStartCode(std::span<const uint8_t> bytes, size_t from) {
  for (size_t at = from + 2; at < bytes.size(); ++at) {
    const void* one = std::memchr(bytes.data() + at, 1, bytes.size() - at);
    if (!one) break;
    at = static_cast<size_t>(static_cast<const uint8_t*>(one) - bytes.data());
    if (bytes[at - 1] == 0 && bytes[at - 2] == 0) return at - 2;
  }
  return bytes.size();
}

std::optional<UnitPlace> UnitScan::next() {
  while (code_ < bytes_.size()) {
    const size_t begin = code_ + kStartCodeBytes;
    code_ = findStartCode(bytes_, begin);
    size_t end = code_;
    while (end > begin && bytes_[end - 1] == 0) --end;
    if (end > begin) return UnitPlace{static_cast<int64_t>(begin), static_cast<int64_t>(end - begin)};
  }
  return std::nullopt;
}
