// The hardware agent's process.

#include "apps/hw/Options.h"
#include "apps/hw/Tables.h"
#include "apps/process/Log.h"
#include "apps/process/MainLoop.h"
#include "apps/process/RuntimeFolder.h"
#include "vesta/segment/SegmentGuard.h"

namespace {

bool follow(const HwAgent::Options& options) {
  Process::MainLoop mainLoop;
  mainLoop.busyPollIs(options.busyPoll);
  const Process::RuntimeFolder folder(options.runtimeFolder);
  Process::logLibraries();
  HwAgent::Tables tables(
      Quill::allocate<Orrery::EntityManager>(folder.path(), mainLoop.loop(), Process::tableLog()),
      options.settings);
  // Not before the tables are this process's own: another one's trace would be moved aside.
  folder.trace("hw-agent");
  Process::log("following the tables");
  mainLoop.run([&tables] { tables.recover(); });
  Process::log("stopped after " + std::to_string(tables.answers()) + " answers");
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
