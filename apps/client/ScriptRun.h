#pragma once

#include <string>

#include "apps/client/Connection.h"
#include "apps/client/ResultLog.h"
#include "apps/client/ResultTable.h"

namespace Client {

/// Runs scripts over one connection, one Write after the other, and prints the results.
class ScriptRun {
 public:
  /// None of these is owned; `log` may be null.
  ScriptRun(Connection& connection, const Catalogue& catalogue, ResultTable::Output output,
            ResultTable::Style style, ResultLog* log)
      : connection_(connection),
        catalogue_(catalogue),
        output_(std::move(output)),
        style_(style),
        log_(log) {}

  /// Whether every result was as the script expects. `name` stands before line numbers.
  bool run(const std::string& name, std::string_view script);

 private:
  void write(const std::string& name, const BatchStep& batch, ResultTable& table);
  std::vector<Outcome> send(const std::vector<ScriptUpdate>& updates, bool isRollback);

  Connection& connection_;
  const Catalogue& catalogue_;
  ResultTable::Output output_;
  ResultTable::Style style_;
  ResultLog* log_;
};

/// Prints the entries that "TABLE FIELD=VALUE..." names as insert statements, all tables' without words, and
/// returns their number. Throws Cairn::Exception.
std::size_t printEntries(Connection& connection, const Catalogue& catalogue,
                         const std::vector<std::string>& words, const ResultTable::Output& output);

}  // namespace Client
