#pragma once

#include <compare>
#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "apps/server/StateFile.h"

namespace Server {

/// Orders controllers: that with the highest is primary.
struct ElectionId {
  std::uint64_t high = 0;
  std::uint64_t low = 0;

  friend constexpr auto operator<=>(const ElectionId&, const ElectionId&) = default;
};

/// "{high, low}"
std::string textOf(const ElectionId& id);

/// The highest election id that was ever seen for each role, in a file.
///
/// Contents of the file, little-endian: for each role the length of its name in two bytes, the name, and the
/// two halves of the id, high first, in eight bytes each.
class ElectionIds {
 public:
  using ByRole = std::map<std::string, ElectionId, std::less<>>;

  explicit ElectionIds(const std::string& folder);

  /// Throws what StateFile::read() throws.
  ByRole read() const;
  /// Throws Cairn::SystemException and leaves what was there.
  void replace(const ByRole& ids);

 private:
  StateFile file_;
};

}  // namespace Server
