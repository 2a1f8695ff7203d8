// Key spaces, as they are given and as identifiers write them.
#ifndef PEVRIN_METADATA_KEY_SPACE_HPP
#define PEVRIN_METADATA_KEY_SPACE_HPP

#include "metadata/escapes.hpp"

namespace pv::metadata {

// What an identifier writes for a key space that was given, escapes and all; null when it is none, or memory
// runs out.
String writtenKeySpace(BRStringRef keySpace);

// The other way, with the escapes undone; null when no key space is written so, or memory runs out.
String givenKeySpace(BRAllocatorRef allocator, BRStringRef written);

// Of a key space as an identifier writes it: whether its keys are four bytes, and whether a leading '@' means
// 0xA9.
bool hasFourByteKeys(BRStringRef written);
bool hasCopyrightKeys(BRStringRef written);

}  // namespace pv::metadata

#endif
