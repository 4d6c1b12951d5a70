// Histories of Sets, each with its code and what is there afterwards.
#include "apps/server/PipelineConfig.h"

#include <gmock/gmock.h>
#include <google/protobuf/util/message_differencer.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "apps/p4/P4Info.h"
#include "cairn/Exception.h"
#include "tests/RuntimeFolder.h"
#include "tests/p4/Entries.h"
#include "tests/server/Histories.h"

namespace {

using namespace Server;
using p4::v1::GetForwardingPipelineConfigRequest;
using Request = p4::v1::SetForwardingPipelineConfigRequest;

/// "full", "narrow" (without l3IifTH3), "foreign", "empty" (no P4Info) or "none"; with "+7" that cookie.
void fill(Request& request, const std::string& text) {
  const std::string name = text.substr(0, text.find('+'));
  if (name == "none") return;
  auto& config = *request.mutable_config();
  if (name != "empty") *config.mutable_p4info() = Wire::p4InfoOf(Entries::pipeline());
  if (name == "narrow") {
    config.mutable_p4info()->mutable_tables()->RemoveLast();
    config.mutable_p4info()->mutable_actions()->RemoveLast();
  }
  if (name == "foreign") config.mutable_p4info()->mutable_tables(0)->set_size(1);
  if (name == text) return;
  config.mutable_cookie()->set_cookie(std::stoull(text.substr(name.size())));
  config.set_p4_device_config("for " + text);
}

class Switch {
 public:
  Switch() { restart(); }

  /// The code of the step, "..." while it is in progress, and then tables in force, cookie and entries.
  std::string play(const std::string& text) {
    outcome_ = "...";
    std::istringstream words(text);
    std::string action;
    std::string config;
    words >> action >> config;
    if (action == "removed") removed_({});
    if (action == "refused") removed_({Agent::StatusCode::internal, "hardware code 7"});
    if (action == "restart") restart();
    if (action == "insert") entries_[std::stoul(config)] = true;
    if (action == "full") std::filesystem::create_directory(folder_.path() + "/p4rt-agent.pipeline.new");
    if (action == "room") std::filesystem::remove(folder_.path() + "/p4rt-agent.pipeline.new");
    Request request;
    Request::Action value = Request::UNSPECIFIED;
    if (Request::Action_Parse(action, &value) || action == "9") {
      request.set_action(action == "9" ? static_cast<Request::Action>(9) : value);
      fill(request, config);
      config_->set(config_->check(request), [this](const Agent::Status& status) {
        EXPECT_EQ(status.ok(), status.message.empty());
        outcome_ = statusCodeName(status.code);
      });
    }
    return outcome_.append(" ").append(state());
  }

  PipelineConfig& config() { return *config_; }
  std::string path() const { return folder_.path() + "/p4rt-agent.pipeline"; }
  void restart() {
    PipelineConfig::Entries entries;
    entries.removeAll = [this](const PipelineConfig::Done& done) {
      removed_ = [this, done](const Agent::Status& status) {
        if (status.ok()) entries_ = std::vector<bool>(4);
        done(status);
      };
    };
    entries.hasAny = [this](std::size_t table) { return entries_[table]; };
    config_ = std::make_unique<PipelineConfig>(Entries::pipeline(), entries, folder_.path());
  }

 private:
  std::string state() const {
    p4::v1::GetForwardingPipelineConfigResponse got;
    EXPECT_TRUE(answerGet(*config_->inForce(), {}, got).ok());
    std::string text = std::to_string(got.config().p4info().tables_size());
    for (const Wire::Table& table : Entries::pipeline().tables()) {
      const int index = static_cast<int>(table.index);
      EXPECT_EQ(config_->checkTable(table).ok(), index < got.config().p4info().tables_size());
    }
    if (got.config().has_cookie()) text.append("+").append(std::to_string(got.config().cookie().cookie()));
    for (const bool any : entries_) text += any ? " entries" : "";
    return text;
  }

