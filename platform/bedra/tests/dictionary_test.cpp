#include "tests/support/test.hpp"

namespace {

using namespace br::literals;
using test::FailingAllocator;
using test::Outcome;

int livingTokens;

struct Token : BRObject {
  static constexpr const char* className = "Token";
  explicit Token(int id) : id(id) { ++livingTokens; }
  ~Token() { --livingTokens; }
  bool equals(const Token& other) const { return id == other.id; }
  BRHashCode hash() const { return static_cast<BRHashCode>(id); }
  int id;
};

br::Ref<Token> token(int id) { return br::Ref<Token>::adopt(br::create<Token>(nullptr, 0, id)); }

using Dictionary = br::Ref<BRDictionary>;

Dictionary mutableDictionary(BRAllocatorRef allocator = nullptr, size_t capacity = 0) {
  return Dictionary::adopt(BRDictionaryCreateMutable(allocator, capacity, &kBRTypeDictionaryKeyCallBacks,
                                                     &kBRTypeDictionaryValueCallBacks));
}

const void* word(uintptr_t number) { return reinterpret_cast<const void*>(number); }
int idOf(const void* object) { return static_cast<const Token*>(object)->id; }

// How a model test makes keys and values of small numbers and reads them back.
enum class ItemKind { kWord, kToken, kString };
struct KeyStyle {
  const char* name;
  ItemKind kind;
  const BRDictionaryKeyCallBacks* keys;
  const BRDictionaryValueCallBacks* values;
};

const BRDictionaryKeyCallBacks kColliding = {0,
                                             [](BRAllocatorRef, const void* key) { return BRRetain(key); },
                                             [](BRAllocatorRef, const void* key) { BRRelease(key); },
                                             nullptr,
                                             BREqual,
                                             [](const void* key) { return BRHashCode(idOf(key) % 3); }};
const BRDictionaryKeyCallBacks kWithoutHash = {
    0, nullptr, nullptr, nullptr, [](const void* a, const void* b) { return a == b; }, nullptr};

const KeyStyle kStyles[] = {
    {"identity", ItemKind::kWord, nullptr, nullptr},
    {"objects", ItemKind::kToken, &kBRTypeDictionaryKeyCallBacks, &kBRTypeDictionaryValueCallBacks},
    {"strings", ItemKind::kString, &kBRCopyStringDictionaryKeyCallBacks, &kBRTypeDictionaryValueCallBacks},
    {"retained strings", ItemKind::kString, &kBRTypeDictionaryKeyCallBacks, &kBRTypeDictionaryValueCallBacks},
    {"colliding", ItemKind::kToken, &kColliding, &kBRTypeDictionaryValueCallBacks},
    {"no hash", ItemKind::kWord, &kWithoutHash, nullptr},
};

// Strings of 1 to 43 bytes, every third of them mutable, that differ in the last byte at least.
BRStringRef makeString(int number) {
  const std::string text = std::string(number * 7 % 41, 'k') + std::to_string(number);
  auto string =
      br::Ref<const BRString>::adopt(BRStringCreateWithCString(nullptr, text.c_str(), kBRStringEncodingUTF8));
  static int made = 0;
  return ++made % 3 ? string.detach() : BRStringCreateMutableCopy(nullptr, string.get());
}

class Item {
 public:
  Item(const KeyStyle& style, int number) : word_(word(number)) {
    if (style.kind == ItemKind::kToken)
      object_ = br::Ref<const void>::adopt(br::create<Token>(nullptr, 0, number));
    if (style.kind == ItemKind::kString) object_ = br::Ref<const void>::adopt(makeString(number));
  }
  operator const void*() const { return object_ ? object_.get() : word_; }

