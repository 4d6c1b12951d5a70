#include "apps/hw/Fault.h"

#include <cerrno>
#include <fstream>
#include <utility>

#include "P4RuntimeTolmar/OutputTables.h"
#include "apps/process/CommandLine.h"
#include "cairn/Exception.h"
#include "lumen/LmErrors.h"
#include "lumen/LumenDB.h"

namespace HwAgent {

namespace {

[[noreturn]] void refuse(const std::string& expected, std::string_view got) {
  throw Cairn::Exception("expected " + expected + ", got \"" + std::string(got) + "\"");
}

std::uint16_t codeOf(std::string_view text) {
  const auto code = Process::numberIn<std::uint16_t>(text, 1, 65535);
  if (!code) refuse("a code from 1 to 65535", text);
  return *code;
}

/// The class of the table's config rows.
const Lumen::LmClass& rowClassOf(std::string_view table) {
  std::string_view rowType;
  std::vector<std::string> names;
  TolmarHwLib::forEachOutputTable(
      [&]<std::size_t number, class Kind>(const TolmarHwLib::OutputTable<Kind>& each) {
        names.emplace_back(each.name);
        if (each.name == table) rowType = TolmarHwLib::RowSchema<typename Kind::ConfigEntry>::rowTypeName;
      });
  if (rowType.empty()) refuse("a table (" + Process::listed(names) + ")", table);
  Lumen::LumenDB::metadataIs(rowType);
  return *Lumen::LumenDB::lmClass(rowType);
}

std::pair<std::string, Lumen::ColumnValue> columnOf(const Lumen::LmClass& rowClass, std::string_view table,
                                                    std::string_view text) {
  const std::size_t equals = text.find('=');
  if (equals == std::string_view::npos || equals == 0) refuse("FIELD=VALUE", text);
  const std::string_view name = text.substr(0, equals);
  const Lumen::LmColumn* const column = rowClass.column(name);
  if (column == nullptr) refuse("a field of " + std::string(table), name);
  try {
    return {column->name, Lumen::parseColumn(*column, text.substr(equals + 1))};
  } catch (const Lumen::LmTextError& error) {
    throw Cairn::Exception(error.message());
  }
}

void add(std::pair<std::string, Lumen::ColumnValue> column, Fault& fault) {
  for (const auto& [name, value] : fault.columns) {
    if (name == column.first) {
      throw Cairn::Exception("expected each field once, got \"" + name + "\" more than once");
    }
  }
  fault.columns.push_back(std::move(column));
}

std::string_view withoutComment(std::string_view line) {
  line = line.substr(0, line.find('#'));
  const std::size_t first = line.find_first_not_of(" \t\r");
  if (first == std::string_view::npos) return {};
  return line.substr(first, line.find_last_not_of(" \t\r") + 1 - first);
}

}  // namespace

Fault readFault(std::string_view text) {
  // IPv6 addresses have colons of their own: the table ends at the first, the code begins at the last.
  const std::size_t first = text.find(':');
  const std::size_t last = text.rfind(':');
  if (first == last) refuse("TABLE:FIELD=VALUE[,FIELD=VALUE...]:CODE", text);
  const std::string_view table = text.substr(0, first);
  const Lumen::LmClass& rowClass = rowClassOf(table);
  Fault fault{std::string(table), {}, codeOf(text.substr(last + 1))};
  std::string_view fields = text.substr(first + 1, last - first - 1);
  if (fields.empty()) refuse("at least one FIELD=VALUE", text);
  for (bool more = true; more;) {
    const std::size_t comma = fields.find(',');
    add(columnOf(rowClass, table, fields.substr(0, comma)), fault);
    more = comma != std::string_view::npos;
    if (more) fields.remove_prefix(comma + 1);
  }
  return fault;
}

std::vector<Fault> readFaults(const std::string& path) {
  std::ifstream file(path);
  if (!file) throw Cairn::SystemException("faults file " + path, errno);
  std::vector<Fault> faults;
  std::string line;
  for (int number = 1; std::getline(file, line); ++number) {
    const std::string_view text = withoutComment(line);
    if (text.empty()) continue;
    try {
      faults.push_back(readFault(text));
    } catch (const Cairn::Exception& error) {
      throw Cairn::Exception("faults file " + path + ", line " + std::to_string(number) + ": " +
                             error.message());
    }
  }
  if (file.bad()) throw Cairn::SystemException("faults file " + path, errno);
  return faults;
}

FailEvery readFailEvery(std::string_view text) {
  const std::size_t colon = text.find(':');
  if (colon == std::string_view::npos) refuse("N:CODE", text);
  const auto every = Process::numberIn<std::uint64_t>(text.substr(0, colon), 1, ~std::uint64_t{0});
  if (!every) refuse("a number above 0", text.substr(0, colon));
  return {*every, codeOf(text.substr(colon + 1))};
}

}  // namespace HwAgent
