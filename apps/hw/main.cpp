// The hardware agent's process.

#include "apps/counters/CounterFile.h"
#include "apps/hw/Options.h"
#include "apps/hw/Tables.h"
#include "apps/process/Log.h"
#include "apps/process/MainLoop.h"
#include "apps/process/RuntimeFolder.h"
#include "cairn/Exception.h"
#include "vesta/segment/SegmentGuard.h"

namespace {

using Process::LogLevel;

/// Those of the command line, then those of the file.
std::vector<HwAgent::Fault> faultsOf(const HwAgent::Options& options) {
  std::vector<HwAgent::Fault> faults = options.settings.faults;
  if (options.faultsFile.empty()) return faults;
  for (HwAgent::Fault& fault : HwAgent::readFaults(options.faultsFile)) faults.push_back(std::move(fault));
  return faults;
}

/// A file with an error leaves the faults as they were.
void readAgain(const HwAgent::Options& options, HwAgent::Tables& tables) {
  try {
    tables.faultsAre(faultsOf(options));
    Process::log(LogLevel::info, "read the faults file again");
  } catch (const Cairn::Exception& error) {
    Process::log(LogLevel::error, "the faults stay as they were: " + error.message());
  }
}

bool follow(const HwAgent::Options& options, const std::string& commandLine) {
  Process::MainLoop mainLoop;
  mainLoop.busyPollIs(options.busyPoll);
  const Process::RuntimeFolder folder(options.runtimeFolder);
  Process::logLibraries();
  HwAgent::Settings settings = options.settings;
  settings.faults = faultsOf(options);
  const auto counters =
      Counters::makeCounters<Counters::HardwareCounters>(folder.path() + "/hw-agent.counters", commandLine);
  HwAgent::Tables tables(
      Quill::allocate<Orrery::EntityManager>(folder.path(), mainLoop.loop(), Process::tableLog()), settings,
      counters ? &counters->words() : nullptr);
  if (!options.faultsFile.empty()) mainLoop.hangUpIs([&] { readAgain(options, tables); });
  // Not before the tables are this process's own: another one's trace and counters would be moved aside.
  folder.trace("hw-agent");
  Counters::publish(counters);
  Process::log(LogLevel::info, "following the tables");
  mainLoop.run([&tables] { tables.recover(); });
  Process::log(LogLevel::info, "stopped after " + std::to_string(tables.answers()) + " answers");
  return true;
}

}  // namespace

int main(int count, char** arguments) {
  Vesta::installSegmentGuard();
  HwAgent::Options options;
  return Process::run(
      "hw-agent", HwAgent::kHelp, [&] { return HwAgent::readOptions(count, arguments, options); },
      [&] { return follow(options, Counters::optionsText(count, arguments)); });
}
