#include "metadata/key_space.hpp"

#include <bedra/runtime.h>
#include <pevrin/metadata.h>

#include <algorithm>
#include <bedra/literal.hpp>
#include <initializer_list>

using namespace br::literals;

extern "C" {
constinit const BRStringRef kPVMetadataKeySpace_TavloUserData = "udta"_br;
constinit const BRStringRef kPVMetadataKeySpace_ISOUserData = "uiso"_br;
constinit const BRStringRef kPVMetadataKeySpace_TavloMetadata = "mdta"_br;
constinit const BRStringRef kPVMetadataKeySpace_Lutara = "itsk"_br;
constinit const BRStringRef kPVMetadataKeySpace_ID3 = "id3"_br;
constinit const BRStringRef kPVMetadataKeySpace_Icy = "icy"_br;
}

namespace {

struct Spelling {
  BRStringRef given, written;
};
constinit const Spelling kSpellings[] = {{"comn"_br, "common"_br},
                                         {"org.avchd-info"_br, "avch"_br},
                                         {"org.id3"_br, "id3"_br},
                                         {"id3 "_br, "id3"_br},
                                         {"icy "_br, "icy"_br}};

bool isOneOf(BRStringRef string, std::initializer_list<BRStringRef> others) {
  return std::ranges::any_of(others, [&](BRStringRef other) { return BREqual(string, other); });
}

bool isKeySpace(BRStringRef keySpace) {
  const size_t length = BRStringGetLengthUTF16(keySpace);
  return length >= 1 && length <= 4;
}

}  // namespace

namespace pv::metadata {

String writtenKeySpace(BRStringRef keySpace) {
  for (const Spelling& spelling : kSpellings)
    if (BREqual(keySpace, spelling.given)) return String::retain(spelling.written);
  return isKeySpace(keySpace) ? escaped(nullptr, keySpace) : nullptr;
}

String givenKeySpace(BRAllocatorRef allocator, BRStringRef written) {
  // The one spelling that is too long to be given as it is written.
  if (BREqual(written, kSpellings[0].written)) return String::retain(kSpellings[0].given);
  auto keySpace = unescaped(allocator, written);
  return keySpace && isKeySpace(keySpace.get()) ? keySpace : nullptr;
}

bool hasFourByteKeys(BRStringRef written) {
  return isOneOf(written, {kPVMetadataKeySpace_TavloUserData, kPVMetadataKeySpace_Lutara,
                           kPVMetadataKeySpace_ISOUserData, kPVMetadataKeySpace_ID3});
}

bool hasCopyrightKeys(BRStringRef written) {
  return isOneOf(written, {kPVMetadataKeySpace_TavloUserData, kPVMetadataKeySpace_Lutara});
}

}  // namespace pv::metadata
