// Numbers as movie files store them, at any address.
#pragma once

#include <cstdint>
#include <cstring>

inline uint16_t bigEndian16(const uint8_t* from) { return static_cast<uint16_t>(from[0] << 8 | from[1]); }
inline uint32_t bigEndian32(const uint8_t* from) {
  return uint32_t{from[0]} << 24 | uint32_t{from[1]} << 16 | uint32_t{from[2]} << 8 | from[3];
}
inline uint64_t bigEndian64(const uint8_t* from) {
  return uint64_t{bigEndian32(from)} << 32 | bigEndian32(from + 4);
}
