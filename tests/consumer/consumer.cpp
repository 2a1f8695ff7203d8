// A C++20 program that knows only the installed package.
#include <bedra/literal.hpp>
#include <bedra/ref.hpp>
#include <kiv/atom_stream.h>
#include <pevrin/pevrin.h>

#include <cstdio>

int main() {
  using namespace br::literals;
  const unsigned char atom[] = {0, 0, 0, 12, 'f', 'r', 'e', 'e', 1, 2, 3, 4};
  KivAtomStream stream;
  PVFourCharCode type = 0;
  int64_t length = 0;
  if (KivAtomStreamInitWithMemoryBlock(atom, sizeof atom, 0, 0, &stream) != 0) return 1;
  if (KivAtomStreamGetCurrentAtomTypeAndDataLength(&stream, &type, &length) != 0) return 2;
  if (type != 0x66726565 || length != 4) return 3;

  auto dictionary = br::Ref<const BRDictionary>::adopt(PVTimeCopyAsDictionary(PVTimeMake(3, 4), nullptr));
  if (!dictionary || !BRDictionaryContainsKey(dictionary.get(), "timescale"_br)) return 4;
  if (PVTimeCompare(PVTimeMakeFromDictionary(dictionary.get()), PVTimeMake(6, 8)) != 0) return 5;
  std::puts("consumer.cpp: ok");
}
