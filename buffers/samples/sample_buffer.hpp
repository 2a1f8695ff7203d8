// The sample buffer as an object.
//
// Representation: one block. Behind the struct stand the timing entries, then, when there are several, one
// more with what they come to together; then the size entries, then room for the packet descriptions. How
// many there are of each follows from the number of samples and three small fields, so that a buffer of one
// frame takes 192 bytes. What few buffers have (edits, something to call at invalidation) is in a block of
// its own, made when it is first set.
//
// Invariants: of 2 or more timing or size entries there are as many as samples. A tracked buffer is held only
// while this one is neither ready nor failed. `edits` of the rare part always say what the attachments say.
#ifndef PEVRIN_BUFFERS_SAMPLES_SAMPLE_BUFFER_HPP
#define PEVRIN_BUFFERS_SAMPLES_SAMPLE_BUFFER_HPP

#include <bedra/array.h>
#include <pevrin/sample_buffer.h>
#include <pevrin/sample_buffer_data.h>

#include <bedra/object.hpp>
#include <bedra/ref.hpp>
#include <span>

#include "runtime/attachment_store.hpp"
#include "runtime/error.hpp"

namespace pv::sample {

// How many entries stand for the samples.
enum class Form : uint8_t { kNone, kOne, kEach };

// What a buffer is made for; the counts are consistent (isConsistent).
struct Shape {
  int64_t samples = 0;
  int64_t timing = 0;
  int64_t sizes = 0;
  bool packets = false;  // room for the packet descriptions
};

// The edits that are attached, read when they are set, and the client's own output presentation time.
struct Edits {
  PVTime clientPresentation{};
  PVTime trimAtStart{}, trimAtEnd{};  // meaningful when they are there
  double speed = 1;
  bool hasTrimAtStart = false, hasTrimAtEnd = false, hasSpeed = false, reversed = false;

  bool trims() const { return hasTrimAtStart || hasTrimAtEnd; }
};

struct RarePart {
  PVSampleBufferInvalidateCallback invalidate = nullptr;
  void* invalidateRefCon = nullptr;
  PVSampleBufferInvalidateHandler handler{};  // with its own context; invoke is null when there is none
  Edits edits;
};

}  // namespace pv::sample

struct PVSampleBuffer : BRObject {
  using Form = pv::sample::Form;
  static constexpr const char* className = "PVSampleBuffer";

  explicit PVSampleBuffer(const pv::sample::Shape& shape)
      : numSamples(shape.samples),
        timingForm(formOf(shape.timing)),
        sizeForm(formOf(shape.sizes)),
        hasPacketRoom(shape.packets) {}
  ~PVSampleBuffer();

  static Form formOf(int64_t count) { return count > 1 ? Form::kEach : static_cast<Form>(count); }
  int64_t countOf(Form form) const { return form == Form::kEach ? numSamples : static_cast<int64_t>(form); }

  std::span<PVSampleTimingInfo> timing() {
    return {br::extra<PVSampleTimingInfo>(this), static_cast<size_t>(countOf(timingForm))};
  }
  std::span<const PVSampleTimingInfo> timing() const { return const_cast<PVSampleBuffer*>(this)->timing(); }
  // What several entries come to: the sum of the durations, the earliest time stamps.
  PVSampleTimingInfo& summary() { return *timing().end().base(); }
  std::span<size_t> sizes() {
    PVSampleTimingInfo* behindTiming = timing().data() + timing().size() + (timingForm == Form::kEach);
    return {reinterpret_cast<size_t*>(behindTiming), static_cast<size_t>(countOf(sizeForm))};
  }
  std::span<const size_t> sizes() const { return const_cast<PVSampleBuffer*>(this)->sizes(); }
  std::span<AudioStreamPacketDescription> packetRoom() {
    return {reinterpret_cast<AudioStreamPacketDescription*>(sizes().data() + sizes().size()),
            hasPacketRoom ? static_cast<size_t>(numSamples) : 0};
  }
  // Empty until they are filled, and for formats whose packets are all alike.
  std::span<const AudioStreamPacketDescription> packets() const {
    if (!packetsFilled) return {};
    return const_cast<PVSampleBuffer*>(this)->packetRoom();
  }

