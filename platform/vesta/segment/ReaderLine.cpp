#include "vesta/segment/ReaderLine.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace Vesta {

std::optional<Word> ReaderLine::handled() const noexcept {
  const Word handled = segment_.load(at_ + kReaderHandledAt);
  if (segment_.load(at_ + kReaderHandledCheckAt) != checkOf(handled, at_)) return std::nullopt;
  return handled;
}

std::optional<std::string> ReaderLine::name() const {
  std::array<Word, kNameWords> words;
  Word check = 0;
  for (std::size_t i = 0; i < kNameWords; ++i) {
    words[i] = segment_.load(at_ + kReaderNameAt + i);
    check = checkOf(check ^ words[i], at_);
  }
  if (segment_.load(at_ + kReaderNameCheckAt) != check) return std::nullopt;
  const auto* const text = reinterpret_cast<const char*>(words.data());
  return std::string(text, strnlen(text, sizeof words));
}

void ReaderLine::fill(Word identity, Word handled, const std::string& name) noexcept {
  handledIs(handled);
  std::array<Word, kNameWords> words{};
  std::memcpy(words.data(), name.data(), std::min(name.size(), sizeof words));
  Word check = 0;
  for (std::size_t i = 0; i < kNameWords; ++i) {
    segment_.store(at_ + kReaderNameAt + i, words[i]);
    check = checkOf(check ^ words[i], at_);
  }
  segment_.store(at_ + kReaderNameCheckAt, check);
  segment_.store(at_ + kReaderIdentityAt, identity);
}

}  // namespace Vesta
