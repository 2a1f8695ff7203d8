// pevrin inspect: the atoms, times, tracks, sample descriptions and parameter sets of one file.
#pragma once

#include <string>

// What the program's exit status says.
enum ExitStatus { kSound = 0, kDamaged = 1, kFailed = 2 };

// Writes the report to standard output and what is wrong to standard error. With verify a sample entry that
// the library would write otherwise counts as wrong too.
ExitStatus inspect(const std::string& fileName, bool json, bool verify);

// "pevrin: FILE: message" on standard error.
void complain(const std::string& fileName, const std::string& message);
