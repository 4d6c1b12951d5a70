// Entries that the hardware refuses, as the operator describes them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "lumen/RowText.h"

namespace HwAgent {

/// Entries of one table that fail to be programmed: those with these values in these columns.
struct Fault {
  std::string table;
  std::vector<std::pair<std::string, Lumen::ColumnValue>> columns;
  std::uint16_t code;
};

/// Reads "TABLE:FIELD=VALUE[,FIELD=VALUE...]:CODE". Throws Cairn::Exception saying what was expected and what
/// came, also for a table, column or value that does not exist.
Fault readFault(std::string_view text);

/// Reads a file of one fault per line; "#" starts a comment. Throws Cairn::Exception naming the line.
std::vector<Fault> readFaults(const std::string& path);

/// Every `every`-th entry of a table fails with `code`; none when `every` is 0.
struct FailEvery {
  std::uint64_t every = 0;
  std::uint16_t code = 0;
};

/// Reads "N:CODE".
FailEvery readFailEvery(std::string_view text);

}  // namespace HwAgent
