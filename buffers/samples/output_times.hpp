// Where samples stand when the edits of their buffer are applied.
#ifndef PEVRIN_BUFFERS_SAMPLES_OUTPUT_TIMES_HPP
#define PEVRIN_BUFFERS_SAMPLES_OUTPUT_TIMES_HPP

#include "buffers/samples/sample_buffer.hpp"

namespace pv::sample {

// What is trimmed of a run of samples.
struct Trimmed {
  PVTime atStart, atEnd;
};

// The output of a whole buffer, and where runs of its samples stand in it. The buffer has timing.
class OutputTimes {
 public:
  explicit OutputTimes(const PVSampleBuffer& buffer);

  // The share that a run of samples has in the trims: the run begins `elapsed` after the buffer's first
  // sample.
  Trimmed trimmed(PVTime elapsed, PVTime duration) const;
  // Where a run that begins at a presentation time comes to stand.
  PVTime place(PVTime presentation, PVTime duration, const Trimmed& trims) const;
  // A distance at the buffer's speed.
  PVTime scaled(PVTime distance) const;

  // Whether a run that is a buffer of its own would come to stand elsewhere.
  bool movesPieces() const { return edits_.hasSpeed || PVTimeIsNumeric(edits_.clientPresentation); }

 private:
  Edits edits_;
  PVTime duration_;  // before edits
  PVTime natural_;   // the output presentation time, were it not the client's to set
  PVTime output_;    // the output presentation time
  PVTime kept_;      // the duration without the trims
};

}  // namespace pv::sample

#endif
