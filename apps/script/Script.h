// The agent's script language, one statement a line:
//
//   # a comment
//   insert l3IifTH3 l3Iif=4097 vrf=10 classId=1          expect ok
//   modify l3IifTH3 l3Iif=4097 vrf=20                    (without "expect" the update is expected to succeed)
//   delete l3IifTH3 l3Iif=9                              expect NOT_FOUND
//   insert l3IifTH3 l3Iif=99                             expect HARDWARE_ERROR 7
//   batch                                                the updates up to "end" are sent together
//     for i in 0..255                                    both bounds included; loops may be nested
//       insert l3IifTH3 l3Iif={4096+i} vrf={1+i%16}
//     end
//   end
//   print now the {2*128} interfaces are there
//   show l3IifTH3                                        prints the table's rows
//   cleanup                                              removes the tables; nothing can be written
//   afterwards
//
// An update outside a batch is a batch of its own. A line that cannot be read does not stop the script: it
// stands as an update of its own, answered INVALID_ARGUMENT, and may carry an expectation like any other.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "apps/core/Batch.h"
#include "apps/script/Outcome.h"
#include "apps/script/Template.h"

namespace Agent {

struct Statement;

struct UpdateStatement {
  struct Field {
    std::string name;
    Template value;
  };
  UpdateType type;
  std::string table;
  std::vector<Field> fields;
  Expectation expectation;
};
struct MalformedStatement {
  std::string message;  ///< what was expected and what came
  Expectation expectation;
};
struct BatchStatement {
  std::vector<Statement> body;
};
struct LoopStatement {
  Expression first;
  Expression last;
  std::vector<Statement> body;  ///< sees one variable more than the loop itself
};
struct PrintStatement {
  Template text;
};
struct ShowStatement {
  std::string table;
};
struct CleanupStatement {};

struct Statement {
  int line;
  std::variant<UpdateStatement, MalformedStatement, BatchStatement, LoopStatement, PrintStatement,
               ShowStatement, CleanupStatement>
      what;
};

/// Reads a whole script. Never fails: what cannot be read is a MalformedStatement in its place.
std::vector<Statement> parseScript(std::string_view text);

}  // namespace Agent
