// pevrin inspect: the atoms, times, tracks, sample descriptions, parameter sets and samples of one file.
#pragma once

#include <string>

#include "damage.hpp"

// What the program's exit status says.
enum ExitStatus { kSound = 0, kDamaged = 1, kFailed = 2 };

struct InspectOptions {
  bool json = false;
  bool verify = false;   // a sample entry that the library would write otherwise counts as wrong, too
  bool samples = false;  // list the samples of a movie
};

// Writes the report to standard output and what is wrong to standard error.
ExitStatus inspect(const std::string& fileName, const InspectOptions& options);

// "pevrin: FILE: message" on standard error.
void complain(const std::string& fileName, const std::string& message);

// The same of something wrong in a file: where, and why.
void complainOf(const std::string& fileName, const Damage& damage);
