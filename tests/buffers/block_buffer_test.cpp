#include <kiv/block_buffer.h>
#include <kiv/error.h>
#include <pevrin/attachment.h>
#include <pevrin/block_buffer.h>

#include "tests/support/block_buffer_model.hpp"
#include "tests/support/test.hpp"

namespace {

using Buffer = br::Ref<PVBlockBuffer>;
using test::Outcome;
using namespace br::literals;

Buffer makeEmpty(uint32_t capacity = 0) {
  Buffer buffer;
  EXPECT_EQ(PVBlockBufferCreateEmpty(nullptr, capacity, 0, buffer.out()), 0);
  return buffer;
}

PVStatus appendText(PVBlockBufferRef buffer, const char* text) {
  const size_t length = std::strlen(text);
  return PVBlockBufferAppendMemoryBlock(buffer, const_cast<char*>(text), length, kBRAllocatorNull, nullptr, 0,
                                        length, 0);
}

// A buffer over constant text, one subblock for each piece.
Buffer makeOf(std::initializer_list<const char*> pieces, uint32_t capacity = 0) {
  Buffer buffer = makeEmpty(capacity);
  for (const char* piece : pieces) EXPECT_EQ(appendText(buffer.get(), piece), 0);
  return buffer;
}

PVStatus appendReference(const Buffer& buffer, const Buffer& target, size_t offset = 0, size_t length = 0,
                         PVBlockBufferFlags flags = 0) {
  return PVBlockBufferAppendBufferReference(buffer.get(), target.get(), offset, length, flags);
}

std::string textOf(const Buffer& buffer) {
  std::string text(PVBlockBufferGetDataLength(buffer.get()), '?');
  EXPECT_EQ(text.empty() ? 0 : PVBlockBufferCopyDataBytes(buffer.get(), 0, text.size(), text.data()), 0);
  return text;
}

struct Piece {
  PVStatus status;
  size_t length = 0;
  PVBlockBufferRef origin = nullptr;
  size_t originOffset = 0;
  char* data = nullptr;
};

Piece pieceAt(const Buffer& buffer, size_t offset) {
  Piece piece{};
  size_t total = 0;
  piece.status = KivBlockBufferGetDataPointerAndOrigin(buffer.get(), offset, &piece.length, &total,
                                                       &piece.data, &piece.origin, &piece.originOffset);
  EXPECT_EQ(total, piece.status ? 0 : PVBlockBufferGetDataLength(buffer.get()));
  return piece;
}

// The lengths of the pieces that a reader meets.
std::vector<size_t> piecesOf(const Buffer& buffer) {
  std::vector<size_t> lengths;
  for (size_t offset = 0; offset < PVBlockBufferGetDataLength(buffer.get()); offset += lengths.back())
    lengths.push_back(pieceAt(buffer, offset).length);
  return lengths;
}

TEST(BlockBuffer, AppendMemoryChecksItsArgumentsInOrder) {
  char block[8];
  const PVBlockBufferCustomBlockSource none{};
  PVBlockBufferCustomBlockSource newer{};
  newer.version = 1;
  Buffer buffer = makeEmpty();
  struct Case {
    const char* name;
    PVBlockBufferRef buffer;
    void* block;
    size_t blockLength, offset, length;
    BRAllocatorRef allocator;
    const PVBlockBufferCustomBlockSource* source;
    PVStatus expected;
  } const cases[] = {
      {"no buffer", nullptr, block, 0, 9, 0, nullptr, nullptr, kPVBlockBufferBadPointerParameterErr},
      {"empty block", buffer.get(), block, 0, 9, 1, nullptr, nullptr, kPVBlockBufferBadLengthParameterErr},
      {"no data", buffer.get(), block, 8, 9, 0, nullptr, nullptr, kPVBlockBufferBadLengthParameterErr},
      {"offset at end", buffer.get(), block, 8, 8, 1, nullptr, nullptr, kPVBlockBufferBadOffsetParameterErr},
      {"past the end", buffer.get(), block, 8, 4, 5, nullptr, nullptr, kPVBlockBufferBadLengthParameterErr},
      {"end wraps", buffer.get(), block, 8, 4, SIZE_MAX, nullptr, &newer,
       kPVBlockBufferBadLengthParameterErr},
      {"nobody to ask", buffer.get(), nullptr, 8, 0, 8, kBRAllocatorNull, nullptr,
       kPVBlockBufferBlockAllocationFailedErr},
      {"source of a later version", buffer.get(), block, 8, 0, 8, nullptr, &newer,
       kPVBlockBufferBadCustomBlockSourceErr},
      {"source without free", buffer.get(), block, 8, 0, 8, nullptr, &none,
       kPVBlockBufferBadCustomBlockSourceErr},
      {"source without allocate", buffer.get(), nullptr, 8, 0, 8, kBRAllocatorNull, &none,
       kPVBlockBufferBadCustomBlockSourceErr},
  };
  for (const Case& c : cases) {
    const uint64_t errors = KivGetErrorCount();
    EXPECT_EQ(PVBlockBufferAppendMemoryBlock(c.buffer, c.block, c.blockLength, c.allocator, c.source,
                                             c.offset, c.length, 0),
              c.expected)
        << c.name;
    EXPECT_EQ(KivGetErrorCount(), errors + 1) << c.name;
    auto created = Buffer::retain(buffer.get());
    if (c.buffer) {
      EXPECT_EQ(PVBlockBufferCreateWithMemoryBlock(nullptr, c.block, c.blockLength, c.allocator, c.source,
                                                   c.offset, c.length, 0, created.out()),
                c.expected)
          << c.name;
      EXPECT_EQ(created.get(), nullptr) << c.name;
    }
  }
  EXPECT_TRUE(PVBlockBufferIsEmpty(buffer.get()));
}

TEST(BlockBuffer, ReferencesCheckTheirArgumentsInOrder) {
  Buffer buffer = makeOf({"abc"}), target = makeOf({"012", "345"}), empty = makeEmpty();
  constexpr PVBlockBufferFlags permit = kPVBlockBufferPermitEmptyReferenceFlag;
  EXPECT_EQ(appendReference(nullptr, target, 0, 1), kPVBlockBufferBadPointerParameterErr);
  EXPECT_EQ(appendReference(buffer, nullptr, 0, 1), kPVBlockBufferBadPointerParameterErr);
  EXPECT_EQ(appendReference(buffer, target, 6, 9), kPVBlockBufferBadOffsetParameterErr);
  EXPECT_EQ(appendReference(buffer, target, 5, 2), kPVBlockBufferBadLengthParameterErr);
  EXPECT_EQ(appendReference(buffer, target, 1, SIZE_MAX), kPVBlockBufferBadLengthParameterErr);
  EXPECT_EQ(appendReference(buffer, empty, 0, 1), kPVBlockBufferEmptyBBufErr);
  EXPECT_EQ(appendReference(buffer, empty, 0, 0, permit), kPVBlockBufferBadLengthParameterErr);
  EXPECT_EQ(appendReference(buffer, empty, 1, SIZE_MAX, permit), kPVBlockBufferBadLengthParameterErr);
  EXPECT_EQ(appendReference(buffer, empty, 0, SIZE_MAX, permit), kPVBlockBufferBadLengthParameterErr);
  EXPECT_EQ(textOf(buffer), "abc");
  EXPECT_EQ(BRGetRetainCount(target.get()), 1u);
  EXPECT_EQ(PVBlockBufferCreateWithBufferReference(nullptr, target.get(), 0, 0, 0, nullptr),
            kPVBlockBufferBadPointerParameterErr);
  EXPECT_EQ(appendReference(buffer, target, 2, 0), 0);
  EXPECT_EQ(textOf(buffer), "abc2345");
}

TEST(BlockBuffer, ReadersAndWritersCheckTheirArgumentsInOrder) {
  Buffer buffer = makeOf({"abc", "def"}), empty = makeEmpty();
  char bytes[8];
  char* pointer = bytes;
  struct Case {
    PVBlockBufferRef buffer;
    void* bytes;
    size_t offset, length;
    PVStatus copy, fill, access;
  } const cases[] = {
      {nullptr, bytes, 0, 0, -12705, -12705, -12705},
      {empty.get(), bytes, 0, 0, -12704, -12706, -12704},
      {empty.get(), bytes, 0, 1, -12706, -12706, -12703},
      {buffer.get(), bytes, 6, 9, -12703, -12703, -12703},
      {buffer.get(), bytes, 1, 6, -12704, -12704, -12704},
      {buffer.get(), bytes, 1, SIZE_MAX, -12704, -12704, -12704},
      {empty.get(), bytes, 1, size_t{1} << 63, -12706, -12704, -12703},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(PVBlockBufferCopyDataBytes(c.buffer, c.offset, c.length, c.bytes), c.copy);
    EXPECT_EQ(PVBlockBufferReplaceDataBytes(c.bytes, c.buffer, c.offset, c.length), c.copy);
    EXPECT_EQ(PVBlockBufferFillDataBytes('x', c.buffer, c.offset, c.length), c.fill);
    pointer = bytes;
    EXPECT_EQ(PVBlockBufferAccessDataBytes(c.buffer, c.offset, c.length, c.bytes, &pointer), c.access);
    EXPECT_EQ(pointer, c.buffer ? nullptr : bytes);
  }
  EXPECT_EQ(PVBlockBufferCopyDataBytes(buffer.get(), 0, 1, nullptr), -12705);
  EXPECT_EQ(PVBlockBufferReplaceDataBytes(nullptr, buffer.get(), 0, 1), -12705);
  EXPECT_EQ(PVBlockBufferAccessDataBytes(buffer.get(), 0, 1, nullptr, &pointer), -12705);
  EXPECT_EQ(PVBlockBufferAssureBlockMemory(nullptr), -12705);
  EXPECT_EQ(PVBlockBufferAssureBlockMemory(empty.get()), -12706);
  EXPECT_EQ(PVBlockBufferGetDataPointer(nullptr, 0, nullptr, nullptr, nullptr), -12705);
  EXPECT_EQ(PVBlockBufferGetDataPointer(buffer.get(), 6, nullptr, nullptr, nullptr), -12703);
  EXPECT_EQ(PVBlockBufferGetDataPointer(buffer.get(), 5, nullptr, nullptr, nullptr), 0);
}

TEST(BlockBuffer, OverflowGoesIntoChildrenAndOffsetsRunOn) {
  for (uint32_t capacity : {0u, 1u, 2u, 4u, 16u}) {
    Buffer buffer = makeOf({"a", "bc", "def", "ghij", "klmno", "pqrstu"}, capacity);
    EXPECT_EQ(textOf(buffer), "abcdefghijklmnopqrstu");
    EXPECT_EQ(piecesOf(buffer), (std::vector<size_t>{1, 2, 3, 4, 5, 6}));
    for (size_t offset = 0; offset < 21; ++offset) {
      const Piece piece = pieceAt(buffer, offset);
      EXPECT_EQ(*piece.data, static_cast<char>('a' + offset));
      const Piece same = pieceAt(Buffer::retain(piece.origin), piece.originOffset);
      EXPECT_EQ(same.data, piece.data);
      EXPECT_EQ(same.origin, piece.origin);
    }
    EXPECT_EQ(pieceAt(buffer, 15).origin == buffer.get(), capacity >= 6) << capacity;
  }
  EXPECT_NE(pieceAt(makeOf({"a", "b"}), 1).originOffset, 1u);  // in a child, whose offsets begin anew
}

TEST(BlockBuffer, AChildOutlivesThePartsBeforeIt) {
  Buffer buffer = makeOf({"abc", "def", "ghi", "jkl"});
  auto child = Buffer::retain(pieceAt(buffer, 4).origin);
  EXPECT_EQ(PVBlockBufferGetDataLength(child.get()), 9u);
  EXPECT_EQ(appendText(buffer.get(), "mno"), 0);
  buffer = nullptr;
  EXPECT_EQ(textOf(child), "defghijklmno");
  EXPECT_EQ(appendText(child.get(), "pqr"), 0);
  EXPECT_EQ(textOf(child), "defghijklmnopqr");
}

TEST(BlockBuffer, ReferencesResolveToTheOwnersOfMemoryAndMerge) {
  Buffer a = makeOf({"abc", "def"}, 4), b = makeOf({"012"}, 4);
  EXPECT_EQ(appendReference(b, a, 1, 4), 0);  // 012 bcde
  EXPECT_EQ(appendText(b.get(), "xyz"), 0);
  Buffer c = makeEmpty(8);
  EXPECT_EQ(appendReference(c, b, 1, 8), 0);  // 12 | bcde | xy
  EXPECT_EQ(textOf(c), "12bcdexy");
  EXPECT_EQ(pieceAt(c, 2).origin, a.get());
  EXPECT_EQ(BRGetRetainCount(a.get()), 3u);   // its creator, b and c
  EXPECT_EQ(BRGetRetainCount(b.get()), 3u);   // its creator and two parts of c
  EXPECT_EQ(appendReference(c, b, 9, 1), 0);  // follows on the last part: merged
  EXPECT_EQ(appendReference(c, a, 0, 1), 0);
  EXPECT_EQ(appendReference(c, a, 1, 5), 0);  // merged
  EXPECT_EQ(textOf(c), "12bcdexyzabcdef");
  EXPECT_EQ(BRGetRetainCount(a.get()), 4u);
  EXPECT_EQ(BRGetRetainCount(b.get()), 3u);
  EXPECT_EQ(appendReference(c, b, 0, 0, kPVBlockBufferDontOptimizeDepthFlag), 0);
  EXPECT_EQ(BRGetRetainCount(b.get()), 4u);
  EXPECT_EQ(textOf(c), "12bcdexyzabcdef012bcdexyz");
  c = nullptr;
  EXPECT_EQ(BRGetRetainCount(a.get()), 2u);
  EXPECT_EQ(BRGetRetainCount(b.get()), 1u);
}

TEST(BlockBuffer, CapacityIsNotNeededForMergedReferences) {
  Buffer target = makeOf({"abcdef", "ghi"}, 2), buffer = makeEmpty(1);
  for (size_t i = 0; i < 9; ++i) EXPECT_EQ(appendReference(buffer, target, i, 1), 0);
  EXPECT_EQ(piecesOf(buffer), (std::vector<size_t>{6, 3}));
  EXPECT_EQ(BRGetRetainCount(target.get()), 2u);
  EXPECT_FALSE(PVBlockBufferIsRangeContiguous(buffer.get(), 0, 9));
}

TEST(BlockBuffer, APromisedTargetIsReadOnceItHasGrown) {
  constexpr PVBlockBufferFlags permit = kPVBlockBufferPermitEmptyReferenceFlag;
  Buffer target = makeEmpty(), buffer = makeOf({"ab"});
  EXPECT_EQ(appendReference(buffer, target, 1, 4, permit), 0);
  EXPECT_EQ(appendReference(buffer, target, 5, 1, permit), 0);  // merged
  EXPECT_EQ(BRGetRetainCount(target.get()), 2u);
  Buffer later = makeEmpty();
  EXPECT_EQ(appendReference(later, buffer, 1, 5), 0);
  char bytes[8], *pointer;
  EXPECT_EQ(PVBlockBufferCopyDataBytes(buffer.get(), 0, 7, bytes), kPVBlockBufferBadOffsetParameterErr);
  EXPECT_EQ(PVBlockBufferAccessDataBytes(buffer.get(), 1, 3, bytes, &pointer),
            kPVBlockBufferBadLengthParameterErr);
  EXPECT_EQ(appendText(target.get(), "0123456"), 0);
  EXPECT_EQ(textOf(buffer), "ab12345");
  EXPECT_EQ(textOf(later), "b1234");
}

TEST(BlockBuffer, CirclesAreRefused) {
  Buffer a = makeOf({"abc", "def"}), b = makeOf({"012"}), c = makeOf({"xyz"});
  EXPECT_EQ(appendReference(a, a), kPVBlockBufferBadPointerParameterErr);
  EXPECT_EQ(appendReference(a, Buffer::retain(pieceAt(a, 3).origin)), kPVBlockBufferBadPointerParameterErr);
  EXPECT_EQ(appendReference(b, a, 1, 3), 0);
  EXPECT_EQ(appendReference(c, b, 2, 3, kPVBlockBufferDontOptimizeDepthFlag), 0);
  EXPECT_EQ(appendReference(a, b), kPVBlockBufferBadPointerParameterErr);
  EXPECT_EQ(appendReference(a, c), kPVBlockBufferBadPointerParameterErr);
  EXPECT_EQ(appendReference(a, c, 1, 1), kPVBlockBufferBadPointerParameterErr);  // c itself leads back
  EXPECT_EQ(textOf(a), "abcdef");
  EXPECT_EQ(appendReference(a, makeOf({"more"})), 0);
  EXPECT_EQ(textOf(c), "xyz2bc");
}

struct Pool {
  int allocations = 0, frees = 0;
  bool exhausted = false;
  size_t freedBytes = 0;
  PVBlockBufferCustomBlockSource source() {
    PVBlockBufferCustomBlockSource source{};
    source.refCon = this;
    source.allocateBlock = [](void* pool, size_t size) -> void* {
      if (static_cast<Pool*>(pool)->exhausted) return nullptr;
      ++static_cast<Pool*>(pool)->allocations;
      return std::malloc(size);
    };
    source.freeBlock = [](void* pool, void* block, size_t size) {
      ++static_cast<Pool*>(pool)->frees;
      static_cast<Pool*>(pool)->freedBytes += size;
      std::free(block);
    };
    return source;
  }
};

TEST(BlockBuffer, MemoryIsAllocatedOnFirstWriteAndGivenBack) {
  Pool pool;
  const PVBlockBufferCustomBlockSource source = pool.source();
  {
    test::FailingAllocator blocks;
    Buffer lazy = makeEmpty(), buffer = makeEmpty();
    EXPECT_EQ(PVBlockBufferAppendMemoryBlock(lazy.get(), nullptr, 10, blocks, nullptr, 2, 3, 0), 0);
    EXPECT_EQ(PVBlockBufferAppendMemoryBlock(lazy.get(), nullptr, 20, nullptr, &source, 0, 4, 0), 0);
    EXPECT_EQ(PVBlockBufferAppendMemoryBlock(lazy.get(), nullptr, 30, nullptr, &source, 0, 1, 1), 0);
    EXPECT_EQ(appendReference(buffer, lazy, 0, 0, kPVBlockBufferDontOptimizeDepthFlag), 0);
    EXPECT_EQ(pool.allocations, 1);
    char bytes[8], *pointer;
    EXPECT_EQ(PVBlockBufferCopyDataBytes(buffer.get(), 0, 8, bytes), kPVBlockBufferUnallocatedBlockErr);
    EXPECT_EQ(PVBlockBufferAccessDataBytes(buffer.get(), 0, 8, bytes, &pointer),
              kPVBlockBufferUnallocatedBlockErr);
    EXPECT_EQ(PVBlockBufferGetDataPointer(buffer.get(), 4, nullptr, nullptr, nullptr),
              kPVBlockBufferUnallocatedBlockErr);
    EXPECT_FALSE(PVBlockBufferIsRangeContiguous(buffer.get(), 0, 1));
    pool.exhausted = true;
    EXPECT_EQ(PVBlockBufferFillDataBytes('x', buffer.get(), 0, 0), kPVBlockBufferBlockAllocationFailedErr);
    EXPECT_EQ(blocks.liveBlocks(), 1);  // came before the one that failed
    pool.exhausted = false;
    EXPECT_EQ(PVBlockBufferReplaceDataBytes("12345678", buffer.get(), 0, 8), 0);
    EXPECT_EQ(textOf(lazy), "12345678");
    EXPECT_EQ(PVBlockBufferFillDataBytes('-', lazy.get(), 6, 0), 0);
    EXPECT_EQ(textOf(buffer), "123456--");
    EXPECT_EQ(pool.allocations, 2);
  }
  EXPECT_EQ(pool.frees, 2);
  EXPECT_EQ(pool.freedBytes, 50u);
}

TEST(BlockBuffer, ContiguousCreationSharesOrCopies) {
  Buffer buffer = makeOf({"abc", "def"}), result;
  auto create = [&](size_t offset, size_t length, PVBlockBufferFlags flags) {
    return PVBlockBufferCreateContiguous(nullptr, buffer.get(), nullptr, nullptr, offset, length, flags,
                                         result.out());
  };
  EXPECT_EQ(create(0, 3, 0), 0);
  EXPECT_EQ(pieceAt(result, 0).origin, buffer.get());
  EXPECT_EQ(create(0, 3, kPVBlockBufferAlwaysCopyDataFlag), 0);
  EXPECT_EQ(pieceAt(result, 0).origin, result.get());
  EXPECT_EQ(textOf(result), "abc");
  EXPECT_EQ(create(1, 0, 0), 0);
  EXPECT_EQ(textOf(result), "bcdef");
  EXPECT_EQ(piecesOf(result), std::vector<size_t>{5});
  EXPECT_EQ(create(6, 9, 0), kPVBlockBufferBadOffsetParameterErr);
  EXPECT_EQ(result.get(), nullptr);
  EXPECT_EQ(create(2, 5, 0), kPVBlockBufferBadLengthParameterErr);
  buffer = makeEmpty();
  EXPECT_EQ(create(0, 1, 0), kPVBlockBufferEmptyBBufErr);
  EXPECT_EQ(PVBlockBufferAppendMemoryBlock(buffer.get(), nullptr, 4, nullptr, nullptr, 0, 4, 0), 0);
  EXPECT_EQ(create(0, 4, 0), kPVBlockBufferUnallocatedBlockErr);
  EXPECT_EQ(result.get(), nullptr);
}

TEST(BlockBuffer, LengthsBeyondAllSizesAreRefused) {
  Buffer buffer = makeEmpty();
  EXPECT_EQ(PVBlockBufferAppendMemoryBlock(buffer.get(), nullptr, SIZE_MAX, nullptr, nullptr, 0, SIZE_MAX, 0),
            0);
  EXPECT_EQ(appendText(buffer.get(), "x"), kPVBlockBufferBadLengthParameterErr);
  EXPECT_EQ(appendReference(buffer, makeOf({"x"})), kPVBlockBufferBadLengthParameterErr);
  EXPECT_EQ(PVBlockBufferGetDataLength(buffer.get()), SIZE_MAX);
  EXPECT_EQ(PVBlockBufferCreateEmpty(nullptr, UINT32_MAX, 0, buffer.out()),
            kPVBlockBufferStructureAllocationFailedErr);
}

TEST(BlockBuffer, AMillionSubblocksAndAMillionLevelsCostNeitherStackNorSquares) {
  constexpr size_t kCount = 1'000'000;
  static char bytes[kCount];
  for (size_t i = 0; i < kCount; ++i) bytes[i] = static_cast<char>(i * 7);
  Buffer wide = makeEmpty();
  for (size_t i = 0; i < kCount; ++i)
    ASSERT_EQ(PVBlockBufferAppendMemoryBlock(wide.get(), bytes + i, 1, kBRAllocatorNull, nullptr, 0, 1, 0),
              0);
  size_t mismatches = 0;
  for (size_t i = 0; i < kCount; ++i) mismatches += *pieceAt(wide, i).data != bytes[i];
  EXPECT_EQ(mismatches, 0u);
  EXPECT_EQ(PVBlockBufferAssureBlockMemory(wide.get()), 0);

  Buffer deep = makeOf({"x"});
  for (size_t i = 0; i < kCount; ++i) {
    Buffer outer = makeEmpty();
    ASSERT_EQ(appendReference(outer, deep, 0, 0, kPVBlockBufferDontOptimizeDepthFlag), 0);
    deep = std::move(outer);
  }
  EXPECT_EQ(textOf(deep), "x");
  EXPECT_EQ(PVBlockBufferAssureBlockMemory(deep.get()), 0);
  Buffer resolved = makeEmpty();
  EXPECT_EQ(appendReference(resolved, deep), 0);
  deep = nullptr;
  EXPECT_EQ(textOf(resolved), "x");
}

std::string descriptionOf(const Buffer& buffer) {
  auto text = br::Ref<const BRString>::adopt(BRCopyDebugDescription(buffer.get()));
  return BRStringGetUTF8(text.get());
}

template <class... Arguments>
std::string formatted(const char* format, Arguments... arguments) {
  auto text = br::Ref<const BRString>::adopt(BRStringCreateWithFormat(nullptr, format, arguments...));
  return BRStringGetUTF8(text.get());
}

TEST(BlockBuffer, DebugDescriptionShowsEverySubblock) {
  Pool pool;
  const PVBlockBufferCustomBlockSource source = pool.source();
  char block[8];
  Buffer inner = makeEmpty(4), buffer = makeEmpty(2);
  PVBlockBufferAppendMemoryBlock(inner.get(), block, 8, kBRAllocatorNull, nullptr, 3, 5, 0);
  PVBlockBufferAppendMemoryBlock(buffer.get(), nullptr, 10, nullptr, nullptr, 0, 9, 0);
  appendReference(buffer, inner, 1, 2);
  PVBlockBufferAppendMemoryBlock(buffer.get(), nullptr, 20, nullptr, &source, 2, 3,
                                 0);  // in an overflow child
  PVSetAttachment(buffer.get(), "take"_br, "one"_br, kPVAttachmentMode_ShouldNotPropagate);
  PVSetAttachment(buffer.get(), "photographer"_br, "two"_br, kPVAttachmentMode_ShouldPropagate);
  const std::string expected =
      formatted("PVBlockBuffer %p totalDataLength: 14 retainCount: 1 allocator: %p subBlockCapacity: 3\n",
                buffer.get(), kBRAllocatorSystem) +
      " take          = one\n photographer(P) = two\n" +
      formatted(" [0] 9 bytes @ offset 0 Memory UNALLOCATED, 10 bytes (allocator %p)\n", kBRAllocatorSystem) +
      " [1] 2 bytes @ offset 1 Buffer Reference:\n" +
      formatted("    PVBlockBuffer %p totalDataLength: 5 retainCount: 2 allocator: %p subBlockCapacity: 5\n",
                inner.get(), kBRAllocatorSystem) +
      formatted("     [0] 5 bytes @ offset 3 Memory Block %p, 8 bytes (allocator %p)\n", block,
                kBRAllocatorNull) +
      formatted(" [2] 3 bytes @ offset 2 Memory UNALLOCATED, 20 bytes (custom V=0 A=%p F=%p R=%p)\n",
                source.allocateBlock, source.freeBlock, &pool);
  EXPECT_EQ(descriptionOf(buffer), expected);
  EXPECT_EQ(PVBlockBufferAssureBlockMemory(buffer.get()), 0);
  EXPECT_NE(descriptionOf(buffer).find("[2] 3 bytes @ offset 2 Memory Block 0x"), std::string::npos);
}

TEST(BlockBuffer, DebugDescriptionStaysFiniteInDeepAndBranchingNests) {
  constexpr PVBlockBufferFlags asIs = kPVBlockBufferDontOptimizeDepthFlag;
  Buffer nest = makeOf({"x"});
  for (int i = 0; i < 40; ++i) {
    Buffer outer = makeOf({}, 3);
    EXPECT_EQ(appendReference(outer, nest, 0, 0, asIs), 0);
    EXPECT_EQ(appendText(outer.get(), "-"), 0);
    EXPECT_EQ(appendReference(outer, nest, 0, 0, asIs), 0);
    nest = std::move(outer);
  }
  EXPECT_LT(descriptionOf(nest).size(), size_t{20} << 20);
  EXPECT_EQ(PVBlockBufferGetDataLength(nest.get()), (size_t{2} << 40) - 1);
  EXPECT_EQ(PVBlockBufferAssureBlockMemory(nest.get()), 0);  // visits each buffer once, not each path
  EXPECT_EQ(*pieceAt(nest, (size_t{1} << 40) - 1).data, '-');
}

TEST(BlockBuffer, FailedAllocationsLeaveEverythingAsItWas) {
  Pool pool;
  const PVBlockBufferCustomBlockSource source = pool.source();
  char writable[20];
  Buffer target = makeEmpty(8), other = makeEmpty();
  PVBlockBufferAppendMemoryBlock(other.get(), writable + 10, 10, kBRAllocatorNull, nullptr, 0, 10, 0);
  for (size_t i = 0; i < 5; ++i) {
    char* own = writable + 2 * i;
    PVBlockBufferAppendMemoryBlock(target.get(), own, 2, kBRAllocatorNull, nullptr, 0, 2, 0);
    appendReference(target, other, 2 * i, 1);
  }
  const int requests = test::walkAllocationFailures([&](BRAllocatorRef allocator) {
    Buffer buffer, contiguous;
    PVStatus status = PVBlockBufferCreateEmpty(allocator, 2, 0, buffer.out());
    if (status) {
      EXPECT_EQ(status, kPVBlockBufferStructureAllocationFailedErr);
      return Outcome::kOutOfMemory;
    }
    size_t length = 0;
    auto expect = [&](PVStatus result, size_t added) {
      const bool known = result == kPVBlockBufferStructureAllocationFailedErr ||
                         result == kPVBlockBufferBlockAllocationFailedErr;
      EXPECT_TRUE(result == 0 || known) << result;
      if (result == 0) length += added;
      EXPECT_EQ(PVBlockBufferGetDataLength(buffer.get()), length);
      status = status ? status : result;
    };
    for (int i = 0; i < 4; ++i) {
      expect(PVBlockBufferAppendMemoryBlock(buffer.get(), nullptr, 4, allocator, nullptr, 0, 4, 1), 4);
      expect(PVBlockBufferAppendMemoryBlock(buffer.get(), nullptr, 4, nullptr, &source, 0, 4, 1), 4);
      expect(appendReference(buffer, target), 15);
    }
    EXPECT_EQ(PVBlockBufferFillDataBytes('x', buffer.get(), 0, 0), 0);
    EXPECT_EQ(textOf(buffer), std::string(length, 'x'));
    const PVStatus created =
        PVBlockBufferCreateContiguous(allocator, buffer.get(), allocator, nullptr, 0, 0, 2, contiguous.out());
    EXPECT_EQ(created == 0, contiguous.get() != nullptr);
    return status || created ? Outcome::kOutOfMemory : Outcome::kSucceeded;
  });
  EXPECT_GT(requests, 20);
  EXPECT_EQ(pool.allocations, pool.frees);
  EXPECT_EQ(BRGetRetainCount(target.get()), 1u);
}

TEST(BlockBuffer, BehavesLikeAVectorOfSharedBytes) {
  std::mt19937 random(20240607);
  for (int round = 0; round < 400; ++round) {
    std::vector<uint8_t> operations(600);
    for (uint8_t& byte : operations) byte = static_cast<uint8_t>(random());
    test::BlockBufferModel(operations).run();
  }
}

TEST(BlockBufferThreads, SharedBuffersAreReadReferencedAndReleasedSideBySide) {
  std::string expected;
  Buffer shared = makeEmpty(3);
  for (int i = 0; i < 40; ++i) {
    const char* text = i % 2 ? "abcdefg" : "0123";
    expected += text;
    EXPECT_EQ(i % 8 == 7 ? appendReference(shared, makeOf({text})) : appendText(shared.get(), text), 0);
  }
  std::atomic<int> mismatches{0};
  auto work = [&](Buffer own, uint32_t seed) {
    std::minstd_rand random(seed);
    for (int i = 0; i < 400; ++i) {
      const size_t offset = random() % expected.size(), length = 1 + random() % (expected.size() - offset);
      Buffer range = makeEmpty();
      mismatches +=
          appendReference(range, own, offset, length, random() & kPVBlockBufferDontOptimizeDepthFlag) != 0;
      Buffer nested = makeEmpty();
      mismatches += appendReference(nested, range, 0, 0, kPVBlockBufferDontOptimizeDepthFlag) != 0;
      range = nullptr;
      mismatches += textOf(nested) != expected.substr(offset, length);
    }
  };
  std::vector<std::thread> threads;
  for (uint32_t i = 0; i < 4; ++i) threads.emplace_back(work, shared, i + 1);
  shared = nullptr;  // the last thread to end drops the last reference
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(mismatches, 0);
}

}  // namespace
