// Weak references.
#include <bedra/weak_reference.h>

#include "src/internal.hpp"

void br::clearWeakReferences(BRObject*) {}
