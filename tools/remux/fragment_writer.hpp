// Movie fragments: 'moof' and 'mdat' by turns (ISO/IEC 14496-12 8.8).
#pragma once

#include <cstdint>

#include "fragment_plan.hpp"
#include "media_writer.hpp"
#include "movie_file.hpp"
#include "output_file.hpp"

class FragmentWriter {
 public:
  FragmentWriter(const MovieFile& movie, OutputFile& output, MediaWriter& media)
      : movie_(movie), output_(output), media_(media) {}

  void write(const Fragment& fragment);

 private:
  // dataOffset: of the fragment's media data from the start of the 'moof'.
  br::Ref<PVBlockBuffer> build(const Fragment& fragment, uint64_t dataOffset) const;
  void writeTrack(KivAtomWriter& moof, size_t track, const std::vector<MovieSample>& samples,
                  uint64_t dataOffset) const;

  const MovieFile& movie_;
  OutputFile& output_;
  MediaWriter& media_;
  uint32_t sequence_ = 1;
};
