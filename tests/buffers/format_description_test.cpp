#include <kiv/error.h>
#include <kiv/format_description.h>

#include "runtime/four_char_code.hpp"
#include "tests/support/objects.hpp"

namespace {

using namespace br::literals;
using namespace pv::literals;
using test::array;
using test::Dictionary;
using test::dictionary;
using test::Outcome;
using Description = br::Ref<PVFormatDescription>;

constexpr PVMediaType kOwnType = "abcd"_4cc;

Description make(PVMediaType type, PVFourCharCode subType = "sub1"_4cc,
                 BRDictionaryRef extensions = nullptr) {
  Description description;
  EXPECT_EQ(PVFormatDescriptionCreate(nullptr, type, subType, extensions, description.out()), 0);
  return description;
}

Description makeMuxed(PVFourCharCode muxType, BRDictionaryRef extensions = nullptr) {
  Description description;
  EXPECT_EQ(PVMuxedFormatDescriptionCreate(nullptr, muxType, extensions, description.out()), 0);
  return description;
}

TEST(FormatDescription, HoldsAnImmutableCopyOfWhatItIsCreatedWith) {
  Dictionary inner = dictionary({{"x"_br, kBRBooleanTrue}});
  Dictionary given =
      dictionary({{kPVFormatDescriptionExtension_Vendor, "pvrn"_br}, {"inner"_br, inner.get()}});
  Description description = make(kOwnType, "sub1"_4cc, given.get());
  BRDictionarySetValue(given.get(), kPVFormatDescriptionExtension_Vendor, "else"_br);
  BRDictionaryRemoveValue(inner.get(), "x"_br);

  EXPECT_EQ(PVFormatDescriptionGetMediaType(description.get()), kOwnType);
  EXPECT_EQ(PVFormatDescriptionGetMediaSubType(description.get()), "sub1"_4cc);
  EXPECT_EQ(BRGetTypeID(description.get()), PVFormatDescriptionGetTypeID());
  EXPECT_EQ(PVFormatDescriptionGetExtension(description.get(), kPVFormatDescriptionExtension_Vendor),
            "pvrn"_br);
  EXPECT_EQ(PVFormatDescriptionGetExtension(description.get(), "absent"_br), nullptr);
  auto kept = static_cast<BRDictionaryRef>(PVFormatDescriptionGetExtension(description.get(), "inner"_br));
  EXPECT_EQ(BRDictionaryGetValue(kept, "x"_br), kBRBooleanTrue);
  EXPECT_FALSE(BRDictionarySetValue(const_cast<BRMutableDictionaryRef>(kept), "y"_br, kBRBooleanTrue));

  // extensions taken from another description are shared
  BRDictionaryRef extensions = PVFormatDescriptionGetExtensions(description.get());
  EXPECT_EQ(PVFormatDescriptionGetExtensions(make("bcde"_4cc, "sub1"_4cc, extensions).get()), extensions);
  EXPECT_EQ(PVFormatDescriptionGetExtensions(make(kOwnType).get()), nullptr);
  EXPECT_EQ(PVFormatDescriptionGetExtension(make(kOwnType).get(), "inner"_br), nullptr);
}

TEST(FormatDescription, NullHasNeutralAnswers) {
  const uint64_t before = KivGetErrorCount();
  EXPECT_EQ(PVFormatDescriptionGetMediaType(nullptr), 0u);
  EXPECT_EQ(PVFormatDescriptionGetMediaSubType(nullptr), 0u);
  EXPECT_EQ(PVFormatDescriptionGetExtensions(nullptr), nullptr);
  EXPECT_EQ(PVFormatDescriptionGetExtension(nullptr, "key"_br), nullptr);
  EXPECT_EQ(KivFormatDescriptionRetain(nullptr), nullptr);
  KivFormatDescriptionRelease(nullptr);
  EXPECT_EQ(KivGetErrorCount(), before);
  EXPECT_EQ(KivDerivedFormatDescriptionGetDerivedStorage(nullptr), nullptr);
  EXPECT_EQ(KivGetErrorCount(), before + 1);
  Description description = make(kOwnType);
  KivFormatDescriptionRelease(KivFormatDescriptionRetain(description.get()));
  EXPECT_EQ(BRGetRetainCount(description.get()), 1u);
}

TEST(FormatDescription, CreationRefusesBadArguments) {
  Dictionary notAPropertyList = dictionary(
      {{"set"_br,
        br::Ref<const BRSet>::adopt(BRSetCreate(nullptr, nullptr, 0, &kBRTypeSetCallBacks)).get()}});
  auto* notADictionary = reinterpret_cast<BRDictionaryRef>("text"_br);
  const uint64_t before = KivGetErrorCount();
  EXPECT_EQ(PVFormatDescriptionCreate(nullptr, kOwnType, 0, nullptr, nullptr), -12710);
  EXPECT_EQ(PVMuxedFormatDescriptionCreate(nullptr, "mp2t"_4cc, nullptr, nullptr), -12710);
  Description out = make(kOwnType);
  auto refused = [&](PVStatus status) { return status == -12710 && out.get() == nullptr; };
  PVFormatDescriptionRef* place = out.out();
  for (BRDictionaryRef extensions : {static_cast<BRDictionaryRef>(notAPropertyList.get()), notADictionary}) {
    *place = reinterpret_cast<PVFormatDescriptionRef>(1);
    EXPECT_TRUE(refused(PVFormatDescriptionCreate(nullptr, kOwnType, 0, extensions, place)));
  }
  *place = reinterpret_cast<PVFormatDescriptionRef>(1);
  EXPECT_TRUE(refused(PVFormatDescriptionCreate(nullptr, 0, "sub1"_4cc, nullptr, place)));
  *place = reinterpret_cast<PVFormatDescriptionRef>(1);
  EXPECT_TRUE(refused(PVMuxedFormatDescriptionCreate(nullptr, 0, nullptr, place)));
  EXPECT_EQ(KivGetErrorCount(), before + 6);
}

TEST(FormatDescription, RunningOutOfMemoryLeaksNothing) {
  Dictionary given = dictionary({{"inner"_br, dictionary({{"x"_br, kBRBooleanTrue}}).get()}});
  auto outcomeOf = [](PVStatus status, const Description& description) {
    EXPECT_EQ(status, description ? 0 : -12711);
    return status == 0 ? Outcome::kSucceeded : Outcome::kOutOfMemory;
  };
  const int requests = test::walkAllocationFailures([&](BRAllocatorRef allocator) {
    Description description;
    return outcomeOf(PVFormatDescriptionCreate(allocator, kOwnType, 1, given.get(), description.out()),
                     description);
  });
  EXPECT_EQ(requests, 3);  // the description, its extensions, the dictionary in them
  test::walkAllocationFailures([&](BRAllocatorRef allocator) {
    Description description;
    return outcomeOf(PVMuxedFormatDescriptionCreate(allocator, "mp2t"_4cc, given.get(), description.out()),
                     description);
  });
}

TEST(FormatDescription, EqualityLooksAtTypeSubtypeAndExtensions) {
  Dictionary given = dictionary({{"x"_br, "1"_br}});
  Dictionary other = dictionary({{"x"_br, "2"_br}});
  Description first = make(kOwnType, "sub1"_4cc, given.get());
  Description same = make(kOwnType, "sub1"_4cc, given.get());
  EXPECT_TRUE(PVFormatDescriptionEqual(first.get(), same.get()));
  EXPECT_TRUE(BREqual(first.get(), same.get()));
  EXPECT_EQ(BRHash(first.get()), BRHash(same.get()));
  for (const Description& different :
       {make("bcde"_4cc, "sub1"_4cc, given.get()), make(kOwnType, "sub2"_4cc, given.get()),
        make(kOwnType, "sub1"_4cc, other.get()), make(kOwnType, "sub1"_4cc)}) {
    EXPECT_FALSE(PVFormatDescriptionEqual(first.get(), different.get()));
    EXPECT_FALSE(PVFormatDescriptionEqual(different.get(), first.get()));
  }
  EXPECT_TRUE(PVFormatDescriptionEqual(nullptr, nullptr));
  EXPECT_FALSE(PVFormatDescriptionEqual(first.get(), nullptr));
  EXPECT_TRUE(PVFormatDescriptionEqualIgnoringExtensionKeys(nullptr, nullptr, nullptr, nullptr));
  EXPECT_FALSE(PVFormatDescriptionEqualIgnoringExtensionKeys(nullptr, first.get(), nullptr, nullptr));
}

// The runtime makes an instance from the type ID alone, with every field zero.
TEST(FormatDescription, TwoOfMediaTypeZeroAreEqual) {
  auto blank = [] {
    BRTypeRef instance = BRRuntimeCreateInstance(nullptr, PVFormatDescriptionGetTypeID(), 64);
    return Description::adopt(static_cast<PVFormatDescriptionRef>(const_cast<void*>(instance)));
  };
  Description a = blank(), b = blank();
  EXPECT_TRUE(PVFormatDescriptionEqual(a.get(), b.get()));
  EXPECT_FALSE(PVFormatDescriptionEqual(a.get(), make(kOwnType).get()));
}

TEST(FormatDescription, EqualityPassesOverTheKeysItIsTold) {
  BRStringRef verbatim = kPVFormatDescriptionExtension_VerbatimSampleDescription;
  BRStringRef atoms = kPVFormatDescriptionExtension_SampleDescriptionExtensionAtoms;
  const Dictionary none,
      empty = dictionary({}), x1 = dictionary({{"x"_br, "1"_br}}), x2 = dictionary({{"x"_br, "2"_br}}),
      xy = dictionary({{"x"_br, "1"_br}, {"y"_br, "1"_br}}),
      v1 = dictionary({{verbatim, "1"_br}, {kPVFormatDescriptionExtension_VerbatimISOSampleEntry, "1"_br}}),
      v2 = dictionary({{kPVFormatDescriptionExtension_VerbatimImageDescription, "2"_br}}),
      ax1 = dictionary({{atoms, x1.get()}, {"z"_br, "1"_br}}),
      ax2 = dictionary({{atoms, x2.get()}, {"z"_br, "1"_br}}),
      axy = dictionary({{"z"_br, "1"_br}, {atoms, xy.get()}}), z = dictionary({{"z"_br, "1"_br}}),
      text = dictionary({{atoms, "text"_br}});
  const auto both = array({"x"_br, "y"_br}), nothing = array({});
  const struct {
    const char* name;
    const Dictionary &a, &b;
    BRTypeRef keys, atomKeys;
    bool equal;
  } cases[] = {
      {"values differ", x1, x2, nullptr, nullptr, false},
      {"a differing value is passed over", x1, x2, "x"_br, nullptr, true},
      {"another key does not help", x1, x2, "y"_br, nullptr, false},
      {"a key that one side lacks", x1, xy, "y"_br, nullptr, true},
      {"an array of keys", x2, xy, both.get(), nullptr, true},
      {"an empty array", x1, x2, nothing.get(), nullptr, false},
      {"all is passed over on one side", none, x1, "x"_br, nullptr, true},
      {"null and empty differ", none, empty, nullptr, nullptr, false},
      {"null and empty with something to ignore", none, empty, "x"_br, nullptr, true},
      {"verbatim forms count", v1, v2, nullptr, nullptr, false},
      {"verbatim forms, any key given", v1, v2, "absent"_br, nullptr, true},
      {"verbatim forms, any atom key given", v1, v2, nullptr, "absent"_br, true},
      {"verbatim forms, an argument of another class", v1, v2, kBRBooleanTrue, nullptr, true},
      {"an argument of another class removes nothing", x1, x2, kBRBooleanTrue, kBRBooleanTrue, false},
      {"atoms differ", ax1, ax2, "x"_br, nullptr, false},
      {"a differing atom is passed over", ax1, ax2, nullptr, "x"_br, true},
      {"an array of atom keys", ax2, axy, nullptr, both.get(), true},
      {"an atom that is left", ax1, axy, nullptr, "x"_br, false},
      {"all atoms are passed over on one side", z, ax1, nullptr, "x"_br, true},
      {"atom keys do not reach other extensions", x1, x2, nullptr, "x"_br, false},
      {"the atoms as a whole are passed over", ax1, ax2, atoms, "absent"_br, true},
      {"atoms that are no dictionary", text, text, nullptr, "x"_br, true},
      {"atoms that are no dictionary and differ", text, ax1, "z"_br, "x"_br, false},
  };
  for (const auto& row : cases) {
    auto equal = KivFormatDescriptionExtensionsDictionariesEqualIgnoringKeys;
    EXPECT_EQ(equal(row.a.get(), row.b.get(), row.keys, row.atomKeys), row.equal) << row.name;
    EXPECT_EQ(equal(row.b.get(), row.a.get(), row.keys, row.atomKeys), row.equal) << row.name << ", swapped";
    Description a = make(kOwnType, 1, row.a.get()), b = make(kOwnType, 1, row.b.get());
    EXPECT_EQ(PVFormatDescriptionEqualIgnoringExtensionKeys(a.get(), b.get(), row.keys, row.atomKeys),
              row.equal)
        << row.name << ", of descriptions";
  }
}

TEST(FormatDescription, MuxedOnesAreTheirMuxType) {
  Dictionary given = dictionary({{"x"_br, "1"_br}});
  Description plain = makeMuxed("mp2t"_4cc), extended = makeMuxed("mp2t"_4cc, given.get());
  EXPECT_EQ(PVFormatDescriptionGetMediaType(plain.get()), PVMediaType{kPVMediaType_Muxed});
  EXPECT_EQ(PVFormatDescriptionGetMediaSubType(plain.get()), "mp2t"_4cc);
  EXPECT_TRUE(PVFormatDescriptionEqual(plain.get(), extended.get()));
  EXPECT_EQ(BRHash(plain.get()), BRHash(extended.get()));
  EXPECT_FALSE(PVFormatDescriptionEqual(plain.get(), makeMuxed("mp1s"_4cc).get()));
  // made without its own function, it has subtype "mp2t"_4cc but no mux type
  EXPECT_FALSE(PVFormatDescriptionEqual(plain.get(), make(kPVMediaType_Muxed, "mp2t"_4cc).get()));
}

std::string textOf(const Description& description) {
  auto text = br::Ref<const BRString>::adopt(BRCopyDescription(description.get()));
  auto debug = br::Ref<const BRString>::adopt(BRCopyDebugDescription(description.get()));
  EXPECT_TRUE(BREqual(text.get(), debug.get()));
  return BRStringGetUTF8(text.get());
}

std::string expected(const char* kind, const Description& description, const char* rest) {
  char opening[128];
  std::snprintf(opening, sizeof opening, "<PV%sFormatDescription %p [%p]> {\n", kind,
                static_cast<const void*>(description.get()),
                static_cast<const void*>(BRGetAllocator(description.get())));
  return opening + std::string(rest);
}

TEST(FormatDescription, TextShowsEverything) {
  Description generic = make(kOwnType, "sub1"_4cc, dictionary({{"x"_br, "1"_br}}).get());
  EXPECT_EQ(textOf(generic),
            expected("", generic,
                     "\tmediaType:'abcd' \n\tmediaSubType:'sub1' \n\tmediaSpecific: {\n(null) \n\t} "
                     "\n\textensions: {{\n    x = 1;\n}}\n}"));
  Description muxed = makeMuxed("mp2t"_4cc);
  EXPECT_EQ(
      textOf(muxed),
      expected("Muxed", muxed,
               "\tmediaType:'muxx' \n\tmediaSubType:'mp2t' \n\tmediaSpecific: {\n\t\tmuxType: 'mp2t' \n\t} "
               "\n\textensions: {(null)}\n}"));
  const struct {
    PVMediaType type;
    const char* opening;
  } kinds[] = {{kPVMediaType_Audio, "<PVAudioF"},       {kPVMediaType_Video, "<PVVideoF"},
               {kPVMediaType_Text, "<PVTextF"},         {kPVMediaType_ClosedCaption, "<PVClosedCaptionF"},
               {kPVMediaType_Subtitle, "<PVSubtitleF"}, {kPVMediaType_Metadata, "<PVMetadataF"},
               {kPVMediaType_TimeCode, "<PVF"}};
  for (const auto& kind : kinds)
    EXPECT_EQ(textOf(make(kind.type)).rfind(kind.opening, 0), 0u) << kind.opening;
}

// A media type of the tests' own.
struct Reel {
  uint64_t feet;
  char bytes[24];
};
std::atomic<int> finalizedReels{0};
BRTypeRef lastKeys, lastAtomKeys;

Reel* reelOf(PVFormatDescriptionRef description) {
  return static_cast<Reel*>(KivDerivedFormatDescriptionGetDerivedStorage(description));
}

KivDerivedFormatDescriptionCallbacks reelEntry() {
  return {0, sizeof(Reel),
          [](PVFormatDescriptionRef a, PVFormatDescriptionRef b, BRTypeRef keys, BRTypeRef atomKeys) {
            lastKeys = keys, lastAtomKeys = atomKeys;
            return reelOf(a)->feet == reelOf(b)->feet;
          },
          nullptr, [](PVFormatDescriptionRef) { ++finalizedReels; }};
}

TEST(FormatDescriptionRegistry, RefusesRecordsItCannotUse) {
  KivDerivedFormatDescriptionCallbacks newer = reelEntry(), mute = reelEntry();
  newer.version = 1;
  mute.equal = nullptr;
  for (auto* callbacks : {&newer, &mute, static_cast<KivDerivedFormatDescriptionCallbacks*>(nullptr)})
    EXPECT_EQ(KivDerivedFormatDescriptionRegister("bad1"_4cc, callbacks), -12710);
}

TEST(FormatDescriptionRegistry, AMediaTypeBringsItsOwnStorageAndCallbacks) {
  Description early = make("reel"_4cc);
  EXPECT_EQ(KivDerivedFormatDescriptionRegister("reel"_4cc, nullptr), -12710);
  KivDerivedFormatDescriptionCallbacks entry = reelEntry();
  ASSERT_EQ(KivDerivedFormatDescriptionRegister("reel"_4cc, &entry), 0);
  entry.derivedStorageSize = 0;
  entry.equal = [](PVFormatDescriptionRef, PVFormatDescriptionRef, BRTypeRef, BRTypeRef) { return false; };
  EXPECT_EQ(KivDerivedFormatDescriptionRegister("reel"_4cc, &entry), 0);  // and changes nothing

  finalizedReels = 0;
  Description a = make("reel"_4cc), b = make("reel"_4cc);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(reelOf(a.get())) % 16, 0u);
  const char* bytes = reinterpret_cast<const char*>(reelOf(a.get()));
  EXPECT_TRUE(std::all_of(bytes, bytes + sizeof(Reel), [](char byte) { return byte == 0; }));
  EXPECT_TRUE(PVFormatDescriptionEqual(a.get(), b.get()));
  EXPECT_TRUE(PVFormatDescriptionEqualIgnoringExtensionKeys(a.get(), b.get(), "k"_br, "a"_br));
  EXPECT_EQ(lastKeys, "k"_br);
  EXPECT_EQ(lastAtomKeys, "a"_br);
  reelOf(b.get())->feet = 1000;
  EXPECT_FALSE(PVFormatDescriptionEqual(a.get(), b.get()));
  // what was made before has no storage to be compared
  EXPECT_FALSE(PVFormatDescriptionEqual(early.get(), a.get()));
  EXPECT_TRUE(PVFormatDescriptionEqual(early.get(), early.get()));
  early = nullptr;
  EXPECT_EQ(finalizedReels, 0);
  a = b = nullptr;
  EXPECT_EQ(finalizedReels, 2);
}

