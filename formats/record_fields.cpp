#include "formats/record_fields.hpp"

namespace pv::record {

namespace {

template <class Word>
void swapAt(uint8_t* at) {
  Word word;
  std::memcpy(&word, at, sizeof word);
  word = bigEndian(word);
  std::memcpy(at, &word, sizeof word);
}

}  // namespace

void swapFields(uint8_t* record, std::span<const Place> places) {
  for (const Place& place : places) switch (place.width) {
      case 2:
        swapAt<uint16_t>(record + place.offset);
        break;
      case 4:
        swapAt<uint32_t>(record + place.offset);
        break;
      case 8:
        swapAt<uint64_t>(record + place.offset);
        break;
    }
}

}  // namespace pv::record
