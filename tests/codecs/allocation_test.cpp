// Sets are parsed without a request for memory. Requests are counted by standing in for malloc, which
// sanitizers do themselves: their builds have no such test.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define SANITIZED 1
#endif
#endif
#ifndef SANITIZED

#include <bedra/runtime.h>
#include <gtest/gtest.h>
#include <kiv/h264_bridge.h>
#include <kiv/h264_slice.h>

#include <cstdlib>

#include "tests/codecs/h264_samples.hpp"

extern "C" void* __libc_malloc(size_t size);

namespace {
thread_local uint64_t requests = 0;
}

extern "C" __attribute__((visibility("default"))) void* malloc(size_t size) noexcept {
  ++requests;
  return __libc_malloc(size);
}

namespace {

using namespace test;

TEST(Allocations, AreCountedInTheLibraryToo) {
  const uint64_t before = requests;
  BRDataRef record = nullptr;
  EXPECT_EQ(KivH264Bridge_CreateAVCCFromSPSAndPPS(nullptr, kHighSPS.data(), kHighSPS.size(), kHighPPS.data(),
                                                  kHighPPS.size(), 4, &record),
            0);
  EXPECT_GE(requests - before, 3u);
  BRRelease(record);
}

// With emulation prevention bytes and without; a slice of a usual size.
TEST(Allocations, AreNotNeededToParse) {
  const Bytes plain = SPSFields{.profile = 100, .crop = {0, 0, 0, 4}}.unit();
  Bytes slice = {0x65, 0x88, 0x84, 0x00, 0x47, 0xD2, 0xAC};
  for (int i = 0; i < 30000; ++i) slice.push_back(i % 7 == 0 ? 3 : 0);
  const uint64_t before = requests;
  KivH264ParsedSPS sps;
  size_t clear = 0;
  int32_t width = 0, height = 0;
  for (const Bytes* set : {&plain, &kHighSPS, &kInterlacedSPS})
    if (KivH264Bridge_ParseSPS(set->data(), set->size(), &sps) == 0)
      KivH264Bridge_GetSPSWidthAndHeight(set->data(), set->size(), &width, &height);
  const PVStatus measured =
      KivH264Bridge_MeasureSliceHeader(slice.data(), slice.size(), kHighSPS.data(), kHighSPS.size(),
                                       kHighPPS.data(), kHighPPS.size(), nullptr, &clear);
  EXPECT_EQ(requests, before);
  EXPECT_EQ(width, 704);
  EXPECT_EQ(measured, 0);
  EXPECT_EQ(clear, 5u);
}

}  // namespace

#endif
#endif
