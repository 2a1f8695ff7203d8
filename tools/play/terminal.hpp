// The terminal that a command is used from: single keys, and lines that are written over.
#pragma once

#include <termios.h>

#include <string>
#include <vector>

enum class Key { Space, Faster, Slower, Left, Right, Reverse, Quit };

// Keys come as they are pressed while this lives; what the terminal was is put back at the end.
class Terminal {
 public:
  Terminal();
  ~Terminal();
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  // Whether there is one: standard input and standard output are.
  bool isThere() const { return isThere_; }
  // The keys that were pressed since, without those that mean nothing.
  std::vector<Key> readKeys();
  // Whether the input has ended.
  bool inputEnded() const { return inputEnded_; }
  // Writes the lines over those shown before.
  void show(const std::vector<std::string>& lines);

 private:
  termios before_{};
  bool isThere_;
  bool inputEnded_ = false;
  size_t shown_ = 0;
};
