// What the dictionary and text forms of times, ranges and mappings share.
#ifndef PEVRIN_FOUNDATION_TIME_FORMS_HPP
#define PEVRIN_FOUNDATION_TIME_FORMS_HPP

#include <bedra/dictionary.h>
#include <bedra/string.h>

namespace pv {

// The value under the key; null when the object is not a dictionary or lacks it.
BRTypeRef valueInDictionary(BRTypeRef dictionary, BRStringRef key);

// Prints the description to standard error, if it exists and fits the line buffer, and releases it.
void showAndRelease(BRStringRef description);

}  // namespace pv

#endif
