// Included by every benchmark program: it starts and ends a second thread before anything is measured. Until a process
// has had one, the C library and shared_ptr leave out atomic work, which no player gets for free.
#ifndef BENCH_SECOND_THREAD_HPP
#define BENCH_SECOND_THREAD_HPP

#include <thread>

[[maybe_unused]] inline const bool hadSecondThread = [] {
  std::thread([] {}).join();
  return true;
}();

#endif
