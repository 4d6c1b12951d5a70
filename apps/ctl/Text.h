// Times, entries and processes as text.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "apps/ctl/Entry.h"

namespace Ctl {

/// Nanoseconds since 1970.
using WallTime = std::uint64_t;
WallTime now();

/// "2026-11-22T07:15:11.123456789Z"
std::string timeText(WallTime time);
/// Reads a time in the form of timeText, of which the end may be missing from the seconds or their fraction
/// on, or how long ago it is, as "90s", "5m", "2h" or "1d". Throws Cairn::Exception for another form.
WallTime timeOf(const std::string& text, WallTime now);
/// "12.5 us", "850 ms", "3.2 s", "5 min", "3 h", "2 d"
std::string durationText(std::uint64_t nanoseconds);

/// For how long config and status of the entry have not matched.
struct Age {
  std::uint64_t nanoseconds;
  bool isExact;  ///< else an upper bound: generations count up from the time at which the agent started
};
/// Nothing if they match, and for a generation that is no time while no trace has its write.
std::optional<Age> ageOf(const Entry& entry, WallTime now);

std::string textOf(const Fields& fields);
std::string textOf(State state);
/// "running", "stopped by a signal", ...
std::string textOf(Writer::State state);
std::string textOf(const Writer& writer, std::string_view program);
/// "pending for 2.4 s, undecided", "not programmed for at most 5 min, code 7"
std::string stateText(const Entry& entry, WallTime now);
/// Both rows without the key; data columns that are 0 are left out.
std::string rowsText(const Entry& entry);
/// The line above a table's entries, and one more for each damage.
std::string headText(const Table& table);

}  // namespace Ctl
