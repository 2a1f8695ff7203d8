// How the calendar's clock and the monotonic one stand to each other at this moment.
#ifndef BEDRA_SRC_CLOCK_OFFSET_HPP
#define BEDRA_SRC_CLOCK_OFFSET_HPP

#include <cstdint>

namespace br {

struct ClockOffset {
  int64_t calendarAheadNs;  // absolute time less monotonic time; changes when the calendar's clock is set
  int64_t lastTickNs;       // of monotonic time: some milliseconds ago
};

// Exact, and quicker than a reading of either clock.
ClockOffset readClockOffset();

}  // namespace br

#endif
