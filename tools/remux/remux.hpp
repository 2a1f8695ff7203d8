// pevrin remux: the samples of a movie in another file, not encoded anew.
#pragma once

#include <pevrin/time.h>

#include <optional>
#include <string>

#include "elementary/frame_rate.hpp"
#include "inspect.hpp"

struct RemuxOptions {
  std::optional<PVTime> fragment;  // the least length of a fragment; without it there are none
  bool fastStart = false;          // the header before the media data
  std::optional<FrameRate> rate;   // of an elementary stream; without it the one that the stream tells
};

// Says on standard error why not. kDamaged: the input is damaged, and nothing was written.
ExitStatus remux(const std::string& input, const std::string& output, const RemuxOptions& options);
