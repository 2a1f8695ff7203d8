// Operations on block buffers, against plain vectors of bytes.
#include "tests/support/block_buffer_model.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  test::BlockBufferModel(std::span(data, size)).run();
  return 0;
}
