#include "terminal.hpp"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string_view>
#include <utility>

namespace {

constexpr std::pair<std::string_view, Key> kKeys[] = {
    {" ", Key::Space},     {"+", Key::Faster},     {"=", Key::Faster},  {"-", Key::Slower},
    {"\x1B[D", Key::Left}, {"\x1B[C", Key::Right}, {"r", Key::Reverse}, {"q", Key::Quit},
};

}  // namespace

Terminal::Terminal()
    : isThere_(isatty(STDIN_FILENO) && isatty(STDOUT_FILENO) && tcgetattr(STDIN_FILENO, &before_) == 0) {
  if (!isThere_) return;
  termios keys = before_;
  keys.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  keys.c_cc[VMIN] = 0;
  keys.c_cc[VTIME] = 0;
  tcsetattr(STDIN_FILENO, TCSANOW, &keys);
}

Terminal::~Terminal() {
  if (isThere_) tcsetattr(STDIN_FILENO, TCSANOW, &before_);
}

std::vector<Key> Terminal::readKeys() {
  char bytes[64];
  const ssize_t count = read(STDIN_FILENO, bytes, sizeof bytes);
  std::vector<Key> keys;
  if (count <= 0) {
    inputEnded_ = count == 0;
    return keys;
  }
  for (std::string_view pressed(bytes, static_cast<size_t>(count)); !pressed.empty();) {
    const auto known =
        std::ranges::find_if(kKeys, [&](const auto& key) { return pressed.starts_with(key.first); });
    if (known != std::end(kKeys)) keys.push_back(known->second);
    pressed.remove_prefix(known != std::end(kKeys) ? known->first.size() : 1);
  }
  return keys;
}

void Terminal::show(const std::vector<std::string>& lines) {
  std::string text;
  if (shown_) text += "\x1B[" + std::to_string(shown_) + "A";
  for (const std::string& line : lines) text += "\r\x1B[K" + line + "\n";
  shown_ = lines.size();
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fflush(stdout);
}
