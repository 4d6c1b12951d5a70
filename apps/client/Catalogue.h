#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "apps/client/Values.h"

namespace p4::config::v1 {
class P4Info;
}

namespace Client {

/// A match field or an action parameter.
struct Field {
  std::string name;
  std::uint32_t id = 0;
  unsigned bits = 0;
  Format format = Format::number;
  bool isTernary = false;
};

struct Table {
  std::string name;
  std::uint32_t id = 0;
  std::uint32_t actionId = 0;
  bool hasPriority = false;
  std::vector<Field> matchFields;
  std::vector<Field> parameters;
};

/// The tables of a pipeline by name and id, as its P4Info describes them. Immutable.
class Catalogue {
 public:
  /// Throws Cairn::Exception for a table without exactly one action and for fields other than exact and
  /// ternary.
  explicit Catalogue(const p4::config::v1::P4Info& info);

  /// Throws Cairn::Exception saying which tables there are.
  const Table& table(std::string_view name) const;
  /// The table with that id, or null.
  const Table* table(std::uint32_t id) const noexcept;

 private:
  std::vector<Table> tables_;
};

}  // namespace Client