  RuntimeFolder folder_{"/dev/shm"};
  std::vector<bool> entries_ = std::vector<bool>(4);
  std::unique_ptr<PipelineConfig> config_;
  PipelineConfig::Done removed_;
  std::string outcome_;
};

const History kHistories[] = {
    {"BadRequests",
     "UNSPECIFIED full > INVALID_ARGUMENT 4; 9 full > INVALID_ARGUMENT 4; "
     "VERIFY none > INVALID_ARGUMENT 4; VERIFY empty > INVALID_ARGUMENT 4; "
     "VERIFY foreign > INVALID_ARGUMENT 4; VERIFY_AND_SAVE foreign > INVALID_ARGUMENT 4; "
     "VERIFY_AND_COMMIT foreign > INVALID_ARGUMENT 4; RECONCILE_AND_COMMIT foreign > INVALID_ARGUMENT 4; "
     "COMMIT full > INVALID_ARGUMENT 4; COMMIT none > NOT_FOUND 4"},
    {"VerifyAndSaveChangeNothing",
     "insert 0 > ... 4 entries; VERIFY narrow+7 > OK 4 entries; COMMIT none > NOT_FOUND 4 entries; "
     "VERIFY_AND_SAVE narrow+7 > OK 4 entries"},
    {"VerifyAndCommitRemovesEntries",
     "insert 3 > ... 4 entries; VERIFY_AND_COMMIT narrow+7 > ... 4 entries; removed > OK 3+7; "
     "restart > ... 3+7; VERIFY_AND_COMMIT full+0 > ... 3+7; removed > OK 4+0; restart > ... 4+0; "
     "VERIFY_AND_COMMIT full > ... 4+0; removed > OK 4"},
    {"CommitOfTheSaved",
     "insert 3 > ... 4 entries; VERIFY_AND_SAVE narrow+7 > OK 4 entries; "
     "COMMIT full > INVALID_ARGUMENT 4 entries; COMMIT none > ... 4 entries; removed > OK 3+7; "
     "COMMIT none > NOT_FOUND 3+7; restart > ... 3+7"},
    {"FailedCommitKeepsTheSaved",
     "VERIFY_AND_SAVE narrow+7 > OK 4; COMMIT none > ... 4; refused > INTERNAL 4; "
     "VERIFY_AND_COMMIT foreign > INVALID_ARGUMENT 4; RECONCILE_AND_COMMIT foreign > INVALID_ARGUMENT 4; "
     "VERIFY foreign > INVALID_ARGUMENT 4; COMMIT none > ... 4; removed > OK 3+7"},
    {"SavedIsForgottenByAnotherCommit",
     "VERIFY_AND_SAVE narrow+7 > OK 4; VERIFY_AND_COMMIT full > ... 4; removed > OK 4; "
     "COMMIT none > NOT_FOUND 4; VERIFY_AND_SAVE narrow+7 > OK 4; RECONCILE_AND_COMMIT full > OK 4; "
     "COMMIT none > NOT_FOUND 4"},
    {"SavedIsForgottenByAFailedSave",
     "VERIFY_AND_SAVE narrow+7 > OK 4; VERIFY_AND_SAVE foreign > INVALID_ARGUMENT 4; "
     "COMMIT none > NOT_FOUND 4"},
    {"ReconcileKeepsEntries",
     "insert 0 > ... 4 entries; RECONCILE_AND_COMMIT narrow+7 > OK 3+7 entries; restart > ... 3+7 entries; "
     "RECONCILE_AND_COMMIT full+8 > OK 4+8 entries; insert 3 > ... 4+8 entries entries; "
     "RECONCILE_AND_COMMIT narrow+9 > INVALID_ARGUMENT 4+8 entries entries"},
    {"OneCommitAtATime",
     "VERIFY_AND_COMMIT narrow+7 > ... 4; VERIFY full > OK 4; VERIFY_AND_COMMIT full > UNAVAILABLE 4; "
     "VERIFY_AND_SAVE full > UNAVAILABLE 4; COMMIT none > UNAVAILABLE 4; "
     "RECONCILE_AND_COMMIT full > UNAVAILABLE 4; removed > OK 3+7; RECONCILE_AND_COMMIT full > OK 4"},
    {"NoRoom",
     "insert 0 > ... 4 entries; full > ... 4 entries; VERIFY_AND_COMMIT full+7 > INTERNAL 4 entries; "
     "RECONCILE_AND_COMMIT full+7 > INTERNAL 4 entries; room > ... 4 entries; "
     "RECONCILE_AND_COMMIT full+7 > OK 4+7 entries"},
};

TEST(PipelineConfig, FollowsEverySet) { expectAll<Switch>(kHistories); }

TEST(PipelineConfig, ComesBackAsItWasSetInTheParts) {
  Switch device;
  Request request;
  request.set_action(Request::RECONCILE_AND_COMMIT);
  fill(request, "full+7");
  auto& tables = *request.mutable_config()->mutable_p4info()->mutable_tables();
  std::reverse(tables.pointer_begin(), tables.pointer_end());
  tables[0].mutable_preamble()->mutable_doc()->set_brief("doc");
  device.config().set(device.config().check(request),
                      [](const Agent::Status& status) { EXPECT_TRUE(status.ok()) << status.message; });
  device.restart();
  for (int type = 0; type < 5; ++type) {
    GetForwardingPipelineConfigRequest asked;
    asked.set_response_type(static_cast<GetForwardingPipelineConfigRequest::ResponseType>(type));
    p4::v1::GetForwardingPipelineConfigResponse got;
    EXPECT_EQ(answerGet(*device.config().inForce(), asked, got).ok(), type != 4);
    if (type == 4) continue;
    PipelineConfig::Config expected = request.config();
    if (type != 0 && type != 2) expected.clear_p4info();
    if (type != 0 && type != 3) expected.clear_p4_device_config();
    EXPECT_TRUE(google::protobuf::util::MessageDifferencer::Equals(got.config(), expected)) << type;
  }
}

TEST(PipelineConfig, StoredForAnotherPipelineIsRefusedWithAWayOut) {
  Switch device;
  StateFile file(std::filesystem::path(device.path()).parent_path(), "p4rt-agent.pipeline", 1, "");
  Request foreign;
  fill(foreign, "foreign");
  for (const std::string& contents : {foreign.config().SerializeAsString(), std::string("\xff")}) {
    file.replace(contents);
    EXPECT_THAT([&] { device.restart(); },
                testing::ThrowsMessage<Cairn::Exception>(testing::EndsWith(
                    "; remove the file to start without the pipeline config that a controller has set")));
  }
}

}  // namespace
