#include "frame_rate.hpp"

#include <charconv>
#include <numeric>

namespace {

// A whole number; empty for anything else.
std::optional<uint64_t> parseNumber(std::string_view text) {
  constexpr size_t kMostDigits = 10;
  uint64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  const bool isWhole = error == std::errc() && end == text.data() + text.size();
  return isWhole && text.size() <= kMostDigits ? std::optional(value) : std::nullopt;
}

}  // namespace

std::optional<FrameRate> makeFrameRate(uint64_t count, uint64_t seconds) {
  if (count == 0 || seconds == 0) return std::nullopt;
  const uint64_t divisor = std::gcd(count, seconds);
  count /= divisor;
  seconds /= divisor;
  if (count > INT32_MAX || seconds > INT32_MAX) return std::nullopt;
  return FrameRate{static_cast<int32_t>(count), static_cast<int32_t>(seconds)};
}

std::optional<FrameRate> parseFrameRate(std::string_view text) {
  const size_t mark = text.find_first_of("/.");
  const auto whole = parseNumber(text.substr(0, mark));
  if (!whole) return std::nullopt;
  if (mark == std::string_view::npos) return makeFrameRate(*whole, 1);
  const std::string_view rest = text.substr(mark + 1);
  const auto part = parseNumber(rest);
  if (!part) return std::nullopt;
  if (text[mark] == '/') return makeFrameRate(*whole, *part);
  uint64_t scale = 1;
  for (size_t i = 0; i < rest.size(); ++i) scale *= 10;
  if (scale > UINT32_MAX) return std::nullopt;
  return makeFrameRate(*whole * scale + *part, scale);
}
