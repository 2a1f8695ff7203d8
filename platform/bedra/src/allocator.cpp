// Allocators. The built-in ones are constant objects; a custom one holds a copy of its context. The system allocator is
// told apart by address, so that the common case is a plain malloc.
#include <bedra/allocator.h>
#include <bedra/object.hpp>
#include <bedra/string.h>

#include <cstdlib>

#include "src/internal.hpp"

// Trivially destructible, so that the built-in ones are constants which nothing tears down at exit.
struct BRAllocator : BRObject {
  static constexpr const char* className = "BRAllocator";
  static constexpr BRTypeID builtInTypeID = br::kAllocatorTypeID;

  explicit BRAllocator(const BRAllocatorContext& source) : context(source) {}
  constexpr BRAllocator() : BRObject(br::kAllocatorTypeID, 0, br::kImmortalCount, 0), context{} {}

  BRStringRef copyDescription() const;

  BRAllocatorContext context;
};

namespace {

struct CustomAllocator : BRAllocator {
  explicit CustomAllocator(const BRAllocatorContext& source) : BRAllocator(source) {
    if (context.retain) context.info = const_cast<void*>(context.retain(context.info));
  }
  ~CustomAllocator() {
    if (context.release) context.release(context.info);
  }
};

constinit const BRAllocator systemAllocator;
constinit const BRAllocator nullAllocator;

bool isSystem(BRAllocatorRef allocator) { return !allocator || allocator == &systemAllocator; }

}  // namespace

constinit const BRRuntimeClass br::allocatorClass = br::makeClass<CustomAllocator>();

extern "C" {
constinit const BRAllocatorRef kBRAllocatorDefault = nullptr;
constinit const BRAllocatorRef kBRAllocatorSystem = &systemAllocator;
constinit const BRAllocatorRef kBRAllocatorNull = &nullAllocator;
}

BRStringRef BRAllocator::copyDescription() const {
  if (context.copyDescription) return context.copyDescription(context.info);
  if (this == kBRAllocatorNull) return BRStringCreateWithFormat(nullptr, "<BRAllocator null>");
  if (this == kBRAllocatorSystem) return BRStringCreateWithFormat(nullptr, "<BRAllocator system>");
  return nullptr;
}

BRTypeID BRAllocatorGetTypeID(void) { return br::kAllocatorTypeID; }

BRAllocatorRef BRAllocatorCreate(BRAllocatorRef allocator, const BRAllocatorContext* context) {
  if (!context || context->version != 0 || !context->allocate) return nullptr;
  return br::create<CustomAllocator>(allocator, 0, *context);
}

void* BRAllocatorAllocate(BRAllocatorRef allocator, size_t sizeBytes) {
  if (sizeBytes == 0) return nullptr;
  if (isSystem(allocator)) return std::malloc(sizeBytes);
  auto allocate = allocator->context.allocate;
  return allocate ? allocate(sizeBytes, allocator->context.info) : nullptr;
}

void* BRAllocatorReallocate(BRAllocatorRef allocator, void* block, size_t newSizeBytes) {
  if (!block) return BRAllocatorAllocate(allocator, newSizeBytes);
  if (newSizeBytes == 0) {
    BRAllocatorDeallocate(allocator, block);
    return nullptr;
  }
  if (isSystem(allocator)) return std::realloc(block, newSizeBytes);
  auto reallocate = allocator->context.reallocate;
  return reallocate ? reallocate(block, newSizeBytes, allocator->context.info) : nullptr;
}

void BRAllocatorDeallocate(BRAllocatorRef allocator, void* block) {
  if (!block) return;
  if (isSystem(allocator)) return std::free(block);
  if (auto deallocate = allocator->context.deallocate) deallocate(block, allocator->context.info);
}

bool BRAllocatorGetContext(BRAllocatorRef allocator, BRAllocatorContext* context) {
  if (isSystem(allocator) || allocator == kBRAllocatorNull || !context) return false;
  *context = allocator->context;
  return true;
}
