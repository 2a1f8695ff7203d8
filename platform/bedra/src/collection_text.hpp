// How collections describe themselves:
//
//   {                      [                    []
//       rate = 48000;          left,
//       marks = [              right
//           1,             ]
//           2
//       ];
//   }
//
// Bounded in depth and in length, since a description is for reading: what does not fit is counted. The
// bounds hold for a whole description, nested ones included, so they live with the thread.
#ifndef BEDRA_SRC_COLLECTION_TEXT_HPP
#define BEDRA_SRC_COLLECTION_TEXT_HPP

#include <bedra/base.h>

#include "src/byte_buffer.hpp"

namespace br {

class CollectionText {
 public:
  // The brackets, what stands behind each element but the last one, and what behind the last.
  struct Style {
    char open, close;
    std::string_view separator, end;
  };

  CollectionText(const Style& style, size_t count);
  ~CollectionText();

  // Starts the next element. False when there is no room for it or the rest: stop there.
  bool next();
  // Appends the text of a key or value; without a callback, the word itself.
  void append(const void* value, BRStringRef (*copyDescription)(const void*));
  void append(std::string_view text) { text_.append(text); }

  // The whole text; NULL when memory runs out.
  BRStringRef finish();

 private:
  void appendIndented(std::string_view text);

  Style style_;
  size_t left_;  // elements not started
  bool isFirst_ = true;
  TextBuffer text_{nullptr};
};

}  // namespace br

#endif
