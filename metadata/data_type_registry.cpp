// The registry of data types.
#include <bedra/dictionary.h>
#include <bedra/runtime.h>
#include <bedra/set.h>
#include <kiv/metadata.h>

#include <bedra/literal.hpp>
#include <bedra/ref.hpp>
#include <mutex>
#include <new>

#include "metadata/built_in_data_types.hpp"
#include "runtime/error.hpp"
#include "runtime/reentrant_mutex.hpp"

using namespace br::literals;

namespace {

using Array = br::Ref<const BRArray>;
using Dictionary = br::Ref<BRDictionary>;
using String = br::Ref<const BRString>;

constexpr BRStringRef kDescription = "Description"_br, kConformingDataTypes = "ConformingDataTypes"_br;

Dictionary makeDictionary() {
  return Dictionary::adopt(BRDictionaryCreateMutable(nullptr, 0, &kBRTypeDictionaryKeyCallBacks,
                                                     &kBRTypeDictionaryValueCallBacks));
}

size_t countOf(BRArrayRef types) { return types ? BRArrayGetCount(types) : 0; }

BRStringRef typeAt(BRArrayRef types, size_t index) {
  return static_cast<BRStringRef>(BRArrayGetValueAtIndex(types, index));
}

// In any order.
bool listsSame(BRArrayRef types, BRArrayRef others) {
  if (!types || !others) return types == others;
  if (BRArrayGetCount(types) != BRArrayGetCount(others)) return false;
  for (size_t i = 0; i < BRArrayGetCount(types); ++i)
    if (!BRArrayContainsValue(others, typeAt(types, i))) return false;
  return true;
}

// Strings of the caller's may be mutable; those that are kept are not.
Array copyOf(BRArrayRef types) {
  auto copy = br::Ref<BRArray>::adopt(BRArrayCreateMutable(nullptr, countOf(types), &kBRTypeArrayCallBacks));
  for (size_t i = 0; copy && i < countOf(types); ++i) {
    const auto type = String::adopt(BRStringCreateCopy(nullptr, typeAt(types, i)));
    if (!type || !BRArrayAppendValue(copy.get(), type.get())) return nullptr;
  }
  return Array::adopt(copy.detach());
}

class Registry {
 public:
  // Null when there was no memory for what it begins with.
  static Registry* get();

  PVStatus add(BRStringRef type, BRStringRef description, BRArrayRef conforming);
  PVStatus addBase(BRStringRef type, BRStringRef description);

  bool isRegistered(BRStringRef type) { return entryOf(type) != nullptr; }
  BRStringRef descriptionOf(BRStringRef type) { return static_cast<BRStringRef>(partOf(type, kDescription)); }
  BRArrayRef conformingTo(BRStringRef type) {
    return static_cast<BRArrayRef>(partOf(type, kConformingDataTypes));
  }
  // A type is of base type when it is its own base.
  BRStringRef baseOf(BRStringRef type) {
    const std::lock_guard lock(mutex_);
    return type ? static_cast<BRStringRef>(BRDictionaryGetValue(bases_.get(), type)) : nullptr;
  }
  bool conforms(BRStringRef type, BRStringRef other);
  BRArrayRef publicBases() const { return publicBases_.get(); }

 private:
  bool begin();
  PVStatus findBase(BRArrayRef conforming, BRStringRef& base);
  bool insert(BRStringRef type, BRStringRef description, BRArrayRef conforming, BRStringRef base);

  // Entries are never replaced and stay as long as the process, so what is in them may be lent.
  BRDictionaryRef entryOf(BRStringRef type) {
    const std::lock_guard lock(mutex_);
    return type ? static_cast<BRDictionaryRef>(BRDictionaryGetValue(entries_.get(), type)) : nullptr;
  }
  BRTypeRef partOf(BRStringRef type, BRStringRef key) {
    BRDictionaryRef entry = entryOf(type);
    return entry ? BRDictionaryGetValue(entry, key) : nullptr;
  }

