#include "src/hash_collection.hpp"

#include <bedra/set.h>

#include <cstring>
#include <utility>

namespace br {

constinit const BRDictionaryKeyCallBacks kUnretainedKeyCallBacks{};
constinit const BRDictionaryValueCallBacks kUnretainedValueCallBacks{};

namespace {

bool isConstantRecord(const BRDictionaryKeyCallBacks* record) {
  return record == &kUnretainedKeyCallBacks || record == &kBRTypeDictionaryKeyCallBacks ||
         record == &kBRCopyStringDictionaryKeyCallBacks || record == &kBRTypeSetCallBacks;
}

bool isConstantRecord(const BRDictionaryValueCallBacks* record) {
  return !record || record == &kUnretainedValueCallBacks || record == &kBRTypeDictionaryValueCallBacks;
}

template <class Record>
const Record* keepRecord(const Record* record, char*& room) {
  if (isConstantRecord(record)) return record;
  std::memcpy(room, record, sizeof *record);
  return reinterpret_cast<const Record*>(std::exchange(room, room + sizeof *record));
}

}  // namespace

size_t recordBytes(const BRDictionaryKeyCallBacks* keyCallbacks,
                   const BRDictionaryValueCallBacks* valueCallbacks) {
  return (isConstantRecord(keyCallbacks) ? 0 : sizeof *keyCallbacks) +
         (isConstantRecord(valueCallbacks) ? 0 : sizeof *valueCallbacks);
}

void openCollection(HashCollection* collection, void* room, size_t capacity,
                    const BRDictionaryKeyCallBacks* keyCallbacks,
                    const BRDictionaryValueCallBacks* valueCallbacks) {
  char* at = static_cast<char*>(room);
  keyCallbacks = keepRecord(keyCallbacks, at);
  valueCallbacks = keepRecord(valueCallbacks, at);
  collection->table.open(at, capacity, keyCallbacks, valueCallbacks);
}

}  // namespace br
