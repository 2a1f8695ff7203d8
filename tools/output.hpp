// Standard output in large writes, and what became of it.
#pragma once

#include <fmt/format.h>

#include <iterator>
#include <string_view>
#include <utility>

class Output {
 public:
  template <typename... Arguments>
  void print(fmt::format_string<Arguments...> format, Arguments&&... arguments) {
    fmt::format_to(std::back_inserter(buffer_), format, std::forward<Arguments>(arguments)...);
    if (buffer_.size() >= kFlushBytes) flush();
  }
  void write(std::string_view text) {
    buffer_.append(text);
    if (buffer_.size() >= kFlushBytes) flush();
  }

  // Hands everything to the system; false when that failed, now or before.
  bool flush();
  // The errno of the first failure, after which everything is dropped; 0 for none.
  int error() const { return error_; }

 private:
  static constexpr size_t kFlushBytes = 1 << 16;
  fmt::memory_buffer buffer_;
  int error_ = 0;
};