  pv::ReentrantMutex mutex_;
  Dictionary entries_, bases_;  // by data type
  Array publicBases_;
};

Registry* Registry::get() {
  alignas(Registry) static char storage[sizeof(Registry)];  // not destroyed when the process ends
  static Registry* const registry = [] {
    auto* made = new (storage) Registry;
    return made->begin() ? made : nullptr;
  }();
  return registry;
}

bool Registry::begin() {
  using namespace pv::metadata;
  entries_ = makeDictionary();
  bases_ = makeDictionary();
  const void* types[kPublicBaseDataTypeCount];
  for (size_t i = 0; i < kPublicBaseDataTypeCount; ++i) types[i] = kBaseDataTypes[i].type;
  publicBases_ =
      Array::adopt(BRArrayCreate(nullptr, types, kPublicBaseDataTypeCount, &kBRTypeArrayCallBacks));
  if (!entries_ || !bases_ || !publicBases_) return false;
  for (const BuiltInDataType& built : kBaseDataTypes)
    if (!insert(built.type, built.description, nullptr, built.type)) return false;
  for (const BuiltInDataType& built : pv::metadata::kConformingDataTypes) {
    const void* conformsTo = built.conformsTo;
    const auto conforming = Array::adopt(BRArrayCreate(nullptr, &conformsTo, 1, &kBRTypeArrayCallBacks));
    if (!conforming || add(built.type, built.description, conforming.get()) != kPVStatus_Success)
      return false;
  }
  return true;
}

bool Registry::insert(BRStringRef type, BRStringRef description, BRArrayRef conforming, BRStringRef base) {
  const Dictionary entry = makeDictionary();
  const auto name = String::adopt(BRStringCreateCopy(nullptr, type));
  const auto text = String::adopt(BRStringCreateCopy(nullptr, description));
  const Array list = conforming ? copyOf(conforming) : nullptr;
  if (!entry || !name || (description && !text) || (conforming && !list)) return false;
  if (text && !BRDictionarySetValue(entry.get(), kDescription, text.get())) return false;
  if (list && !BRDictionarySetValue(entry.get(), kConformingDataTypes, list.get())) return false;
  if (!BRDictionarySetValue(bases_.get(), name.get(), base == type ? name.get() : base)) return false;
  if (BRDictionarySetValue(entries_.get(), name.get(), entry.get())) return true;
  BRDictionaryRemoveValue(bases_.get(), name.get());
  return false;
}

PVStatus Registry::findBase(BRArrayRef conforming, BRStringRef& base) {
  if (BRArrayGetCount(conforming) == 0)
    return pv::signalError(kPVMetadataDataTypeRegistryError_NoBaseDataType);
  for (size_t i = 0; i < BRArrayGetCount(conforming); ++i)
    if (BRGetTypeID(typeAt(conforming, i)) != BRStringGetTypeID())
      return pv::signalError(kPVMetadataDataTypeRegistryError_BadConformingDataType);
  for (size_t i = 0; i < BRArrayGetCount(conforming); ++i) {
    BRStringRef found = baseOf(typeAt(conforming, i));
    if (base && found && !BREqual(base, found))
      return pv::signalError(kPVMetadataDataTypeRegistryError_SeveralBaseDataTypes);
    if (found) base = found;
  }
  return base ? kPVStatus_Success : pv::signalError(kPVMetadataDataTypeRegistryError_NoBaseDataType);
}

PVStatus Registry::add(BRStringRef type, BRStringRef description, BRArrayRef conforming) {
  const std::lock_guard lock(mutex_);
  BRStringRef base = nullptr;
  if (conforming) {
    if (PVStatus status = findBase(conforming, base)) return status;
  } else if (!BREqual(baseOf(type), type)) {
    return pv::signalError(kPVMetadataDataTypeRegistryError_NoBaseDataType);
  }
  if (isRegistered(type))
    return listsSame(conforming, conformingTo(type))
               ? kPVStatus_Success
               : pv::signalError(kPVMetadataDataTypeRegistryError_Conflict);
  return insert(type, description, conforming, base)
             ? kPVStatus_Success
             : pv::signalError(kPVMetadataDataTypeRegistryError_CreationFailed);
}

PVStatus Registry::addBase(BRStringRef type, BRStringRef description) {
  const std::lock_guard lock(mutex_);
  if (isRegistered(type))
    return conformingTo(type) ? pv::signalError(kPVMetadataDataTypeRegistryError_Conflict)
                              : kPVStatus_Success;
  return insert(type, description, nullptr, type)
             ? kPVStatus_Success
             : pv::signalError(kPVMetadataDataTypeRegistryError_CreationFailed);
}

// Depth first, the types that are still to be visited on a stack: the next one last. A type may be on it more
// than once; the first visit counts.
bool Registry::conforms(BRStringRef type, BRStringRef other) {
  const std::lock_guard lock(mutex_);
  const auto stack = br::Ref<BRArray>::adopt(BRArrayCreateMutable(nullptr, 0, &kBRTypeArrayCallBacks));
  const auto visited = br::Ref<BRSet>::adopt(BRSetCreateMutable(nullptr, 0, &kBRTypeSetCallBacks));
  if (!stack || !visited || !BRArrayAppendValue(stack.get(), type)) return false;
  while (const size_t count = BRArrayGetCount(stack.get())) {
    const auto next = String::retain(typeAt(stack.get(), count - 1));
    BRArrayRemoveValueAtIndex(stack.get(), count - 1);
    if (BRSetContainsValue(visited.get(), next.get())) continue;
    if (!isRegistered(next.get())) return false;
    BRArrayRef conforming = conformingTo(next.get());
    if (conforming && BRArrayContainsValue(conforming, other)) return true;
    if (!BRSetAddValue(visited.get(), next.get())) return false;
    for (size_t i = countOf(conforming); i-- > 0;)
      if (!BRArrayAppendValue(stack.get(), typeAt(conforming, i))) return false;
  }
  return false;
}

}  // namespace

