#pragma once

#include <string>
#include <vector>

#include "apps/client/Connection.h"
#include "apps/client/ResultTable.h"

namespace Client {

struct LoadSettings {
  std::size_t batch = 1000;  ///< updates in a Write
  std::size_t inFlight = 4;  ///< Writes, in no particular order
};

/// Writes the generated entries of "VERB TABLE FIRST..LAST[/STEP] FIELD=VALUE...", prints the first failures
/// and what became of all, and returns whether all succeeded. Throws Cairn::Exception for words that it
/// cannot follow.
bool load(Connection& connection, const Catalogue& catalogue, const std::vector<std::string>& words,
          const LoadSettings& settings, const ResultTable::Output& output);

}  // namespace Client
