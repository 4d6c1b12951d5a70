// The lines that a program writes for its operator.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "cairn/DebugHandler.h"

namespace Process {

/// Writes one line to standard error: the time in UTC, the program's name and `text`, made printable and cut
/// at 4 KiB. Allocates nothing.
void log(std::string_view text) noexcept;

/// `text` with every byte outside printable ASCII replaced by "?": what came from outside may hold control
/// sequences for the terminal.
std::string printable(std::string_view text);

/// Hands errors of the table service to log().
std::shared_ptr<const Cairn::DebugHandler> tableLog();

/// Hands the lines of trace handles and failed notifications to log() from now on.
void logLibraries();

}  // namespace Process
