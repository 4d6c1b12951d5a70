// The end-to-end path: agent core, row database, plugin and tables in this process, the hardware agent in
// another.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Contestant.h"
#include "apps/core/AgentCore.h"
#include "orrery/EntityManager.h"
#include "p4runtime/PluginLibrary.h"
#include "quill/EventLoop.h"
#include "tests/RuntimeFolder.h"
#include "tests/end_to_end/Program.h"

class EndToEnd final : public Contestant {
 public:
  /// Starts the hardware agent and the plugin over tables in a folder of their own. Both sides poll for so
  /// long before they sleep.
  EndToEnd(const std::string& hwAgent, const std::string& plugin, std::chrono::microseconds busyPoll);
  ~EndToEnd() override;
  EndToEnd(const EndToEnd&) = delete;
  EndToEnd& operator=(const EndToEnd&) = delete;

  /// Rows that exist are modified, the others inserted.
  void prepare(std::size_t rows) override;
  void batch() override;

 private:
  RuntimeFolder folder_;
  Program hwAgent_;
  Quill::EventLoop loop_;
  Quill::Ptr<P4Runtime::BatchStatus> batchStatus_;
  Quill::Ptr<P4Runtime::PluginContext> context_;
  P4Runtime::PluginLibrary library_;
  std::unique_ptr<Agent::AgentCore> core_;
  std::vector<Agent::Update> updates_;
  std::size_t inserted_ = 0;
  unsigned generation_ = 0;
};
