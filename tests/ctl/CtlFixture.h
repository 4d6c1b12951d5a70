// A runtime folder with config tables that the test writes as an agent does, and a real hardware agent.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <regex>

#include "P4RuntimeTolmar/OutputTables.h"
#include "apps/core/BeforeImages.h"
#include "apps/counters/CounterFile.h"
#include "apps/counters/TickScale.h"
#include "tests/RuntimeFolder.h"
#include "tests/end_to_end/Program.h"
#include "vesta/VestaWriter.h"

class CtlTest : public testing::Test {
 protected:
  using Strings = std::vector<std::string>;
  using Key = TolmarHwLib::L3IifTH3Key;
  using Config = TolmarHwLib::L3IifTH3ConfigEntry;
  using Writer = Vesta::VestaWriter<Key, Config>;

  /// As the agent of a moment ago counts.
  static constexpr std::uint64_t kStart = 1'790'000'000'000'000'000;

  void startHardware(const Strings& options = {}) {
    hardware_ = started(HW_AGENT, path(), options);
    ASSERT_TRUE(hardware_->says("following the tables")) << hardware_->output();
  }
  void kill() {
    hardware_->signal(SIGKILL);
    EXPECT_EQ(hardware_->exitCode(), 128 + SIGKILL);
  }
  void openConfig() {
    Vesta::AttachOptions options{.path = {path(), l3Iif("config"), "table"}, .capacity = 8192};
    options.debugHandler = std::make_shared<Cairn::DebugHandler>();
    config_ = std::make_unique<Writer>(options);
  }
  /// Writes an entry of l3IifTH3; `number` counts its writes.
  void put(std::uint64_t key, std::uint16_t vrf, unsigned number = 0) {
    Config entry = entryOf(key, vrf, number);
    config_->write({entry.key(), entry}, false);
  }
  /// A hardware agent that has answered entries with these keys.
  void startWith(const std::vector<std::uint64_t>& keys, const Strings& options = {}) {
    startHardware(options);
    openConfig();
    for (const std::uint64_t key : keys) put(key, 10);
    settle();
  }
  /// The counters of the agent, which the test plays.
  Counters::AgentCounters& playAgent() {
    agent_.emplace(path() + "/p4rt-agent.counters", "--timeout 5");
    agent_->publish();
    agent_->words().heartbeat.set(Counters::monotonicNanoseconds());
    return agent_->words();
  }
  void remove(std::uint64_t key) { config_->remove({key}, nullptr); }
  static Config entryOf(std::uint64_t key, std::uint16_t vrf, unsigned number = 0) {
    Config entry;
    entry.l3Iif = key;
    entry.entryHandle = kStart + 1000 * key;
    entry.genId = entry.entryHandle + number;
    entry.valid = true;
    entry.vrf = vrf;
    return entry;
  }
  /// Waits until the hardware agent has answered everything.
  void settle() const {
    while (run({"diff"}).code != 0 && run({"diff"}).text.find("pending") != std::string::npos) {
    }
  }

  struct Result {
    int code;
    std::string text;
    bool operator==(const Result&) const = default;
  };
  Result run(const Strings& arguments) const {
    const Result result = runIn(path(), arguments);
    return {result.code, masked(result.text)};
  }
  static Result runIn(const std::string& folder, const Strings& arguments) {
    const auto program = started(TOLMARCTL, folder, arguments);
    const int code = program->exitCode();
    return {code, program->output()};
  }
  static std::unique_ptr<Program> started(const char* program, const std::string& folder,
                                          const Strings& arguments = {}) {
    Strings all = {program, "-r", folder};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return std::make_unique<Program>(all);
  }
  /// Without what differs from run to run.
  std::string masked(std::string text) const {
    const std::pair<const char*, const char*> masks[] = {
        {"17[0-9]{17}", "#"},
        {"agent [0-9]+", "agent PID"},
        {"(for|at most) [0-9.]+ (us|ms|s|min|h|d)\\b", "$1 AGE"},
        {"[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9:.]+Z", "TIME"},
        {" +\n", "\n"},
    };
    for (const auto& [pattern, mask] : masks) text = std::regex_replace(text, std::regex(pattern), mask);
    for (std::size_t at = 0; (at = text.find(path())) != text.npos;)
      text.replace(at, path().size(), "FOLDER");
    return text;
  }

  /// The contents of all files in the folder but FIFOs.
  std::map<std::string, std::string> files() const {
    std::map<std::string, std::string> found;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(path())) {
      std::string& contents = found[entry.path()];
      if (!entry.is_regular_file()) continue;
      std::ifstream file(entry.path(), std::ios::binary);
      contents.assign(std::istreambuf_iterator<char>(file), {});
    }
    return found;
  }
  static std::string l3Iif(const std::string& side) {
    return "p4runtime/outputTables/tolmar/l3IifTH3Table/" + side;
  }
  std::string segment(const std::string& side) const { return path() + "/" + l3Iif(side) + "/table"; }
  const std::string& path() const { return folder_.path(); }

  RuntimeFolder folder_{"/dev/shm"};
  std::unique_ptr<Program> hardware_;
  std::unique_ptr<Writer> config_;
  std::optional<Counters::CounterFile<Counters::AgentCounters>> agent_;
};
