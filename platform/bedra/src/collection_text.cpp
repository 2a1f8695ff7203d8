#include "src/collection_text.hpp"

#include <bedra/runtime.h>

#include <algorithm>
#include <cstdio>

#include "src/string.hpp"

namespace br {

namespace {

constexpr unsigned kMostLevels = 16;
constexpr size_t kMostBytes = 256 * 1024;

constinit thread_local unsigned level = 0;
constinit thread_local size_t bytesLeft = 0;

constexpr std::string_view kIndent = "    ";

}  // namespace

CollectionText::CollectionText(const Style& style, size_t count) : style_(style), left_(count) {
  if (level++ == 0) bytesLeft = kMostBytes;
  text_.append(style_.open);
}

CollectionText::~CollectionText() { --level; }

bool CollectionText::next() {
  if (left_ == 0 || level > kMostLevels || bytesLeft == 0) return false;
  if (!isFirst_) text_.append(style_.separator);
  isFirst_ = false;
  text_.append("\n");
  text_.append(kIndent);
  --left_;
  return true;
}

void CollectionText::append(const void* value, BRStringRef (*copyDescription)(const void*)) {
  if (BRStringRef description = copyDescription ? copyDescription(value) : nullptr) {
    appendIndented(textOf(description));
    BRRelease(description);
    return;
  }
  char word[24];
  appendIndented({word, static_cast<size_t>(std::snprintf(word, sizeof word, "%p", value))});
}

// Every line of a nested text moves in with its element.
void CollectionText::appendIndented(std::string_view text) {
  bytesLeft -= std::min(bytesLeft, text.size());
  for (;;) {
    const size_t newline = text.find('\n');
    text_.append(text.substr(0, newline == text.npos ? newline : newline + 1));
    if (newline == text.npos) return;
    text_.append(kIndent);
    text.remove_prefix(newline + 1);
  }
}

BRStringRef CollectionText::finish() {
  if (!isFirst_) text_.append(left_ ? style_.separator : style_.end);
  if (left_ > 0) {
    char more[48];
    text_.append({more, static_cast<size_t>(std::snprintf(more, sizeof more,
                                                          isFirst_ ? "… %zu" : "\n    … %zu more", left_))});
  }
  if (!isFirst_) text_.append('\n');
  text_.append(style_.close);
  return text_.failed() ? nullptr : createStringWithText(nullptr, text_.text());
}

}  // namespace br
