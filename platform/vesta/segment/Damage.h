#pragma once

#include <string>
#include <vector>

#include "cairn/Exception.h"
#include "vesta/segment/Words.h"

namespace Vesta {

/// A place in a segment that a corruption report shows.
struct DamagedPlace {
  enum class Kind { slot, word };
  static DamagedPlace slot(std::size_t number) { return {Kind::slot, number}; }
  static DamagedPlace word(std::size_t number) { return {Kind::word, number}; }
  Kind kind;
  std::size_t number;
};
using DamagedPlaces = std::vector<DamagedPlace>;

/// A segment holds what no writer can have left there.
class SegmentCorruption : public Cairn::CorruptionDetectedException {
 public:
  explicit SegmentCorruption(std::string text, DamagedPlaces places = {})
      : CorruptionDetectedException(std::move(text)), places_(std::move(places)) {}
  ~SegmentCorruption() override;
  const DamagedPlaces& places() const noexcept { return places_; }

 private:
  DamagedPlaces places_;
};

/// The places that `corruption` carries; none unless it is a SegmentCorruption.
DamagedPlaces placesOf(const Cairn::CorruptionDetectedException& corruption);

/// Out of line, for checks on hot paths. `text` is one line.
[[noreturn]] void throwCorruption(const std::string& text, DamagedPlaces places = {});

std::string hexText(Word value);

}  // namespace Vesta
