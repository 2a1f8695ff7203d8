// An elementary stream as a movie of one track.
#pragma once

#include <bedra/ref.hpp>
#include <optional>

#include "elementary/elementary_video.hpp"
#include "movie_file.hpp"

// The movie has a header and no media: where it says that samples are says nothing, and their buffers are
// made by the video. The picture that is shown first is shown at the movie's beginning, by an edit.
class ElementaryMovie {
 public:
  // Throws RemuxFailure. The video must stay.
  explicit ElementaryMovie(const ElementaryVideo& video);

  const MovieFile& movie() const { return *movie_; }

 private:
  br::Ref<PVBaseObject> stream_;
  std::optional<MovieFile> movie_;
};
