// What kind of file is to be inspected.
#pragma once

#include <kiv/byte_stream.h>

#include <optional>
#include <string>

#include "parameter_sets.hpp"

struct FileKind {
  bool movie = true;           // atoms; else an elementary stream or a single parameter set
  std::optional<Codec> codec;  // as far as the name, or a single parameter set, tells
};

// The content decides: the header of an atom, a start code, a parameter set that can be read. The name
// decides when the content fits nothing.
FileKind fileKindOf(KivByteStreamRef file, int64_t fileSize, const std::string& fileName);
