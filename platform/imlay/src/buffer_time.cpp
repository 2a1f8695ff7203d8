// The keys of an image buffer's times.
#include <imlay/buffer_time.h>
#include <bedra/literal.hpp>

using namespace br::literals;

extern "C" {
constinit const BRStringRef kIMBufferTimeValueKey = "TimeValue"_br;
constinit const BRStringRef kIMBufferTimeScaleKey = "TimeScale"_br;
}
