// The hardware agent's process.

#include <cstdio>

#include "apps/hw/Options.h"
#include "apps/hw/Tables.h"
#include "apps/process/RuntimeFolder.h"
#include "apps/process/StopSignals.h"
#include "vesta/SegmentGuard.h"

namespace {

bool follow(const HwAgent::Options& options) {
  Quill::EventLoop loop;
  const Process::StopSignals stop(loop, [&loop] { loop.stop(); });
  Process::requireRuntimeFolder(options.runtimeFolder);
  const auto entityManager = Quill::allocate<Orrery::EntityManager>(options.runtimeFolder, loop);
  const HwAgent::Tables tables(entityManager, options.settings, [](const std::string& line) {
    std::fprintf(stderr, "hw-agent: %s\n", line.c_str());
  });
  // Not before the tables are this process's own: another one's trace would be set aside.
  Process::traceInto(options.runtimeFolder, "hw-agent");
  std::puts("hw-agent: following the tables");
  std::fflush(stdout);
  loop.run();
  std::printf("hw-agent: stopped after %llu answers\n", static_cast<unsigned long long>(tables.answers()));
  return true;
}

}  // namespace

int main(int count, char** arguments) {
  Vesta::installSegmentGuard();
  HwAgent::Options options;
  return Process::run(
      "hw-agent", HwAgent::kHelp, [&] { return HwAgent::readOptions(count, arguments, options); },
      [&] { return follow(options); });
}