PVStatus PVMetadataDataTypeRegistryRegisterDataType(BRStringRef dataType, BRStringRef description,
                                                    BRArrayRef conformingDataTypes) {
  Registry* registry = Registry::get();
  if (!registry) return pv::signalError(kPVMetadataDataTypeRegistryError_CreationFailed);
  if (!dataType) return pv::signalError(kPVMetadataDataTypeRegistryError_InvalidParameter);
  return registry->add(dataType, description, conformingDataTypes);
}

PVStatus KivMetadataDataTypeRegistryRegisterDynamicBaseDataType(BRStringRef dataType,
                                                                BRStringRef description) {
  Registry* registry = Registry::get();
  if (!registry) return pv::signalError(kPVMetadataDataTypeRegistryError_CreationFailed);
  if (!dataType) return pv::signalError(kPVMetadataDataTypeRegistryError_InvalidParameter);
  return registry->addBase(dataType, description);
}

bool PVMetadataDataTypeRegistryDataTypeIsRegistered(BRStringRef dataType) {
  Registry* registry = Registry::get();
  return registry && registry->isRegistered(dataType);
}

BRStringRef PVMetadataDataTypeRegistryGetDataTypeDescription(BRStringRef dataType) {
  Registry* registry = Registry::get();
  return registry ? registry->descriptionOf(dataType) : nullptr;
}

BRArrayRef PVMetadataDataTypeRegistryGetConformingDataTypes(BRStringRef dataType) {
  Registry* registry = Registry::get();
  return registry ? registry->conformingTo(dataType) : nullptr;
}

BRArrayRef PVMetadataDataTypeRegistryGetBaseDataTypes(void) {
  Registry* registry = Registry::get();
  return registry ? registry->publicBases() : nullptr;
}

bool PVMetadataDataTypeRegistryDataTypeIsBaseDataType(BRStringRef dataType) {
  Registry* registry = Registry::get();
  BRStringRef base = registry ? registry->baseOf(dataType) : nullptr;
  return base && BREqual(base, dataType);
}

BRStringRef PVMetadataDataTypeRegistryGetBaseDataTypeForConformingDataType(BRStringRef dataType) {
  Registry* registry = Registry::get();
  return registry ? registry->baseOf(dataType) : nullptr;
}

bool PVMetadataDataTypeRegistryDataTypeConformsToDataType(BRStringRef dataType, BRStringRef otherDataType) {
  Registry* registry = Registry::get();
  if (BREqual(dataType, otherDataType)) return true;
  return registry && dataType && otherDataType && registry->conforms(dataType, otherDataType);
}
