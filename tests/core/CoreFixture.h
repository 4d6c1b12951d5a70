// The agent's core over the plugin's real tables; the test plays the hardware.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "P4RuntimeTolmar/OutputTables.h"
#include "apps/core/AgentCore.h"
#include "orrery/EntityManager.h"
#include "p4runtime/PluginLibrary.h"
#include "tests/RuntimeFolder.h"
#include "tests/core/Updates.h"

class CoreFixture : public testing::Test {
 protected:
  using Config = TolmarHwLib::L3IifTH3Config;
  static constexpr std::uint64_t kFirstHandle = 1'700'000'000'000'000'000;

  /// What is written to the config table, in order.
  class Writes final : public Config::NotifieeConst {
   public:
    std::vector<std::string> texts;  // "5=9" for entry 5 with VRF 9, or "-5"
    std::vector<TolmarHwLib::ConfigBookkeeping> entries;

   private:
    using Config::NotifieeConst::onTable;
    void onTable(const Config::Key& key) override {
      bool found = false;
      const auto& entry = notifier()->directLookup(key, found);
      if (found) last_[key.l3Iif] = entry;
      const std::string number = std::to_string(key.l3Iif);
      texts.push_back(found ? number + "=" + std::to_string(entry.vrf) : "-" + number);
      entries.push_back(last_[key.l3Iif]);
    }
    std::map<std::uint64_t, TolmarHwLib::ConfigBookkeeping> last_;
  };

  CoreFixture() {
    library_.init(context_);
    writes_->notifierIs(Quill::Ptr<const Config>(&config()));
    writes_->isRegisteredNotifieeIs(true);
  }

  /// A new core over the tables and files as they are: the agent restarted, and finds these answers.
  void start(std::uint64_t firstHandle, const Agent::HardwareAnswers& answers = {}) {
    core_.reset();
    Agent::AgentCore::Settings settings;
    settings.firstHandle = firstHandle;
    settings.timeout = std::chrono::seconds(1);
    settings.beforeImages = folder_.path() + "/before-images";
    settings.metadata = folder_.path() + "/metadata";
    settings.fault = [this](const auto&) { return fault_; };
    settings.hardwareRuns = [this](const auto&) { return hardwareRuns_; };
    settings.log = [this](const std::string& line) { log_ += line + "\n"; };
    core_ = std::make_unique<Agent::AgentCore>(context_->lumenDb(), batchStatus_, settings);
    core_->start(answers);
  }

  /// Starts a batch of updates, see Updates.h, and returns its number; its results come to results_.
  std::size_t submit(const std::vector<std::string>& texts,
                     Agent::Atomicity atomicity = Agent::Atomicity::continueOnError) {
    std::vector<Agent::Update> updates;
    for (const std::string& text : texts) updates.push_back(updateFrom(*core_, text));
    const std::size_t number = results_.size();
    results_.emplace_back();
    const auto done = [this, number](const std::vector<Agent::UpdateStatus>& results) {
      for (const Agent::UpdateStatus& result : results) {
        results_[number].emplace_back(result.hardwareCode == 0 ? statusCodeName(result.code) : "REFUSED");
        if (!result.message.empty()) results_[number].back() += ": " + result.message;
      }
    };
    core_->submit(std::move(updates), atomicity, done, now_);
    while (core_->hasReady()) core_->proceed();
    core_->finish();
    return number;
  }

  /// The hardware answers for `handle`.
  void complete(std::uint64_t handle, std::uint16_t code = 0) {
    P4Runtime::BatchStatusEntry entry{handle, code, {}};
    entry.setErrorMessage();
    batchStatus_->completedTransactionStatusIs(entry);
    core_->completionsReady();
    core_->finish();
  }
  void expireAfter(std::chrono::milliseconds time) {
    now_ += time;
    core_->expire(now_);
    core_->finish();
  }
  Config& config() const {
    const std::string path = TolmarHwLib::configPath(TolmarHwLib::kOutputTablePrefix, "l3IifTH3");
    return *Quill::ptrCast<Config>(context_->entityManager()->entity(path));
  }
  /// The status row that answers a write.
  std::pair<const std::uint64_t, Agent::HardwareAnswer> answerTo(std::size_t write,
                                                                 std::uint16_t code = 0) const {
    return {handle(write), {writes_->entries.at(write).genId, code, false}};
  }
  const std::vector<std::string>& writes() const { return writes_->texts; }
  std::uint64_t handle(std::size_t write) const { return writes_->entries.at(write).entryHandle; }
  /// What a reader is shown: "5=9" or "5=9:text" for each entry, in order of their keys.
  std::vector<std::string> shown() {
    std::map<std::uint64_t, std::string> entries;
    core_->eachDecidedRow(*core_->table("l3IifTH3"), [&](const Lumen::BaseRow& row) {
      std::uint64_t number = 0;
      std::uint16_t vrf = 0;
      row.getColumn(21, number);
      row.getColumn(41, vrf);
      std::string& text = entries[number];
      EXPECT_EQ(text, "");
      text = std::to_string(number) + "=" + std::to_string(vrf);
      const std::string_view metadata = core_->metadata(*core_->table("l3IifTH3"), row);
      if (!metadata.empty()) text.append(":").append(metadata);
    });
    std::vector<std::string> texts;
    for (const auto& [number, text] : entries) texts.push_back(text);
    return texts;
  }

  RuntimeFolder folder_{"/dev/shm"};
  Quill::EventLoop loop_;
  Quill::Ptr<P4Runtime::BatchStatus> batchStatus_ = Quill::allocate<P4Runtime::BatchStatus>();
  Quill::Ptr<P4Runtime::PluginContext> context_ = Quill::allocate<P4Runtime::PluginContext>(
      Quill::allocate<Orrery::EntityManager>(folder_.path(), loop_), std::make_shared<Lumen::LumenDB>(),
      batchStatus_, Quill::allocate<P4Runtime::VrfIdCollection>());
  P4Runtime::PluginLibrary library_{PLUGIN};
  Quill::Ptr<Writes> writes_ = Quill::allocate<Writes>();
  std::unique_ptr<Agent::AgentCore> core_;
  Agent::AgentCore::Clock::time_point now_{};
  std::vector<std::vector<std::string>> results_;  // by batch
  std::string fault_;
  std::string log_;
  bool hardwareRuns_ = true;
};
