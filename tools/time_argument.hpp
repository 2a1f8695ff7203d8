// Times on the command line.
#pragma once

#include <pevrin/time.h>

#include <optional>
#include <string>

// "2s", "2.5s", "500ms", "2": seconds without a unit. Nothing for what is no time, or is below 0.
std::optional<PVTime> parseTime(const std::string& text);
