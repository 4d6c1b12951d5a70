// The language of scripts, one statement a line:
//
//   # a comment
//   insert l3IifTH3 l3Iif=4097 vrf=10 classId=1          expect ok
//   modify l3IifTH3 l3Iif=4097 vrf=20                    (without "expect" the update is expected to succeed)
//   delete l3IifTH3 l3Iif=9                              expect NOT_FOUND
//   insert l3IifTH3 l3Iif=99                             expect HARDWARE_ERROR 7
//   batch                                                the updates up to "end" are one Write
//     insert l3IifTH3 l3Iif=1
//     load insert l3IifTH3 100..355/5 vrf=7              generated entries 100, 105, ..., see Entries.h
//   end
//   batch rollback                                       the same, all or nothing
//   end
//   read l3IifTH3 l3Iif=1                                prints entries, as insert statements; see Entries.h
//   print now the interfaces are there
//
// An update outside a batch is a Write of its own, and so is a load. A line that cannot be read does not stop
// the script: it stands as an update of its own that is not sent, with the result INVALID_ARGUMENT, and may
// carry an expectation like any other.
#pragma once

#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "apps/client/Entries.h"
#include "apps/client/Outcome.h"

namespace Client {

/// A statement that stands for updates.
struct Line {
  int number = 0;
  std::vector<std::string> words;  ///< up to "expect"
  Expectation expectation;
  std::string problem;  ///< what was expected and what came; empty for a line that can be read so far
};
struct BatchStep {
  bool isRollback = false;
  std::vector<Line> lines;
};
struct ReadStep {
  int line = 0;
  std::vector<std::string> words;  ///< behind "read"
};
struct PrintStep {
  std::string text;
};
using ScriptStep = std::variant<BatchStep, ReadStep, PrintStep>;

/// Reads a whole script. Never fails: what cannot be read is a Line with a problem in its place.
std::vector<ScriptStep> parseScript(std::string_view text);

/// An update with all that its result is printed with.
struct ScriptUpdate {
  int line = 0;
  p4::v1::Update::Type type = p4::v1::Update::UNSPECIFIED;
  const Table* table = nullptr;  ///< in the catalogue
  std::string fields;            ///< as written, the key never cut
  p4::v1::TableEntry entry;
  Expectation expectation;
  std::string problem;  ///< as of Line: the update is not sent
};

/// "insert", "modify", "delete"
const char* verbOf(p4::v1::Update::Type type);

/// Appends the updates of a line, one with a problem where something cannot be read.
void resolve(const Line& line, const Catalogue& catalogue, std::vector<ScriptUpdate>& updates);

/// Entries FIRST, FIRST+STEP, ... up to LAST.
struct Range {
  std::uint64_t first = 0;
  std::uint64_t last = 0;
  std::uint64_t step = 1;

  std::uint64_t count() const { return (last - first) / step + 1; }
};
/// Reads "FIRST..LAST" and "FIRST..LAST/STEP". Throws Cairn::Exception.
Range rangeOf(std::string_view text);

}  // namespace Client
