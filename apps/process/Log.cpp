#include "apps/process/Log.h"

#include <errno.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>

#include "quill/Notifiee.h"
#include "quill/TraceHandle.h"

namespace Process {

namespace {
char printable(char byte) { return byte >= 0x20 && byte < 0x7f ? byte : '?'; }
}  // namespace

std::string printable(std::string_view text) {
  std::string result(text);
  for (char& byte : result) byte = printable(byte);
  return result;
}

void log(std::string_view text) noexcept {
  std::array<char, 4096> line;
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  struct tm utc {};
  gmtime_r(&now.tv_sec, &utc);
  std::size_t length = strftime(line.data(), line.size(), "%Y-%m-%dT%H:%M:%S", &utc);
  length += static_cast<std::size_t>(std::snprintf(line.data() + length, line.size() - length,
                                                   ".%03ldZ %.64s: ", now.tv_nsec / 1'000'000,
                                                   program_invocation_short_name));
  for (const char byte : text.substr(0, line.size() - 1 - length)) line[length++] = printable(byte);
  line[length++] = '\n';
  (void)!::write(STDERR_FILENO, line.data(), length);
}

std::shared_ptr<const Cairn::DebugHandler> tableLog() {
  auto handler = std::make_shared<Cairn::DebugHandler>();
  handler->sinkIs([](const Cairn::DebugHandler::Message& message) { log(message.text); });
  return handler;
}

void logLibraries() {
  Quill::NotifieeConst::failureSinkIs([](const char* line) { log(line); });
  Quill::TraceHandle::sinkIs([](const Quill::TraceHandle::Line& line) {
    std::string text(line.handle);
    text.append("/").append(std::to_string(line.level)).append(" ").append(line.source).append(":");
    text.append(std::to_string(line.line)).append(" ").append(line.function).append(": ").append(line.text);
    log(text);
  });
}

}  // namespace Process
