// The format of the six row classes once more, as literals: one sample entry per class with the bytes, texts
// and hashes of its row.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "P4RuntimeTolmar/P4RuntimeTolmarTypes.h"

namespace TolmarHwLib {

struct PinnedRow {
  std::string_view name;
  std::string_view descriptor;
  len_t fixedLength;
  std::vector<len_t> variableColumns;
  std::uint32_t keyHash;
  std::uint32_t rowHash;
  std::string_view lengthHex;   // header, bytes 0 and 1; the row type follows
  std::string_view columnsHex;  // from byte 4 on
  std::string_view text;
  std::string_view json;
};

inline const IpGenAddr kSampleSip = IpGenAddr::ipv4({192, 0, 2, 1});
inline const IpGenAddr kSampleDip =
    IpGenAddr::ipv6({0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x05});
inline const EthAddr kSampleMac{{0x00, 0x00, 0x5e, 0x00, 0x53, 0x01}};
inline const EthAddr kSampleMacMask{{0xff, 0xff, 0xff, 0x00, 0x00, 0x0f}};

template <class Row>
struct Pinned;

}  // namespace TolmarHwLib
