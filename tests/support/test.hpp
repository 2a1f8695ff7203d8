// What tests are made of: GoogleTest, Bedra, the everyday parts of the standard library, and an allocator
// that fails.
#ifndef TESTS_SUPPORT_TEST_HPP
#define TESTS_SUPPORT_TEST_HPP

#include <bedra/bedra.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <bedra/literal.hpp>
#include <bedra/object.hpp>
#include <bedra/ref.hpp>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <latch>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/failing_allocator.hpp"

#endif