TEST(FormatDescriptionRegistry, StorageThatCannotBeHadFails) {
  KivDerivedFormatDescriptionCallbacks entry = reelEntry();
  entry.derivedStorageSize = SIZE_MAX - 8;
  ASSERT_EQ(KivDerivedFormatDescriptionRegister("huge"_4cc, &entry), 0);
  Description description;
  EXPECT_EQ(PVFormatDescriptionCreate(nullptr, "huge"_4cc, 1, nullptr, description.out()), -12711);
  EXPECT_FALSE(description);
}

TEST(FormatDescriptionRegistryDeathTest, NothingIsCreatedBeforeTheFirstRegistration) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // in a fresh process
  auto answers = [] {
    PVFormatDescriptionRef out = nullptr;
    const PVStatus first =
        KivDerivedFormatDescriptionCreate(nullptr, kPVMediaType_Muxed, "mp2t"_4cc, nullptr, &out);
    KivMuxedFormatDescriptionRegister();
    const PVStatus second = KivDerivedFormatDescriptionCreate(nullptr, kOwnType, 1, nullptr, &out);
    KivGenericFormatDescriptionRegisterOnce();
    const PVStatus third = KivDerivedFormatDescriptionCreate(nullptr, kOwnType, 1, nullptr, &out);
    std::fprintf(stderr, "%d %d %d", first, second, third);
    KivFormatDescriptionRelease(out);
    std::exit(0);
  };
  EXPECT_EXIT(answers(), testing::ExitedWithCode(0), "-12710 -12710 0");
}

TEST(FormatDescriptionThreads, RegisteringAndUsingSideBySide) {
  Description shared = make(kOwnType, "sub1"_4cc, dictionary({{"x"_br, "1"_br}}).get());
  std::vector<std::thread> threads;
  for (int number = 0; number < 4; ++number)
    threads.emplace_back([&] {
      for (PVMediaType type = "thr0"_4cc; type < "thr0"_4cc + 100; ++type) {
        const KivDerivedFormatDescriptionCallbacks entry = reelEntry();
        Description before = make(type - 50, "sub1"_4cc, PVFormatDescriptionGetExtensions(shared.get()));
        EXPECT_EQ(KivDerivedFormatDescriptionRegister(type, &entry), 0);
        EXPECT_EQ(reelOf(make(type).get())->feet, 0u);
        EXPECT_FALSE(PVFormatDescriptionEqual(shared.get(), before.get()));
        EXPECT_TRUE(PVFormatDescriptionEqual(shared.get(), KivFormatDescriptionRetain(shared.get())));
        KivFormatDescriptionRelease(shared.get());
      }
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(BRGetRetainCount(shared.get()), 1u);
}

}  // namespace
