// Something wrong with a file, and where.
#pragma once

#include <pevrin/base.h>

#include <cstdint>
#include <string>

struct Fault {
  PVStatus status;
  std::string message;
};

struct Damage {
  std::string path;  // "moov/trak[2]/mdia": the atom concerned; empty for the file itself
  int64_t offset;    // in the file
  PVStatus status;
  std::string message;
};
