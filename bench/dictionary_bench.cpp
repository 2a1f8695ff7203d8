// Dictionaries of strings: finding among 4 and 64 keys, by the very key objects that are in the dictionary
// (as programs do with constant keys) and by equal ones, and the life of a dictionary with one entry.
#include <bedra/dictionary.h>
#include <bedra/string.h>
#include <benchmark/benchmark.h>
#include <bedra/ref.hpp>

#include <string>
#include <unordered_map>
#include <vector>

#if HAVE_GLIB
#include <glib.h>
#endif

#include "bench/second_thread.hpp"

namespace {

using String = br::Ref<const BRString>;

const char* const kWords[] = {"MediaType",   "Dimensions",  "FormatName",     "CleanAperture",
                              "FieldCount",  "FieldDetail", "ColorPrimaries", "YCbCrMatrix",
                              "PixelAspect", "Vendor",      "Version",        "TemporalQuality",
                              "Depth",       "GammaLevel",  "ChromaLocation", "FullRange"};

std::vector<std::string> wordsFor(size_t count) {
  std::vector<std::string> words;
  for (size_t i = 0; i < count; ++i)
    words.push_back(kWords[i % std::size(kWords)] + (i < std::size(kWords) ? "" : std::to_string(i)));
  return words;
}

String makeString(const std::string& text) {
  return String::adopt(BRStringCreateWithCString(nullptr, text.c_str(), kBRStringEncodingUTF8));
}

// Looks the keys up in turn, the keys of the dictionary or equal ones.
template <class Keys, class Find>
void findInTurn(benchmark::State& state, const Keys& keys, Find find) {
  size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(find(keys[i]));
    if (++i == keys.size()) i = 0;
  }
}

void findOurs(benchmark::State& state, size_t count, bool same) {
  std::vector<String> owned;
  std::vector<const void*> keys, others;
  for (const std::string& word : wordsFor(count)) {
    keys.push_back(owned.emplace_back(makeString(word)).get());
    others.push_back(owned.emplace_back(makeString(word)).get());
  }
  BRDictionaryRef dictionary =
      BRDictionaryCreate(nullptr, keys.data(), keys.data(), count, &kBRTypeDictionaryKeyCallBacks,
                         &kBRTypeDictionaryValueCallBacks);
  findInTurn(state, same ? keys : others,
             [&](const void* key) { return BRDictionaryGetValue(dictionary, key); });
  BRRelease(dictionary);
}

void findPlain(benchmark::State& state, size_t count, bool) {
  std::unordered_map<std::string, const void*> map;
  const std::vector<std::string> words = wordsFor(count);
  for (const std::string& word : words) map[word] = word.c_str();
  findInTurn(state, words, [&](const std::string& word) { return map.find(word)->second; });
}

#if HAVE_GLIB
void findGHashTable(benchmark::State& state, size_t count, bool same) {
  GHashTable* table = g_hash_table_new_full(g_str_hash, g_str_equal, g_free, nullptr);
  const std::vector<std::string> words = wordsFor(count);
  std::vector<const char*> keys, others;
  for (const std::string& word : words) {
    char* key = g_strdup(word.c_str());
    keys.push_back(key);
    others.push_back(word.c_str());
    g_hash_table_insert(table, key, key);
  }
  findInTurn(state, same ? keys : others, [&](const char* key) { return g_hash_table_lookup(table, key); });
  g_hash_table_destroy(table);
}
#endif

void createOneOurs(benchmark::State& state) {
  const String key = makeString("MediaType"), value = makeString("video");
  for (auto _ : state) {
    const void *keys = key.get(), *values = value.get();
    benchmark::DoNotOptimize(keys);
    BRDictionaryRef dictionary = BRDictionaryCreate(
        nullptr, &keys, &values, 1, &kBRTypeDictionaryKeyCallBacks, &kBRTypeDictionaryValueCallBacks);
    benchmark::DoNotOptimize(dictionary);
    BRRelease(dictionary);
  }
}
BENCHMARK(createOneOurs)->Name("DictCreateOne/Ours");

void createOneMutable(benchmark::State& state) {
  const String key = makeString("MediaType"), value = makeString("video");
  for (auto _ : state) {
    BRMutableDictionaryRef dictionary = BRDictionaryCreateMutable(nullptr, 0, &kBRTypeDictionaryKeyCallBacks,
                                                                  &kBRTypeDictionaryValueCallBacks);
    BRDictionarySetValue(dictionary, key.get(), value.get());
    benchmark::DoNotOptimize(dictionary);
    BRRelease(dictionary);
  }
}
BENCHMARK(createOneMutable)->Name("DictCreateOneMutable/Ours");

#if HAVE_GLIB
void createOneGHashTable(benchmark::State& state) {
  char key[] = "MediaType", value[] = "video";
  for (auto _ : state) {
    GHashTable* table = g_hash_table_new(g_str_hash, g_str_equal);
    g_hash_table_insert(table, key, value);
    benchmark::DoNotOptimize(table);
    g_hash_table_destroy(table);
  }
}
BENCHMARK(createOneGHashTable)->Name("DictCreateOne/Peer:GHashTable");
BENCHMARK(createOneGHashTable)->Name("DictCreateOneMutable/Peer:GHashTable");
#endif

void createOnePlain(benchmark::State& state) {
  const std::string key = "MediaType";
  for (auto _ : state) {
    std::unordered_map<std::string, const void*> map;
    map[key] = &state;
    benchmark::DoNotOptimize(map);
  }
}
BENCHMARK(createOnePlain)->Name("DictCreateOne/Plain:unordered_map");

[[maybe_unused]] const bool registered = [] {
  for (size_t count : {4, 64}) {
    for (bool same : {true, false}) {
      const std::string family = "DictFind" + std::to_string(count) + (same ? "Same/" : "Equal/");
      benchmark::RegisterBenchmark((family + "Ours").c_str(), findOurs, count, same);
#if HAVE_GLIB
      benchmark::RegisterBenchmark((family + "Peer:GHashTable").c_str(), findGHashTable, count, same);
#endif
      benchmark::RegisterBenchmark((family + "Plain:unordered_map").c_str(), findPlain, count, same);
    }
  }
  return true;
}();

}  // namespace
