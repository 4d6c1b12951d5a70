#include "P4RuntimeTolmar/Records.h"

#include "P4RuntimeTolmar/RowLayout.h"

namespace TolmarHwLib {

std::uint32_t L3TunnelTH3Key::hash() const { return hashKey(*this); }
std::uint32_t MyStationTcamTH3Key::hash() const { return hashKey(*this); }
std::uint32_t L3IifTH3Key::hash() const { return hashKey(*this); }

std::ostream& operator<<(std::ostream& out, const L3TunnelTH3Key& key) { return printKey(out, key); }
std::ostream& operator<<(std::ostream& out, const MyStationTcamTH3Key& key) { return printKey(out, key); }
std::ostream& operator<<(std::ostream& out, const L3IifTH3Key& key) { return printKey(out, key); }

}  // namespace TolmarHwLib
