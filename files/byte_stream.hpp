// What the built-in classes of byte streams share.
//
// A class is a Storage struct, constructed in the object's derived storage and destroyed by the finalizer,
// and a table of static functions; byte_stream_memory.cpp is a small one.
#ifndef PEVRIN_FILES_BYTE_STREAM_HPP
#define PEVRIN_FILES_BYTE_STREAM_HPP

#include <kiv/byte_stream.h>
#include <bedra/ref.hpp>

#include <new>
#include <utility>

#include "runtime/error.hpp"

namespace pv {

template <class Storage>
Storage& storageOf(KivByteStreamRef stream) {
  return *static_cast<Storage*>(PVBaseObjectGetDerivedStorage(stream));
}

// The base record of a class.
template <class Storage>
constexpr PVBaseClass byteStreamBaseClass() {
  PVBaseClass base{};
  base.version = 1;
  base.derivedStorageSize = sizeof(Storage);
  base.finalize = [](PVBaseObjectRef stream) { storageOf<Storage>(stream).~Storage(); };
  base.copyDebugDescription = [](PVBaseObjectRef stream) {
    return storageOf<Storage>(stream).copyDebugDescription();
  };
  return base;
}

// A stream of the class with its storage made from the arguments, which are left alone on failure.
template <class Storage, class... Arguments>
PVStatus createByteStream(BRAllocatorRef allocator, const KivByteStreamVTable& vtable,
                          KivByteStreamRef* streamOut, Arguments&&... arguments) {
  const PVBaseClassID classID = KivByteStreamGetClassID();
  if (!classID) return signalError(kPVStatus_OutOfMemory);
  KivByteStreamRef stream = nullptr;
  // the arguments are right, so that only memory can be missing; the object layer has signalled it
  if (PVDerivedObjectCreate(allocator, &vtable.base, classID, &stream) != 0) return kPVStatus_OutOfMemory;
  new (PVBaseObjectGetDerivedStorage(stream)) Storage{std::forward<Arguments>(arguments)...};
  *streamOut = stream;
  return 0;
}

// The readAndCreateBlockBuffer of classes that cannot lend their bytes: reads into one new block, no longer
// than what the stream has.
PVStatus readIntoNewBlock(KivByteStreamRef stream, int64_t offset, size_t length,
                          PVBlockBufferRef* blockBufferOut);

// The same for a length that may be allocated as it is.
PVStatus readIntoNewBlockOf(KivByteStreamRef stream, int64_t offset, size_t length,
                            PVBlockBufferRef* blockBufferOut);

}  // namespace pv

#endif