 private:
  const void* word_;
  br::Ref<const void> object_;
};

int numberOf(const KeyStyle& style, const void* item) {
  switch (style.kind) {
    case ItemKind::kWord:
      return static_cast<int>(reinterpret_cast<uintptr_t>(item));
    case ItemKind::kToken:
      return idOf(item);
    case ItemKind::kString:
      break;
  }
  const char* text = BRStringGetUTF8(static_cast<BRStringRef>(item));
  return std::atoi(text + std::strspn(text, "k"));
}

// What a dictionary should be: pairs in the order in which their keys came.
using Model = std::vector<std::pair<int, int>>;

auto findIn(Model& model, int key) {
  return std::find_if(model.begin(), model.end(), [key](const auto& pair) { return pair.first == key; });
}

void expectSame(const KeyStyle& style, BRDictionaryRef dictionary, const Model& model) {
  ASSERT_EQ(BRDictionaryGetCount(dictionary), model.size());
  std::vector<const void*> keys(model.size()), values(model.size());
  BRDictionaryGetKeysAndValues(dictionary, keys.data(), values.data());
  Model found;
  for (size_t i = 0; i < model.size(); ++i)
    found.emplace_back(numberOf(style, keys[i]), numberOf(style, values[i]));
  EXPECT_EQ(found, model);
}

void mutateBoth(const KeyStyle& style, BRMutableDictionaryRef dictionary, Model& model, std::mt19937& random,
                int keySpace) {
  const int number = static_cast<int>(random() % keySpace) + 1, news = static_cast<int>(random() % 1000) + 1;
  const Item key(style, number), value(style, news);
  const auto place = findIn(model, number);
  const bool there = place != model.end();
  const void* found = nullptr;
  switch (random() % 8) {
    case 0:
    case 1:
      EXPECT_EQ(BRDictionaryAddValue(dictionary, key, value), !there);
      if (!there) model.emplace_back(number, news);
      break;
    case 2:
      EXPECT_TRUE(BRDictionarySetValue(dictionary, key, value));
      if (there)
        place->second = news;
      else
        model.emplace_back(number, news);
      break;
    case 3:
      EXPECT_EQ(BRDictionaryReplaceValue(dictionary, key, value), there);
      if (there) place->second = news;
      break;
    case 4:
    case 5:
      EXPECT_EQ(BRDictionaryRemoveValue(dictionary, key), there);
      if (there) model.erase(place);
      break;
    case 6:
      EXPECT_EQ(BRDictionaryGetValueIfPresent(dictionary, key, &found), there);
      if (there) {
        EXPECT_EQ(numberOf(style, found), place->second);
      }
      break;
    case 7:
      EXPECT_EQ(BRDictionaryContainsKey(dictionary, key), there);
      if (random() % 400 != 0) break;
      BRDictionaryRemoveAllValues(dictionary);
      model.clear();
  }
}

TEST(Dictionary, BehavesAsOrderedPairsUnderRandomChanges) {
  for (const KeyStyle& style : kStyles) {
    for (int keySpace : {6, 12, 150}) {
      SCOPED_TRACE(std::string(style.name) + ", keys " + std::to_string(keySpace));
      std::mt19937 random(20 + keySpace);
      {
        auto dictionary = Dictionary::adopt(BRDictionaryCreateMutable(nullptr, 0, style.keys, style.values));
        Model model;
        for (int step = 0; step < 6000; ++step) {
          mutateBoth(style, dictionary.get(), model, random, keySpace);
          if (step % 97 == 0) expectSame(style, dictionary.get(), model);
          if (HasFailure()) return;
        }
        auto copy = br::Ref<const BRDictionary>::adopt(BRDictionaryCreateCopy(nullptr, dictionary.get()));
        expectSame(style, copy.get(), model);
        EXPECT_TRUE(BREqual(copy.get(), dictionary.get()));
      }
      EXPECT_EQ(livingTokens, 0);
    }
  }
}

TEST(Dictionary, CreationKeepsTheFirstOfEqualKeysAndOneBlockHoldsIt) {
  FailingAllocator allocator;
  for (int count : {0, 1, 8, 9, 100}) {
    std::vector<br::Ref<Token>> tokens;
    std::vector<const void*> keys, values;
    for (int i = 0; i < 2 * count; ++i) {
      tokens.push_back(token(i % count));
      keys.push_back(tokens.back().get());
      values.push_back(i < count ? "first"_br : "second"_br);
    }
    const int before = allocator.requests();
    auto dictionary = br::Ref<const BRDictionary>::adopt(
        BRDictionaryCreate(allocator, keys.data(), values.data(), keys.size(), &kBRTypeDictionaryKeyCallBacks,
                           &kBRTypeDictionaryValueCallBacks));
    EXPECT_EQ(allocator.requests(), before + 1);
    ASSERT_EQ(BRDictionaryGetCount(dictionary.get()), static_cast<size_t>(count));
    for (int i = 0; i < count; ++i)
      EXPECT_EQ(BRDictionaryGetValue(dictionary.get(), keys[count + i]), "first"_br);
    EXPECT_EQ(BRDictionaryGetValue(dictionary.get(), "absent"_br), nullptr);
  }
}

TEST(Dictionary, ImmutableAndNullOnesRefuseChanges) {
  const void *key = "key"_br, *value = "value"_br;
  auto dictionary = Dictionary::adopt(const_cast<BRMutableDictionaryRef>(BRDictionaryCreate(
      nullptr, &key, &value, 1, &kBRTypeDictionaryKeyCallBacks, &kBRTypeDictionaryValueCallBacks)));
  for (BRMutableDictionaryRef target : {dictionary.get(), static_cast<BRMutableDictionaryRef>(nullptr)}) {
    EXPECT_FALSE(BRDictionaryAddValue(target, "other"_br, value));
    EXPECT_FALSE(BRDictionarySetValue(target, key, key));
    EXPECT_FALSE(BRDictionaryReplaceValue(target, key, key));
    EXPECT_FALSE(BRDictionaryRemoveValue(target, key));
    BRDictionaryRemoveAllValues(target);
  }
  EXPECT_EQ(BRDictionaryGetCount(dictionary.get()), 1u);
  EXPECT_EQ(BRDictionaryGetValue(dictionary.get(), key), value);
  EXPECT_EQ(BRDictionaryGetCount(nullptr), 0u);
  EXPECT_EQ(BRDictionaryCreateCopy(nullptr, nullptr), nullptr);
  EXPECT_EQ(BRDictionaryCreate(nullptr, nullptr, &value, 1, nullptr, nullptr), nullptr);
  EXPECT_EQ(BRDictionaryCreateMutable(nullptr, SIZE_MAX, nullptr, nullptr), nullptr);
  const BRDictionaryValueCallBacks later = {1, nullptr, nullptr, nullptr, nullptr};
  EXPECT_EQ(BRDictionaryCreateMutable(nullptr, 0, nullptr, &later), nullptr);
}

TEST(Dictionary, CopiesShareOnlyWhenNothingCanTell) {
  FailingAllocator allocator;
  auto source = mutableDictionary();
  BRDictionarySetValue(source.get(), "a"_br, "1"_br);
  auto copy = br::Ref<const BRDictionary>::adopt(BRDictionaryCreateCopy(nullptr, source.get()));
  auto same = br::Ref<const BRDictionary>::adopt(BRDictionaryCreateCopy(kBRAllocatorSystem, copy.get()));
  auto elsewhere = br::Ref<const BRDictionary>::adopt(BRDictionaryCreateCopy(allocator, copy.get()));
  auto changing = Dictionary::adopt(BRDictionaryCreateMutableCopy(nullptr, copy.get()));
  BRDictionarySetValue(source.get(), "a"_br, "2"_br);
  EXPECT_EQ(same.get(), copy.get());
  EXPECT_NE(elsewhere.get(), copy.get());
  EXPECT_EQ(BRDictionaryGetValue(copy.get(), "a"_br), "1"_br);
  for (BRDictionaryRef other : {elsewhere.get(), BRDictionaryRef(changing.get())}) {
    EXPECT_TRUE(BREqual(other, copy.get()));
    EXPECT_EQ(BRHash(other), BRHash(copy.get()));
  }
  EXPECT_FALSE(BREqual(source.get(), copy.get()));
  EXPECT_TRUE(BRDictionarySetValue(changing.get(), "b"_br, "1"_br));
  EXPECT_FALSE(BREqual(changing.get(), copy.get()));
}

TEST(Dictionary, EqualityIgnoresOrderAndSeesKeysValuesAndCallbacks) {
  auto make = [](std::initializer_list<std::pair<int, int>> pairs) {
    auto dictionary = mutableDictionary();
    for (auto [key, value] : pairs)
      BRDictionarySetValue(dictionary.get(), token(key).get(), token(value).get());
    return dictionary;
  };
  auto base = make({{1, 10}, {2, 20}});
  EXPECT_TRUE(BREqual(base.get(), make({{2, 20}, {1, 10}}).get()));
  EXPECT_FALSE(BREqual(base.get(), make({{1, 10}, {2, 21}}).get()));
  EXPECT_FALSE(BREqual(base.get(), make({{1, 10}, {3, 20}}).get()));
  EXPECT_FALSE(BREqual(base.get(), make({{1, 10}}).get()));
  auto unretained = Dictionary::adopt(BRDictionaryCreateMutable(nullptr, 0, nullptr, nullptr));
  EXPECT_TRUE(BREqual(unretained.get(), mutableDictionary().get()));
  BRDictionarySetValue(unretained.get(), "a"_br, "b"_br);
  auto retained = mutableDictionary();
  BRDictionarySetValue(retained.get(), "a"_br, "b"_br);
  EXPECT_FALSE(BREqual(unretained.get(), retained.get()));
  EXPECT_FALSE(BREqual(retained.get(), unretained.get()));
}

TEST(Dictionary, NullsAndZeroAreKeysAndValuesLikeOthers) {
  for (auto* keys : {static_cast<const BRDictionaryKeyCallBacks*>(nullptr), &kBRTypeDictionaryKeyCallBacks}) {
    auto dictionary =
        Dictionary::adopt(BRDictionaryCreateMutable(nullptr, 0, keys, &kBRTypeDictionaryValueCallBacks));
    const void* value = "unset"_br;
    EXPECT_FALSE(BRDictionaryContainsKey(dictionary.get(), nullptr));
    EXPECT_TRUE(BRDictionaryAddValue(dictionary.get(), nullptr, nullptr));
    EXPECT_TRUE(BRDictionaryGetValueIfPresent(dictionary.get(), nullptr, &value));
    EXPECT_EQ(value, nullptr);
    EXPECT_TRUE(BRDictionaryRemoveValue(dictionary.get(), nullptr));
    EXPECT_FALSE(BRDictionaryContainsKey(dictionary.get(), nullptr));
  }
}

TEST(Dictionary, ApplierMayRemoveAndReplaceWhatItIsShown) {
  for (int count : {7, 40}) {
    auto dictionary = mutableDictionary();
    for (int i = 0; i < count; ++i) BRDictionarySetValue(dictionary.get(), token(i).get(), token(i).get());
    struct Walk {
      BRMutableDictionaryRef dictionary;
      int seen;
    } walk = {dictionary.get(), 0};
    BRDictionaryApply(
        dictionary.get(),
        [](const void* key, const void* value, void* context) {
          auto* state = static_cast<Walk*>(context);
          EXPECT_EQ(idOf(key), state->seen++);
          if (idOf(value) % 2)
            BRDictionaryRemoveValue(state->dictionary, key);
          else
            BRDictionaryReplaceValue(state->dictionary, key, token(-1).get());
        },
        &walk);
    EXPECT_EQ(walk.seen, count);
    EXPECT_EQ(BRDictionaryGetCount(dictionary.get()), static_cast<size_t>((count + 1) / 2));
  }
  EXPECT_EQ(livingTokens, 0);
}

// A value whose end changes the dictionary that held it.
struct Meddler : BRObject {
  static constexpr const char* className = "Meddler";
  explicit Meddler(BRMutableDictionaryRef dictionary) : dictionary(dictionary) {}
  ~Meddler() {
    BRDictionaryRemoveValue(dictionary, "victim"_br);
    for (BRStringRef key : {"1"_br, "2"_br, "3"_br, "4"_br, "5"_br, "6"_br, "7"_br, "8"_br, "9"_br})
      BRDictionarySetValue(dictionary, key, key);
  }
  BRMutableDictionaryRef dictionary;
};

TEST(Dictionary, CopiedStringKeysIgnoreLaterChangesOfTheCallersString) {
  auto key = br::Ref<BRString>::adopt(BRStringCreateMutableCopy(nullptr, "key"_br));
  auto dictionary = Dictionary::adopt(BRDictionaryCreateMutable(
      nullptr, 0, &kBRCopyStringDictionaryKeyCallBacks, &kBRTypeDictionaryValueCallBacks));
  BRDictionarySetValue(dictionary.get(), key.get(), "value"_br);
  BRStringAppend(key.get(), " and more"_br);
  EXPECT_EQ(BRDictionaryGetValue(dictionary.get(), "key"_br), "value"_br);
  EXPECT_FALSE(BRDictionaryContainsKey(dictionary.get(), key.get()));
}

TEST(Dictionary, ReleaseCallbacksMayChangeTheDictionary) {
  auto change = [](void (*action)(BRMutableDictionaryRef)) {
    auto dictionary = mutableDictionary();
    BRDictionarySetValue(dictionary.get(), "meddler"_br,
                         br::Ref<Meddler>::adopt(br::create<Meddler>(nullptr, 0, dictionary.get())).get());
    BRDictionarySetValue(dictionary.get(), "victim"_br, token(1).get());
    action(dictionary.get());
    EXPECT_EQ(BRDictionaryGetValue(dictionary.get(), "9"_br), "9"_br);
    EXPECT_FALSE(BRDictionaryContainsKey(dictionary.get(), "victim"_br));
    return BRDictionaryGetCount(dictionary.get());
  };
  EXPECT_EQ(change([](BRMutableDictionaryRef d) { BRDictionaryRemoveValue(d, "meddler"_br); }), 9u);
  EXPECT_EQ(change([](BRMutableDictionaryRef d) { BRDictionarySetValue(d, "meddler"_br, "x"_br); }), 10u);
  EXPECT_EQ(change([](BRMutableDictionaryRef d) { BRDictionaryRemoveAllValues(d); }), 9u);
  EXPECT_EQ(livingTokens, 0);
}

// Keys copied with the dictionary's allocator, so that retaining one may fail.
const BRDictionaryKeyCallBacks kCopied = {0,
                                          [](BRAllocatorRef allocator, const void* key) -> const void* {
                                            return br::create<Token>(allocator, 0, idOf(key));
                                          },
                                          [](BRAllocatorRef, const void* key) { BRRelease(key); },
                                          nullptr,
                                          BREqual,
                                          BRHash};

TEST(Dictionary, EveryFailedRequestLeavesTheDictionaryAsItWas) {
  std::vector<br::Ref<Token>> tokens;
  for (int i = 0; i < 20; ++i) tokens.push_back(token(i));
  const int requests = test::walkAllocationFailures([&](BRAllocatorRef allocator) {
    auto dictionary = Dictionary::adopt(
        BRDictionaryCreateMutable(allocator, 9, &kCopied, &kBRTypeDictionaryValueCallBacks));
    if (!dictionary) return Outcome::kOutOfMemory;
    for (size_t i = 0; i < tokens.size(); ++i) {
      if (BRDictionarySetValue(dictionary.get(), tokens[i].get(), tokens[i].get())) continue;
      EXPECT_EQ(BRDictionaryGetCount(dictionary.get()), i);
      EXPECT_FALSE(BRDictionaryContainsKey(dictionary.get(), tokens[i].get()));
      for (size_t j = 0; j < i; ++j)
        EXPECT_EQ(BRDictionaryGetValue(dictionary.get(), tokens[j].get()), tokens[j].get());
      return Outcome::kOutOfMemory;
    }
    auto copy = br::Ref<const BRDictionary>::adopt(BRDictionaryCreateCopy(allocator, dictionary.get()));
    auto changing = Dictionary::adopt(BRDictionaryCreateMutableCopy(allocator, dictionary.get()));
    return copy && changing ? Outcome::kSucceeded : Outcome::kOutOfMemory;
  });
  EXPECT_GE(requests, 64);
  tokens.clear();
  EXPECT_EQ(livingTokens, 0);
}

TEST(Dictionary, CallbackRecordsAreCopiedAndHandedTheAllocator) {
  static BRAllocatorRef seen;
  FailingAllocator allocator;
  auto source = [&] {
    BRDictionaryKeyCallBacks keys = kBRTypeDictionaryKeyCallBacks;
    BRDictionaryValueCallBacks values{};
    values.retain = [](BRAllocatorRef given, const void* value) {
      seen = given;
      return value;
    };
    auto made = Dictionary::adopt(BRDictionaryCreateMutable(allocator, 0, &keys, &values));
    keys = {}, values = {};
    return made;
  }();
  EXPECT_TRUE(BRDictionarySetValue(source.get(), token(7).get(), word(3)));
  EXPECT_EQ(seen, static_cast<BRAllocatorRef>(allocator));
  auto copy = br::Ref<const BRDictionary>::adopt(BRDictionaryCreateCopy(nullptr, source.get()));
  source = nullptr;
  EXPECT_EQ(seen, kBRAllocatorSystem);
  EXPECT_EQ(BRDictionaryGetValue(copy.get(), token(7).get()), word(3));
}

}  // namespace
