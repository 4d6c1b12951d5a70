// The table kinds and the output tables, each named once and in order. Registrations, metadata, mounts, tests
// and the programs follow from these two lists; where an order differs, it stands here as a permutation that
// does not compile unless it has every kind or table exactly once.
#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

#include "P4RuntimeTolmar/kinds/L3IifTH3.h"
#include "P4RuntimeTolmar/kinds/L3TunnelTH3.h"
#include "P4RuntimeTolmar/kinds/MyStationTcamTH3.h"

namespace TolmarHwLib {

template <class... Kind>
struct KindList {
  static constexpr std::size_t size = sizeof...(Kind);
  template <class Sought>
  static constexpr std::size_t count = (std::same_as<Sought, Kind> + ... + 0);
  /// True if this list has every kind of `Other` exactly once and no more.
  template <class... Other>
  static constexpr bool permutes(KindList<Other...>) {
    return size == sizeof...(Other) && ((count<Other> == 1) && ...);
  }
  /// Calls visit.operator()<Kind>() for each kind, in order.
  template <class Visit>
  static constexpr void forEach(Visit&& visit) {
    (visit.template operator()<Kind>(), ...);
  }
};

/// One `Each<Kind>` for each kind of a list, made in the list's order and destroyed in reverse.
template <template <class Kind> class Each, class List>
struct InOrder;
template <template <class Kind> class Each, class... Kind>
struct InOrder<Each, KindList<Kind...>> : Each<Kind>... {};

/// Entities, row operations and the type manifest are in this order.
using Kinds = KindList<L3TunnelTH3, MyStationTcamTH3, L3IifTH3>;
/// The types of the trackers are registered in this one.
using TrackerTypeOrder = KindList<L3IifTH3, MyStationTcamTH3, L3TunnelTH3>;
static_assert(TrackerTypeOrder::permutes(Kinds()), "a kind is missing, or named twice");

enum class AddressFamily : std::uint8_t { none, ipv4, ipv6 };

/// One pair of a config and a status table.
template <class KindT>
struct OutputTable {
  using Kind = KindT;
  std::string_view name;  ///< the short name, from which paths and the row table's name are composed
  unsigned capacity;      ///< entries, of either side
  AddressFamily family = AddressFamily::none;  ///< of the addresses in its entries
};

/// Tables are mounted and registered in this order; a table's position is its number.
inline constexpr std::tuple kOutputTables{
    OutputTable<L3TunnelTH3>{"l3TunnelIpv4TH3", 8192, AddressFamily::ipv4},
    OutputTable<L3TunnelTH3>{"l3TunnelIpv6TH3", 4096, AddressFamily::ipv6},
    OutputTable<MyStationTcamTH3>{"myStationTcamTH3", 512},
    OutputTable<L3IifTH3>{"l3IifTH3", 8192},
};

inline constexpr std::size_t kOutputTableCount = std::tuple_size_v<decltype(kOutputTables)>;

/// Numbers of tables, in an order.
using OutputTableOrder = std::array<std::size_t, kOutputTableCount>;

inline constexpr OutputTableOrder kListOrder = [] {
  OutputTableOrder order{};
  for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
  return order;
}();

/// Calls visit.operator()<I>(table number I) for each output table, in the given order.
template <const OutputTableOrder& order = kListOrder, class Visit>
constexpr void forEachOutputTable(Visit&& visit) {
  [&]<std::size_t... N>(std::index_sequence<N...>) {
    (visit.template operator()<order[N]>(std::get<order[N]>(kOutputTables)), ...);
  }
  (std::make_index_sequence<kOutputTableCount>());
}

namespace detail {

template <class... Column>
constexpr bool hasAddress(const std::tuple<Column...>&) {
  return (std::same_as<typename Column::Type, IpGenAddr> || ...);
}

template <class... Kind>
constexpr bool tablesFit(KindList<Kind...>) {
  return std::apply(
      [](const auto&... table) {
        const auto tablesOf = [&]<class K>() {
          return (std::same_as<K, typename std::remove_cvref_t<decltype(table)>::Kind> + ... + 0);
        };
        const auto fits = []<class K>(const OutputTable<K>& one) {
          return KindList<Kind...>::template count<K> == 1 &&
                 hasAddress(K::Key::keyColumns) == (one.family != AddressFamily::none);
        };
        return ((tablesOf.template operator()<Kind>() != 0) && ...) && (fits(table) && ...);
      },
      kOutputTables);
}

}  // namespace detail

static_assert(detail::tablesFit(Kinds()),
              "a kind without a table, a table of an unlisted kind or without its address family");

/// The numbers of the tables called `names`; a constant expression if each table is named once.
constexpr OutputTableOrder tableOrder(const std::array<std::string_view, kOutputTableCount>& names) {
  OutputTableOrder order{};
  forEachOutputTable([&]<std::size_t I>(const auto& table) {
    std::size_t found = 0;
    for (std::size_t at = 0; at < names.size(); ++at) {
      if (names[at] != table.name) continue;
      order[at] = I;
      ++found;
    }
    if (found != 1) throw "an output table is not named exactly once";
  });
  return order;
}

/// Trackers are made and config tables are cleaned up in this order.
inline constexpr auto kWiringOrder =
    tableOrder({"l3TunnelIpv4TH3", "l3TunnelIpv6TH3", "l3IifTH3", "myStationTcamTH3"});

}  // namespace TolmarHwLib
