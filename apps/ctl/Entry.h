// Tables as the commands show them: entries as text, config beside status.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Ctl {

struct Field {
  std::string_view name;
  std::string text;
  bool isQuoted;  ///< in JSON
  bool isZero;
};
using Fields = std::vector<Field>;

struct ConfigRow {
  std::uint64_t genId;
  std::uint64_t handle;
  bool valid;
  Fields data;
};

struct StatusRow {
  std::uint64_t genId;
  std::uint64_t handle;
  std::uint16_t errorCode;
  bool deleted;
};

enum class State {
  programmed,     ///< the hardware has answered the row as it is with success
  pending,        ///< the hardware has not answered the row as it is
  failed,         ///< it has answered with an error, and the agent is to undo the update
  notProgrammed,  ///< it has answered with an error, and no update is left to undo: it has refused the undo
  removing,       ///< there is no config row, and the hardware has not answered the removal
  removed,        ///< there is no config row; the status row stays until its readers have handled it
};

struct Entry {
  Fields key;
  std::optional<ConfigRow> config;
  std::optional<StatusRow> status;
  bool undecided = false;  ///< the agent may still undo its latest update
  std::optional<std::uint64_t>
      writtenAt;                    ///< nanoseconds since 1970, if it does not match and a trace has it
  std::optional<ConfigRow> before;  ///< if undecided: what the undo restores; nothing: it removes the entry

  State state() const;
  /// Whether config and status say the same.
  bool matches() const { return state() == State::programmed || state() == State::removed; }
};

/// A process, by the lock that it holds while it writes a table.
struct Writer {
  enum class State { none, running, stopped, gone };
  State state = State::none;
  pid_t process = 0;
};

/// One of the two segments of a table.
struct Side {
  std::string file;  ///< below the runtime folder
  bool missing = false;
  bool isReadable = false;  ///< there are rows, or could be
  std::size_t rows = 0;
  std::vector<std::string> damage;  ///< one line each; the rows that are read are intact
  Writer writer;
};

struct Table {
  std::string_view name;
  std::size_t capacity;
  Side config;
  Side status;
  std::vector<Entry> entries;  ///< in order of their keys
};

}  // namespace Ctl
