// Frames per second.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

// count frames in so many seconds; both positive.
struct FrameRate {
  int32_t count = 0, seconds = 0;
};

// The rate in lowest terms; empty when it is 0, or they do not fit.
std::optional<FrameRate> makeFrameRate(uint64_t count, uint64_t seconds);

// "30000/1001", "25", "12.5"; empty for anything else.
std::optional<FrameRate> parseFrameRate(std::string_view text);
