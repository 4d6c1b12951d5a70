#include "vesta/segment/Layout.h"

#include <algorithm>
#include <bit>
#include <string>

#include "cairn/Exception.h"
#include "cairn/Hash.h"

namespace Vesta {

namespace {

constexpr std::size_t roundUp(std::size_t value, std::size_t step) {
  return (value + step - 1) / step * step;
}

}  // namespace

std::uint64_t fingerprintOf(std::string_view keyText, std::string_view entryText) noexcept {
  const std::uint32_t key = Cairn::checksum(keyText.data(), keyText.size());
  const std::uint32_t entry = Cairn::checksum(entryText.data(), entryText.size(), key);
  return std::uint64_t{key} << 32 | entry;
}

Layout::Layout(const Shape& of) : shape(of) {
  if (shape.capacity == 0 || shape.capacity > kMaxCapacity) {
    throw Cairn::Exception("table capacity: expected 1 to " + std::to_string(kMaxCapacity) + ", got " +
                           std::to_string(shape.capacity));
  }
  keyWords = wordsFor(shape.keySize);
  rowWords = keyWords + wordsFor(shape.entrySize);
  cells = std::bit_ceil(std::max(2 * shape.capacity, 16u));
  records = std::bit_ceil(std::max(2 * shape.capacity, 16u));
  recordWords = sizes().record();
  shortcutsAt = kTablesAt + 2 * std::size_t{cells};
  stagingAt = shortcutsAt + cells / 2;
  slotsAt = stagingAt + wholeLines(1 + rowWords);
  logAt = slotAt(shape.capacity);
  words = roundUp(logAt + std::size_t{records} * recordWords, kPageWords);
}

}  // namespace Vesta
