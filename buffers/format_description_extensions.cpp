// Comparing extension dictionaries while passing some keys over. Nothing is copied: entries that are passed
// over are skipped in both, and what is left must agree in number and value.
#include <kiv/format_description.h>

#include <bedra/array.h>
#include <bedra/dictionary.h>
#include <bedra/string.h>

#include <cstddef>

namespace {

// The keys passed over: fixed ones, those the caller gave, and at most one that is compared in another way.
struct Skipped {
  BRTypeRef given;  // a string, an array, or anything else, which skips nothing
  bool verbatim;
  BRStringRef apart;

  bool has(BRTypeRef key) const {
    if (verbatim && (BREqual(key, kPVFormatDescriptionExtension_VerbatimSampleDescription) ||
                     BREqual(key, kPVFormatDescriptionExtension_VerbatimISOSampleEntry)))
      return true;
    if (apart && BREqual(key, apart)) return true;
    const BRTypeID type = BRGetTypeID(given);
    if (type == BRStringGetTypeID()) return BREqual(key, given);
    return type == BRArrayGetTypeID() && BRArrayContainsValue(static_cast<BRArrayRef>(given), key);
  }
};

// Walks one dictionary and compares what is not skipped with another one.
struct Comparison {
  const Skipped& skipped;
  BRDictionaryRef other;
  size_t kept = 0;
  bool agree = true;

  static void visit(const void* key, const void* value, void* context) {
    auto& self = *static_cast<Comparison*>(context);
    if (!self.agree || self.skipped.has(key)) return;
    ++self.kept;
    const void* theirs = nullptr;
    self.agree = BRDictionaryGetValueIfPresent(self.other, key, &theirs) && BREqual(value, theirs);
  }
};

struct Count {
  const Skipped& skipped;
  size_t kept = 0;

  static void visit(const void* key, const void*, void* context) {
    auto& self = *static_cast<Count*>(context);
    self.kept += !self.skipped.has(key);
  }
};

bool equalBesides(BRDictionaryRef a, BRDictionaryRef b, const Skipped& skipped) {
  Comparison comparison{skipped, b};
  if (a) BRDictionaryApply(a, Comparison::visit, &comparison);
  Count count{skipped};
  if (comparison.agree && b) BRDictionaryApply(b, Count::visit, &count);
  return comparison.agree && comparison.kept == count.kept;
}

bool isDictionaryOrNull(BRTypeRef object) {
  return !object || BRGetTypeID(object) == BRDictionaryGetTypeID();
}

}  // namespace

bool KivFormatDescriptionExtensionsDictionariesEqualIgnoringKeys(BRDictionaryRef extensionsA,
                                                                 BRDictionaryRef extensionsB,
                                                                 BRTypeRef extensionKeysToIgnore,
                                                                 BRTypeRef atomKeysToIgnore) {
  if (!extensionKeysToIgnore && !atomKeysToIgnore) return BREqual(extensionsA, extensionsB);
  BRStringRef atoms = kPVFormatDescriptionExtension_SampleDescriptionExtensionAtoms;
  Skipped skipped{extensionKeysToIgnore, true, nullptr};
  if (atomKeysToIgnore && !skipped.has(atoms)) {
    skipped.apart = atoms;
    BRTypeRef atomsA = BRDictionaryGetValue(extensionsA, atoms);
    BRTypeRef atomsB = BRDictionaryGetValue(extensionsB, atoms);
    const bool equal =
        isDictionaryOrNull(atomsA) && isDictionaryOrNull(atomsB)
            ? equalBesides(static_cast<BRDictionaryRef>(atomsA), static_cast<BRDictionaryRef>(atomsB),
                           Skipped{atomKeysToIgnore, false, nullptr})
            : BREqual(atomsA, atomsB);
    if (!equal) return false;
  }
  return equalBesides(extensionsA, extensionsB, skipped);
}
