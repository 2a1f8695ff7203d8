// The parameter sets of an elementary stream in byte stream format (Annex B of ITU-T H.264 and of H.265), or
// of a file that is one parameter set without a start code.
#pragma once

#include <kiv/byte_stream.h>

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "parameter_sets.hpp"

// A NAL unit between its start code and the next one, without the zero bytes that may follow it.
struct NalUnit {
  int64_t offset = 0;
  int64_t length = 0;
  std::array<uint8_t, 2> header{};  // of which it has as many as it is long

  std::span<const uint8_t> beginning() const {
    return std::span(header).first(static_cast<size_t>(length < 2 ? length : 2));
  }
};

// Finds the NAL units of a file of any size, one after another, in a window that moves over it.
class NalUnitScan {
 public:
  NalUnitScan(KivByteStreamRef file, int64_t fileSize) : file_(file), fileSize_(fileSize) {}

  // Empty behind the last one, and when the file could not be read.
  std::optional<NalUnit> next();

  PVStatus status() const { return status_; }
  // Of what comes before the first start code, zero bytes aside.
  int64_t strayBytes() const { return strayBytes_; }

 private:
  static constexpr size_t kWindowBytes = 1 << 18;
  // So much of a window stands in the next one too: a start code is taken with the two bytes behind it.
  static constexpr size_t kOverlapBytes = 4;

  bool moveWindow();
  bool isLastWindow() const { return windowStart_ + static_cast<int64_t>(window_.size()) >= fileSize_; }
  std::optional<int64_t> findStartCode();
  int64_t endBefore(int64_t offset) const;
  NalUnit finish(int64_t end);

  KivByteStreamRef file_;
  int64_t fileSize_;
  std::vector<uint8_t> window_;
  int64_t windowStart_ = 0;
  int64_t searched_ = 0;      // no start code begins before this that was not found
  int64_t endOfNonZero_ = 0;  // behind the last byte before the window that is not 0
  std::optional<NalUnit> open_;
  bool begun_ = false, done_ = false;
  int64_t strayBytes_ = 0;
  PVStatus status_ = kPVStatus_Success;
};

// The codec of the file's parameter sets: the preferred one if there is a set of it, else the one of which
// there is the first. Without any the preferred one, or H.264.
Codec codecOfStream(KivByteStreamRef file, int64_t fileSize, std::optional<Codec> preferred);

// Hands on every set of the file; a set that is the same, byte for byte, as one before it is passed over.
void visitElementaryStream(KivByteStreamRef file, int64_t fileSize, Codec codec,
                           ParameterSetVisitor& visitor);
