// The lines that a program writes for its operator.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>

#include "cairn/DebugHandler.h"

namespace Process {

/// With the priorities of the system's journal.
enum class LogLevel : std::uint8_t { error = 3, warning = 4, info = 6, debug = 7 };

struct LogField {
  std::string_view name;
  std::string_view value;
};

/// Writes one line to standard error: the time in UTC, the level, the program's name, `text`, then the fields
/// as name="value". What is not printable is replaced, and the line cut at 4 KiB. When standard error is the
/// journal's, its priority is put before the line. Allocates nothing.
void log(LogLevel level, std::string_view text, std::initializer_list<LogField> fields = {}) noexcept;

/// Less important lines are left out from now on; info unless called.
void logLevelIs(LogLevel level) noexcept;
/// "error", "warning", "info" or "debug". Throws Cairn::Exception for another name.
LogLevel logLevelOf(std::string_view name);

/// `text` with every byte outside printable ASCII replaced by "?": what came from outside may hold control
/// sequences for the terminal.
std::string printable(std::string_view text);

/// Hands errors of the table service to log().
std::shared_ptr<const Cairn::DebugHandler> tableLog();

/// Hands the lines of trace handles and failed notifications to log() from now on.
void logLibraries();

}  // namespace Process
