#pragma once

#include <array>
#include <cstdint>

#include "vesta/Codec.h"
#include "vesta/segment/Layout.h"

namespace Vesta {

template <Encodable Key, Encodable Entry>
Shape shapeOf(std::uint32_t capacity) {
  static_assert(Codec<Key>::size > 0 && Codec<Key>::size <= 4096);
  static_assert(Codec<Entry>::size > 0 && Codec<Entry>::size <= 4096);
  return {static_cast<std::uint32_t>(Codec<Key>::size), static_cast<std::uint32_t>(Codec<Entry>::size),
          capacity, fingerprintOf(Codec<Key>::text, Codec<Entry>::text)};
}

/// One row as it is copied into or out of a segment: a word for the slot's version, the encoded key and the
/// encoded entry, both filled up with zero bytes to whole words.
template <Encodable Key, Encodable Entry>
class EncodedRow {
 public:
  static constexpr std::uint32_t kKeyWords = wordsFor(Codec<Key>::size);
  static constexpr std::uint32_t kEntryWords = wordsFor(Codec<Entry>::size);
  static constexpr FixedRowSizes<kKeyWords, kKeyWords + kEntryWords> kSizes{};

  Word* words() noexcept { return words_.data(); }
  const Word* key() const noexcept { return words_.data() + 1; }
  Word version() const noexcept { return words_[0]; }

  void encodeKey(const Key& key) {
    if constexpr (Codec<Key>::size % sizeof(Word) != 0) words_[kKeyWords] = 0;
    Codec<Key>::encode(key, reinterpret_cast<std::uint8_t*>(&words_[1]));
  }
  void encodeEntry(const Entry& entry) {
    if constexpr (Codec<Entry>::size % sizeof(Word) != 0) words_[kKeyWords + kEntryWords] = 0;
    Codec<Entry>::encode(entry, reinterpret_cast<std::uint8_t*>(&words_[1 + kKeyWords]));
  }
  void decodeKey(Key& key) const { decodeKeyFrom(&words_[1], key); }
  void decodeEntry(Entry& entry) const {
    Codec<Entry>::decode(reinterpret_cast<const std::uint8_t*>(&words_[1 + kKeyWords]), entry);
  }
  static void decodeKeyFrom(const Word* words, Key& key) {
    Codec<Key>::decode(reinterpret_cast<const std::uint8_t*>(words), key);
  }

 private:
  std::array<Word, 1 + kKeyWords + kEntryWords> words_{};
};

}  // namespace Vesta
