// What the records of every table kind have in common; the kinds' own are in kinds/. Each kind has a key, a
// config entry (what the agent asks the hardware to hold) and a status entry (what the hardware agent
// answers). Values, all zero at first. The meaning of the hardware fields is the hardware's; nothing here
// interprets them.
//
// Keys hash like the key columns of their rows, compare field by field and order in field order, all fields
// in full width. Their text, used in traces, is the fields in order joined by one blank.
#pragma once

#include <compare>
#include <cstdint>
#include <ostream>
#include <string_view>
#include <tuple>

#include "P4RuntimeTolmar/Schema.h"
#include "cairn/Hash.h"
#include "rows/Encoding.h"

namespace TolmarHwLib {

struct ConfigBookkeeping {
  std::uint64_t genId = 0;        ///< generation of the write that produced the entry
  std::uint64_t entryHandle = 0;  ///< handle under which the agent tracks the entry
  bool valid = false;             ///< the entry is to be programmed

  static constexpr std::string_view side = "Config";
  static constexpr std::tuple headColumns{Column{"genId", &ConfigBookkeeping::genId},
                                          Column{"entryHandle", &ConfigBookkeeping::entryHandle},
                                          Column{"valid", &ConfigBookkeeping::valid}};
};

struct StatusBookkeeping {
  std::uint64_t genId = 0;        ///< generation that the hardware agent has processed
  std::uint64_t entryHandle = 0;  ///< handle of the config entry that is answered
  std::uint16_t errorCode = 0;    ///< 0 on success, otherwise the hardware agent's code
  bool deleted = false;           ///< the hardware has removed the entry

  static constexpr std::string_view side = "Status";
  static constexpr std::tuple headColumns{
      Column{"genId", &StatusBookkeeping::genId}, Column{"entryHandle", &StatusBookkeeping::entryHandle},
      Column{"errorCode", &StatusBookkeeping::errorCode}, Column{"deleted", &StatusBookkeeping::deleted}};
  static constexpr std::tuple<> dataColumns{};  // a status entry is this and the key
};

/// The hash that rows with this key have over their key columns.
template <KeyRecord Key>
std::uint32_t hashKey(const Key& key) {
  std::uint32_t hash = 0;
  forEachColumn(Key::keyColumns, [&]<class C>(const C& column) {
    hash = Cairn::Util::hashBlock(hash, Lumen::Encoding<typename C::Type>::hashValue(key.*column.member));
  });
  return hash;
}

namespace detail {

template <class Record, class Columns>
constexpr bool equalIn(const Columns& columns, const Record& a, const Record& b) {
  return std::apply([&](const auto&... column) { return ((a.*column.member == b.*column.member) && ...); },
                    columns);
}

}  // namespace detail

template <KeyRecord Key>
constexpr bool operator==(const Key& a, const Key& b) {
  return detail::equalIn(RowSchema<Key>::columns, a, b);
}
template <KeyRecord Key>
constexpr std::strong_ordering operator<=>(const Key& a, const Key& b) {
  auto order = std::strong_ordering::equal;
  std::apply(
      [&](const auto&... column) {
        static_cast<void>(((order = a.*column.member <=> b.*column.member, order != 0) || ...));
      },
      RowSchema<Key>::columns);
  return order;
}
template <KeyRecord Key>
std::ostream& operator<<(std::ostream& out, const Key& key) {
  std::string_view separator;
  forEachColumn(Key::keyColumns, [&]<class C>(const C& column) {
    out << separator;
    Lumen::Encoding<typename C::Type>::print(out, key.*column.member);
    separator = " ";
  });
  return out;
}

/// Over all fields.
template <EntryRecord Entry>
constexpr bool operator==(const Entry& a, const Entry& b) {
  return detail::equalIn(RowSchema<Entry>::columns, a, b);
}
// An entry would pass for its key in these: whoever means the key asks for it.
template <EntryRecord Entry, class Other>
bool operator==(const Entry&, const Other&) = delete;
template <EntryRecord Entry, class Other>
std::strong_ordering operator<=>(const Entry&, const Other&) = delete;
template <EntryRecord Entry>
std::ostream& operator<<(std::ostream&, const Entry&) = delete;

}  // namespace TolmarHwLib
