// pevrin play: the samples of a movie, delivered when their time has come.
#pragma once

#include <pevrin/time.h>

#include <optional>
#include <string>

#include "inspect.hpp"

struct PlayOptions {
  double rate = 1;  // not 0
  std::optional<PVTime> start, duration;
  bool json = false;
};

ExitStatus play(const std::string& fileName, const PlayOptions& options);
