#include <dlfcn.h>
#include <gtest/gtest.h>

#include "apps/agent/AgentProcess.h"
#include "lumen/RowOps.h"
#include "p4runtime/DefaultPluginLoader.h"
#include "quill/AllocTrack.h"
#include "quill/TypeNode.h"
#include "tests/RuntimeFolder.h"

namespace {

bool loaded() {
  void* const handle = ::dlopen(PLUGIN, RTLD_NOW | RTLD_NOLOAD);
  if (handle != nullptr) ::dlclose(handle);
  return handle != nullptr;
}

TEST(Unload, AgentsEnd_LeavesNothingOfThePluginInTheProcess) {
  const RuntimeFolder folder;
  Agent::Options options;
  options.plugin = PLUGIN;
  options.runtimeFolder = folder.path();
  const std::int64_t objects = Quill::AllocTrackTypeInfo::liveTotal();
  const std::size_t types = Quill::typeNodes().size();
  for (int round = 0; round < 3; ++round) {
    {
      Quill::EventLoop loop;
      Agent::AgentProcess agent(loop, options);
      EXPECT_TRUE(loaded());
      // The agent ends while an update waits for its answer.
      std::string shown;
      agent.run("show l3IifTH3\ninsert l3IifTH3 l3Iif=" + std::to_string(round),
                [&shown](std::string_view text) { shown += text; }, Agent::ResultTable::Style::plain, {});
      while (shown.empty()) loop.step(std::chrono::seconds(1));
    }
    EXPECT_FALSE(loaded()) << "round " << round;
    EXPECT_EQ(Quill::AllocTrackTypeInfo::liveTotal(), objects);
    EXPECT_EQ(Quill::typeNodes().size(), types);
    EXPECT_TRUE(Lumen::rowOpsGeneratorNames().empty());
    EXPECT_EQ(P4Runtime::DefaultPluginLoader().initCallers(), 0u);
  }
}

}  // namespace
