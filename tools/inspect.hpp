// pevrin inspect: the atoms, times, tracks and parameter sets of one file.
#pragma once

#include <string>

// What the program's exit status says.
enum ExitStatus { kSound = 0, kDamaged = 1, kFailed = 2 };

// Writes the report to standard output and what is wrong to standard error.
ExitStatus inspect(const std::string& fileName, bool json);

// "pevrin: FILE: message" on standard error.
void complain(const std::string& fileName, const std::string& message);
