// The atoms of an image description whose facts are extensions: 'colr', 'pasp', 'clap', 'fiel', 'gama',
// 'chrm'.
#ifndef PEVRIN_FORMATS_IMAGE_ATOMS_HPP
#define PEVRIN_FORMATS_IMAGE_ATOMS_HPP

#include "formats/extensions.hpp"
#include "formats/sample_description.hpp"

namespace pv::video {

// What an atom tells: a number below kImageSubjects, the same for atoms that set the same extensions; of
// others kImageSubjects.
inline constexpr size_t kImageSubjects = 7;
size_t subjectOf(const record::ExtensionAtom& atom);

// Sets what the atom says. False when it is none of the list, or says something that extensions cannot: its
// payload is then to be kept too.
bool readImageAtom(const record::ExtensionAtom& atom, DictionaryBuilder& extensions);

// Writes the atoms that the extensions call for, but those whose payload is among the extension atoms.
void writeImageAtoms(ByteWriter& writer, BRDictionaryRef extensions, record::Flavor flavor);

}  // namespace pv::video

#endif
