// The text that a debugger shows of a block buffer: its subblocks, and below each reference the buffer it
// points at.
//
// Referenced buffers are shown in full down to a depth, and as long as the text is not too long: the bytes of
// a few dozen buffers can stand for billions of paths through them. Beyond those limits a buffer is its first
// line alone.
#include <bedra/dictionary.h>
#include <bedra/string.h>

#include <bedra/ref.hpp>

#include "buffers/block_buffer.hpp"

namespace pv::block {

namespace {

constexpr int kMaximumDepth = 32;
constexpr size_t kOpeningLimitBytes = 16 << 20;

class Describer {
 public:
  explicit Describer(BRMutableStringRef text) : text_(text) {}

  void describe(const PVBlockBuffer& buffer, int depth) {
    const int indent = 4 * depth;
    append("%*sPVBlockBuffer %p totalDataLength: %ld retainCount: %ld allocator: %p subBlockCapacity: %d\n",
           indent, "", &buffer, static_cast<long>(buffer.totalLength()),
           static_cast<long>(BRGetRetainCount(&buffer)), static_cast<const void*>(BRGetAllocator(&buffer)),
           buffer.capacity);
    if (depth > kMaximumDepth || BRStringGetLengthBytes(text_) > kOpeningLimitBytes) return;
    for (uint32_t mode = 0; mode < AttachmentStore::kModes; ++mode)
      describeAttachments(buffer.attachments.dictionary(mode), indent, mode == 1 ? "(P)" : "   ");
    int number = 0;
    for (const PVBlockBuffer* member = &buffer; member; member = member->child())
      for (int32_t i = 0; i < member->count; ++i) {
        append("%*s [%d] ", indent, "", number++);
        describeEntry(member->entries()[i], member->entries()[i].end - member->startOf(i), depth);
      }
  }

 private:
  template <class... Arguments>
  void append(const char* format, Arguments... arguments) {
    BRStringAppendFormat(text_, format, arguments...);
  }

  void describeAttachments(BRDictionaryRef attachments, int indent, const char* mark) {
    struct Context {
      Describer* self;
      int indent;
      const char* mark;
    } context{this, indent, mark};
    if (!attachments) return;
    BRDictionaryApply(
        attachments,
        [](const void* key, const void* value, void* info) {
          const Context& in = *static_cast<Context*>(info);
          in.self->append("%*s %-10s%s = %@\n", in.indent, "", BRStringGetUTF8(static_cast<BRStringRef>(key)),
                          in.mark, value);
        },
        &context);
  }

  void describeEntry(const Entry& entry, size_t length, int depth) {
    append("%ld bytes @ offset %ld ", static_cast<long>(length), static_cast<long>(entry.offset));
    switch (entry.kind) {
      case Kind::kUnused:
        return append("UNUSED!!!\n");
      case Kind::kReference:
        append("Buffer Reference:\n");
        return describe(*entry.target(), depth + 1);
      case Kind::kAllocatorPending:
      case Kind::kAllocatorBlock:
        describeBlock(entry);
        return append("(allocator %p)\n", entry.source);
      case Kind::kCustomPending:
      case Kind::kCustomBlock: {
        const PVBlockBufferCustomBlockSource source = *entry.custom();
        describeBlock(entry);
        return append("(custom V=%d A=%p F=%p R=%p)\n", static_cast<int>(source.version),
                      reinterpret_cast<void*>(source.allocateBlock),
                      reinterpret_cast<void*>(source.freeBlock), source.refCon);
      }
    }
    append("UNKNOWN STATE!!!\n");
  }

  void describeBlock(const Entry& entry) {
    if (entry.isMemory())
      append("Memory Block %p, %ld bytes ", entry.block, static_cast<long>(entry.blockLength));
    else
      append("Memory UNALLOCATED, %ld bytes ", static_cast<long>(entry.blockLength));
  }

  BRMutableStringRef text_;
};

}  // namespace

}  // namespace pv::block

BRStringRef PVBlockBuffer::copyDebugDescription() const {
  auto text = br::Ref<BRString>::adopt(BRStringCreateMutable(nullptr, 0));
  if (text) pv::block::Describer(text.get()).describe(*this, 0);
  return text.detach();
}
