#include "time_argument.hpp"

#include <charconv>
#include <string_view>

std::optional<PVTime> parseTime(const std::string& text) {
  double number = 0;
  const char* end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  const std::string_view unit(rest, static_cast<size_t>(end - rest));
  if (error != std::errc() || !(number >= 0) || (unit != "s" && unit != "ms" && !unit.empty()))
    return std::nullopt;
  const PVTime time = PVTimeMakeWithSeconds(unit == "ms" ? number / 1000 : number, 90000);
  return PVTimeIsNumeric(time) ? std::optional(time) : std::nullopt;
}
