// The hardware agent's process.

#include <unistd.h>

#include <cstdio>
#include <exception>
#include <optional>

#include "apps/hw/Options.h"
#include "apps/hw/Tables.h"
#include "apps/process/RuntimeFolder.h"
#include "apps/process/StopSignals.h"
#include "cairn/Exception.h"

namespace {

void follow(const HwAgent::Options& options) {
  Quill::EventLoop loop;
  const Process::StopSignals stop(loop, [&loop] { loop.stop(); });
  Process::requireRuntimeFolder(options.runtimeFolder);
  const auto entityManager = Quill::allocate<Orrery::EntityManager>(options.runtimeFolder, loop);
  const auto followers = HwAgent::followTables(entityManager, options.settings);
  std::puts("hw-agent: following the tables");
  std::fflush(stdout);
  loop.run();
  std::uint64_t answers = 0;
  for (const auto& follower : followers) answers += follower->answers();
  std::printf("hw-agent: stopped after %llu answers\n", static_cast<unsigned long long>(answers));
}

}  // namespace

int main(int count, char** arguments) {
  std::optional<HwAgent::Options> options;
  try {
    options = HwAgent::readOptions(count, arguments);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "hw-agent: %s\n", error.what());
    return 2;
  }
  if (options->action == HwAgent::Options::Action::help)
    return std::fputs(HwAgent::kHelp, stdout) < 0 ? 1 : 0;
  if (options->action == HwAgent::Options::Action::version)
    return std::puts("hw-agent " TOLMAR_VERSION) < 0 ? 1 : 0;
  try {
    follow(*options);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "hw-agent: %s\n", error.what());
    return 1;
  }
}
