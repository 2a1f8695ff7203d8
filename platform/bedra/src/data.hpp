// Data for Bedra's own files.
#ifndef BEDRA_SRC_DATA_HPP
#define BEDRA_SRC_DATA_HPP

#include <bedra/data.h>

namespace br {

// Immutable data whose bytes the caller fills at once; null when memory runs out.
BRDataRef createDataToFill(BRAllocatorRef allocator, size_t lengthBytes, char** bytes);

}  // namespace br

#endif