  const pv::sample::Edits* edits() const { return rare ? &rare->edits : nullptr; }
  // Made on first use; null when memory runs out.
  pv::sample::RarePart* makeRare();
  PVBlockBufferRef block() const {
    return isImage ? nullptr : static_cast<PVBlockBufferRef>(const_cast<void*>(data.get()));
  }
  PVSampleBufferRef ref() const { return const_cast<PVSampleBufferRef>(this); }
  BRStringRef copyDescription() const;

  br::Ref<const void> data;  // a block buffer or an image buffer
  br::Ref<PVFormatDescription> format;
  int64_t numSamples;
  union {
    PVSampleBufferMakeDataReadyCallback makeDataReady = nullptr;
    PVStatus failure;  // once the data have failed
  };
  void* makeDataReadyRefCon = nullptr;
  br::Ref<PVSampleBuffer> tracked;
  br::Ref<const BRArray> sampleAttachments;
  pv::AttachmentStore attachments;
  pv::sample::RarePart* rare = nullptr;  // from the buffer's allocator
  Form timingForm, sizeForm;
  bool hasPacketRoom;
  bool packetsFilled = false;
  bool isImage = false;
  bool dataReady = false;
  bool dataFailed = false;
  bool invalidated = false;
};

// Registers the type as a bearer of attachments, too.
template <>
BRTypeID br::typeID<PVSampleBuffer>();

namespace pv::sample {

// Refuses NULL and invalidated buffers, as every function does first.
inline PVStatus refused(const PVSampleBuffer* buffer, const char* file = __builtin_FILE(),
                        int32_t line = __builtin_LINE(), const char* function = __builtin_FUNCTION()) {
  if (buffer && !buffer->invalidated) return 0;
  return signalError(
      buffer ? kPVSampleBufferError_Invalidated : kPVSampleBufferError_RequiredParameterMissing, file, line,
      function);
}

// None, one, or one for each sample.
inline bool isConsistent(int64_t samples, int64_t entries, int64_t mostOfMarker) {
  return samples == 0 ? entries >= 0 && entries <= mostOfMarker
                      : samples > 0 && (entries == 0 || entries == 1 || entries == samples);
}

// A new buffer with its arrays still to be filled, or null when memory runs out.
PVSampleBuffer* allocate(BRAllocatorRef allocator, const Shape& shape);
// Fills the timing entries and what they come to.
void setTiming(PVSampleBuffer& buffer, std::span<const PVSampleTimingInfo> timing);
void summarise(PVSampleBuffer& buffer);

// A duration times a number of samples, which may be more than 31 bits.
PVTime multiplied(PVTime duration, int64_t count);
// The entry of a sample; its decode time is unknown when one entry stands for several.
PVSampleTimingInfo timingOf(const PVSampleBuffer& buffer, int64_t index);

// Reports, and no more, sizes that do not add up to the length of ready data.
void checkDataSize(const PVSampleBuffer& buffer);
size_t totalSize(const PVSampleBuffer& buffer);

// Gives a copy, or a piece that begins at a location, the attachments of its samples, if the source has any.
// False when memory runs out.
bool copySampleAttachments(const PVSampleBuffer& source, int64_t location, PVSampleBuffer& copy);
// Gives a copy the attachments that propagate. False when memory runs out.
bool copyPropagatingAttachments(const PVSampleBuffer& source, PVSampleBuffer& copy);
// Sets the client's output presentation time, if it is one. False when memory runs out.
bool setClientPresentation(PVSampleBuffer& buffer, const PVTime& time);
// Sets or removes (NULL) an attachment, edits included. False when memory runs out; nothing has changed then.
bool setAttachment(PVSampleBuffer& buffer, BRStringRef key, BRTypeRef value, uint32_t mode);

// The stream description, or null with the status signalled.
const AudioStreamBasicDescription* streamOf(PVFormatDescriptionRef format);

}  // namespace pv::sample

#endif
