// The 'avcC' and 'hvcC' atoms of movies, which hold the parameter sets of a track (ISO/IEC
// 14496-15 5.3.3, 8.3.3).
#pragma once

#include <kiv/atom_stream.h>

#include "parameter_sets.hpp"

// The codec whose sets atoms of this type hold.
std::optional<Codec> codecOfRecord(PVFourCharCode type);

// Hands on all sets of the record that stream stands on. atomOffset and path are those of the atom.
void visitConfigurationRecord(Codec codec, const KivAtomStream* stream, int64_t atomOffset,
                              const std::string& path, ParameterSetVisitor& visitor);
