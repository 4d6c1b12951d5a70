#include "apps/process/Log.h"

#include <errno.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>

#include "cairn/Exception.h"
#include "quill/Notifiee.h"
#include "quill/TraceHandle.h"

namespace Process {

namespace {

// Relaxed: a line of another thread may still follow the level before.
std::atomic<LogLevel> leastLevel{LogLevel::info};

char printable(char byte) { return byte >= 0x20 && byte < 0x7f ? byte : '?'; }

struct LevelName {
  LogLevel level;
  std::string_view name;
};
constexpr std::array kLevels = {LevelName{LogLevel::error, "error"}, LevelName{LogLevel::warning, "warning"},
                                LevelName{LogLevel::info, "info"}, LevelName{LogLevel::debug, "debug"}};

std::string_view nameOf(LogLevel level) {
  return std::find_if(kLevels.begin(), kLevels.end(),
                      [level](const auto& each) { return each.level == level; })
      ->name;
}

/// Standard error may have been redirected since the service manager connected it: JOURNAL_STREAM has the
/// device and inode of its stream.
bool isJournal() {
  const char* const stream = std::getenv("JOURNAL_STREAM");
  unsigned long long device = 0;
  unsigned long long inode = 0;
  struct stat status {};
  return stream != nullptr && std::sscanf(stream, "%llu:%llu", &device, &inode) == 2 &&
         ::fstat(STDERR_FILENO, &status) == 0 && status.st_dev == device && status.st_ino == inode;
}

/// A line of bounded length, in memory of its own.
class Line {
 public:
  void add(std::string_view text) noexcept {
    for (const char byte : text.substr(0, kRoom - length_)) bytes_[length_++] = printable(byte);
  }
  void addTime() noexcept {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    struct tm utc {};
    gmtime_r(&now.tv_sec, &utc);
    std::array<char, 32> text{};
    const std::size_t seconds = strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &utc);
    std::snprintf(text.data() + seconds, text.size() - seconds, ".%03ldZ", now.tv_nsec / 1'000'000);
    add(text.data());
  }
  /// Quotes in a value become apostrophes, so that the line can be taken apart.
  void addField(const LogField& field) noexcept {
    add(" ");
    add(field.name);
    add("=\"");
    const std::size_t begin = length_;
    add(field.value);
    std::replace(bytes_.begin() + static_cast<std::ptrdiff_t>(begin),
                 bytes_.begin() + static_cast<std::ptrdiff_t>(length_), '"', '\'');
    add("\"");
  }
  void write() noexcept {
    bytes_[length_++] = '\n';
    (void)!::write(STDERR_FILENO, bytes_.data(), length_);
  }

 private:
  static constexpr std::size_t kRoom = 4095;  // the end of the line comes on top

  std::array<char, kRoom + 1> bytes_;
  std::size_t length_ = 0;
};

}  // namespace

std::string printable(std::string_view text) {
  std::string result(text);
  for (char& byte : result) byte = printable(byte);
  return result;
}

void log(LogLevel level, std::string_view text, std::initializer_list<LogField> fields) noexcept {
  if (level > leastLevel.load(std::memory_order_relaxed)) return;
  static const bool toJournal = isJournal();
  Line line;
  if (toJournal) {
    const char priority[] = {'<', static_cast<char>('0' + static_cast<int>(level)), '>', '\0'};
    line.add(priority);
  }
  line.addTime();
  line.add(" ");
  line.add(nameOf(level));
  line.add(" ");
  line.add(program_invocation_short_name);
  line.add(": ");
  line.add(text);
  for (const LogField& field : fields) line.addField(field);
  line.write();
}

void logLevelIs(LogLevel level) noexcept { leastLevel.store(level, std::memory_order_relaxed); }

LogLevel logLevelOf(std::string_view name) {
  for (const auto& [level, levelName] : kLevels) {
    if (levelName == name) return level;
  }
  throw Cairn::Exception("expected error, warning, info or debug, got \"" + std::string(name) + "\"");
}

std::shared_ptr<const Cairn::DebugHandler> tableLog() {
  auto handler = std::make_shared<Cairn::DebugHandler>();
  handler->sinkIs([](const Cairn::DebugHandler::Message& message) { log(LogLevel::warning, message.text); });
  return handler;
}

void logLibraries() {
  Quill::NotifieeConst::failureSinkIs([](const char* line) { log(LogLevel::error, line); });
  Quill::TraceHandle::sinkIs([](const Quill::TraceHandle::Line& line) {
    std::string text(line.handle);
    text.append("/").append(std::to_string(line.level)).append(" ").append(line.source).append(":");
    text.append(std::to_string(line.line)).append(" ").append(line.function).append(": ").append(line.text);
    log(LogLevel::info, text);  // somebody has asked for it by the handle's level
  });
}

}  // namespace Process
