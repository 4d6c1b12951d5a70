#include "apps/ctl/Text.h"

#include <fmt/format.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>

#include "apps/ctl/Folder.h"
#include "cairn/Exception.h"

namespace Ctl {

namespace {

constexpr std::uint64_t kSecond = 1'000'000'000;

std::optional<std::uint64_t> numberOf(std::string_view text) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

std::optional<std::uint64_t> unitOf(char letter) {
  switch (letter) {
    case 's':
      return kSecond;
    case 'm':
      return 60 * kSecond;
    case 'h':
      return 3600 * kSecond;
    case 'd':
      return 86400 * kSecond;
    default:
      return std::nullopt;
  }
}

/// ".123" and so on, in nanoseconds.
std::optional<std::uint64_t> fractionOf(std::string_view text) {
  if (text.empty()) return 0;
  if (text.size() < 2 || text.size() > 10 || text[0] != '.') return std::nullopt;
  std::string digits(text.substr(1));
  digits.resize(9, '0');
  return numberOf(digits);
}

std::optional<WallTime> absolute(const std::string& text) {
  struct tm fields {};
  for (const char* const form : {"%Y-%m-%dT%H:%M:%S", "%Y-%m-%dT%H:%M", "%Y-%m-%d"}) {
    fields = {};
    const char* const end = ::strptime(text.c_str(), form, &fields);
    if (end == nullptr) continue;
    std::string_view rest(end);
    if (rest.ends_with('Z')) rest.remove_suffix(1);
    const auto fraction = fractionOf(rest);
    const time_t seconds = ::timegm(&fields);
    if (!fraction || seconds < 0) return std::nullopt;
    return static_cast<std::uint64_t>(seconds) * kSecond + *fraction;
  }
  return std::nullopt;
}

std::string dataText(const Fields& fields) {
  std::string text;
  for (const Field& field : fields) {
    if (!field.isZero) text += fmt::format(" {}={}", field.name, field.text);
  }
  return text;
}

std::string configText(const ConfigRow& row) {
  return fmt::format("genId={}{}{}", row.genId, row.valid ? "" : " valid=false", dataText(row.data));
}

}  // namespace

WallTime now() {
  const auto time = std::chrono::system_clock::now().time_since_epoch();
  return static_cast<WallTime>(std::chrono::duration_cast<std::chrono::nanoseconds>(time).count());
}

std::string timeText(WallTime time) {
  const auto seconds = static_cast<time_t>(time / kSecond);
  struct tm fields {};
  ::gmtime_r(&seconds, &fields);
  std::array<char, 32> text{};
  ::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &fields);
  return fmt::format("{}.{:09}Z", text.data(), time % kSecond);
}

WallTime timeOf(const std::string& text, WallTime now) {
  if (const auto time = absolute(text)) return *time;
  const auto unit = text.empty() ? std::nullopt : unitOf(text.back());
  const auto count = numberOf(std::string_view(text).substr(0, text.size() - (unit ? 1 : 0)));
  if (unit && count && *count <= now / *unit) return now - *count * *unit;
  throw Cairn::Exception("expected a time such as 2026-11-22T07:15:11 (UTC), 90s, 5m, 2h or 1d, got \"" +
                         text + "\"");
}

std::string durationText(std::uint64_t nanoseconds) {
  const double seconds = static_cast<double>(nanoseconds) / 1e9;
  if (seconds < 1e-3) return fmt::format("{:.1f} us", seconds * 1e6);
  if (seconds < 1) return fmt::format("{:.0f} ms", seconds * 1e3);
  if (seconds < 100) return fmt::format("{:.1f} s", seconds);
  if (seconds < 7200) return fmt::format("{:.0f} min", seconds / 60);
  if (seconds < 2 * 86400) return fmt::format("{:.0f} h", seconds / 3600);
  return fmt::format("{:.0f} d", seconds / 86400);
}

std::optional<Age> ageOf(const Entry& entry, WallTime now) {
  if (entry.matches()) return std::nullopt;
  if (entry.writtenAt) return Age{now - std::min(now, *entry.writtenAt), true};
  const std::uint64_t genId = entry.config ? entry.config->genId : entry.status->genId;
  constexpr std::uint64_t kYear = 365 * 86400 * kSecond;
  if (genId > now || now - genId > 20 * kYear) return std::nullopt;
  return Age{now - genId, false};
}

std::string textOf(const Fields& fields) {
  std::string text;
  for (const Field& field : fields) {
    text += fmt::format("{}{}={}", text.empty() ? "" : " ", field.name, field.text);
  }
  return text;
}

std::string textOf(State state) {
  switch (state) {
    case State::programmed:
      return "programmed";
    case State::pending:
      return "pending";
    case State::failed:
      return "failed";
    case State::notProgrammed:
      return "not programmed";
    case State::removing:
      return "status without config";
    case State::removed:
      return "removed";
  }
  return "";
}

std::string textOf(Writer::State state) {
  switch (state) {
    case Writer::State::none:
      return "not writing";
    case Writer::State::running:
      return "running";
    case Writer::State::stopped:
      return "stopped by a signal";
    case Writer::State::gone:
      return "killed";
  }
  return "";
}

std::string textOf(const Writer& writer, std::string_view program) {
  if (writer.state == Writer::State::none) return fmt::format("{} {}", program, textOf(writer.state));
  if (writer.process == 0) return fmt::format("{} {}", program, textOf(writer.state));
  return fmt::format("{} {} {}", program, writer.process, textOf(writer.state));
}

std::string stateText(const Entry& entry, WallTime time) {
  std::string text = textOf(entry.state());
  if (const auto age = ageOf(entry, time)) {
    text += (age->isExact ? " for " : " for at most ") + durationText(age->nanoseconds);
  }
  if (entry.status && entry.status->errorCode != 0 && entry.state() != State::pending) {
    text += fmt::format(", code {}", entry.status->errorCode);
  }
  return text + (entry.undecided ? ", undecided" : "");
}

std::string rowsText(const Entry& entry) {
  std::string text;
  if (entry.config)
    text = fmt::format("handle={} config {}", entry.config->handle, configText(*entry.config));
  if (const auto& status = entry.status) {
    const bool sameHandle = entry.config && entry.config->handle == status->handle;
    text += fmt::format("{}status {}genId={}", text.empty() ? "" : "; ",
                        sameHandle ? "" : fmt::format("handle={} ", status->handle), status->genId);
    if (status->errorCode != 0) text += fmt::format(" errorCode={}", status->errorCode);
    if (status->deleted) text += " deleted";
  }
  if (entry.undecided) text += "; before " + (entry.before ? configText(*entry.before) : "no entry");
  return text;
}

std::string headText(const Table& table) {
  std::string text = fmt::format(
      "{}: {} config and {} status rows of {}; {}, {}\n", table.name, table.config.rows, table.status.rows,
      table.capacity, textOf(table.config.writer, kAgent), textOf(table.status.writer, kHardwareAgent));
  for (const Side* const side : {&table.config, &table.status}) {
    if (side->missing) text += fmt::format("  MISSING {}\n", side->file);
    if (side->damage.empty()) continue;
    text += fmt::format("  DAMAGED {}: {}", side->file, side->damage.front());
    if (side->damage.size() > 1) text += fmt::format(", and {} more", side->damage.size() - 1);
    text += "\n";
  }
  return text;
}

}  // namespace Ctl
