// The dictionary object, for files that build dictionaries in place.
#ifndef BEDRA_SRC_DICTIONARY_HPP
#define BEDRA_SRC_DICTIONARY_HPP

#include "src/hash_collection.hpp"

// An immutable dictionary is one block; a mutable one gets a second when it outgrows the few entries that fit
// in the first.
struct BRDictionary : br::HashCollection {
  static constexpr const char* className = "BRDictionary";
  static constexpr bool kHasValues = true;

  bool equals(const BRDictionary& other) const { return table.equals(other.table); }
  BRHashCode hash() const { return table.count(); }
  BRStringRef copyDescription() const;
};

#endif
