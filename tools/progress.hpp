// How far the command is, on a terminal, when it takes long.
#pragma once

#include <chrono>
#include <cstdint>

// Standard error shows it, if that is a terminal and standard output is not the same one, from half a second
// on. The line is gone when the work is done.
class Progress {
 public:
  Progress();
  ~Progress() { clear(); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // Cheap: most calls only count.
  void show(const char* what, int64_t done, int64_t of) {
    if (isShown_ && ++calls_ % 256 == 0) update(what, done, of);
  }
  void clear();

 private:
  using Clock = std::chrono::steady_clock;

  void update(const char* what, int64_t done, int64_t of);

  bool isShown_;
  bool isWritten_ = false;
  uint32_t calls_ = 0;
  Clock::time_point next_;
};
