// ID3v2 tags, versions 3 and 4.
#pragma once

#include <pevrin/base.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>

struct ID3Frame {
  PVFourCharCode id;
  std::string_view name;            // of a 'TXXX' or 'COMM', which may come more than once
  std::optional<std::string> text;  // of text frames and comments, in UTF-8
  std::span<const uint8_t> data;    // of all others
};

// Hands on frame after frame. False when the bytes are no such tag, or the frames do not fit in it.
bool readID3Tag(std::span<const uint8_t> tag, const std::function<void(const ID3Frame&)>& use);
