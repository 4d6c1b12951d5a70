#include "vesta/segment/Damage.h"

#include <cstdio>

namespace Vesta {

SegmentCorruption::~SegmentCorruption() = default;

DamagedPlaces placesOf(const Cairn::CorruptionDetectedException& corruption) {
  const auto* const ofSegment = dynamic_cast<const SegmentCorruption*>(&corruption);
  return ofSegment != nullptr ? ofSegment->places() : DamagedPlaces();
}

void throwCorruption(const std::string& text, DamagedPlaces places) {
  throw SegmentCorruption(text, std::move(places));
}

std::string hexText(Word value) {
  char text[20];
  std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(value));
  return text;
}

}  // namespace Vesta
