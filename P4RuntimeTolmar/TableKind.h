// Common parts of the files of the table kinds (kinds/*.h).
#pragma once

#include <concepts>

#include "P4RuntimeTolmar/Records.h"
#include "P4RuntimeTolmar/TableEntityOf.h"

namespace TolmarHwLib {

/// A table kind: its config and status entity and the records in them.
template <class ConfigT, class StatusT>
struct TableKind {
  using Config = ConfigT;
  using Status = StatusT;
  using Key = typename Config::Key;
  using ConfigEntry = typename Config::Entry;
  using StatusEntry = typename Status::Entry;
  static_assert(std::same_as<Key, typename Status::Key>);
  static_assert(std::derived_from<ConfigEntry, ConfigBookkeeping> && std::derived_from<ConfigEntry, Key>);
  static_assert(std::derived_from<StatusEntry, StatusBookkeeping> && std::derived_from<StatusEntry, Key>);

  /// The name of the kind, such as "L3IifTH3".
  static constexpr std::string_view name = Key::kind;
  static constexpr FixedText typePrefix = typeName(name, "");
  static constexpr FixedText configTypeName = typeName(name, "Config");
  static constexpr FixedText statusTypeName = typeName(name, "Status");
};

}  // namespace TolmarHwLib
