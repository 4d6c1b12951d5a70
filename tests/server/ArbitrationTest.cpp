// Histories of controllers, step by step, with what each of them hears.
//
//   A 5          stream A sends election id {0, 5}; A 1.0 sends {1, 0}; A - sends none
//   A red/5      the same for the role red
//   A 5 @2       the same for device 2
//   A #7/5       the same for the role with the number 7; A red+/5 with a role config
//   A gone       the stream is broken
//   W 5          a write with that id, W red/5 of that role: "ok" (it is in flight from then on) or a code
//   done         the oldest write in flight is finished
//   late         the take-over time-out has passed
//   restart      a new agent over the same files: all streams are gone
//   full, room   the file of the election ids can not, can be replaced: a folder is in the way
//
// Heard: "A=OK/5" is a notice with its status and the highest id, "A!NOT_FOUND" the end of the stream.
#include "apps/server/Arbitration.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <filesystem>
#include <set>
#include <sstream>

#include "cairn/Exception.h"
#include "tests/RuntimeFolder.h"
#include "tests/server/Histories.h"

namespace {

using namespace Server;

std::string idText(const std::optional<ElectionId>& id) {
  if (!id) return "-";
  return (id->high == 0 ? "" : std::to_string(id->high) + ".") + std::to_string(id->low);
}

std::optional<ElectionId> idOf(const std::string& text) {
  if (text == "-") return std::nullopt;
  const std::size_t dot = text.find('.');
  if (dot == std::string::npos) return ElectionId{0, std::stoull(text)};
  return ElectionId{std::stoull(text), std::stoull(text.substr(dot + 1))};
}

class Controllers final : public StreamSink {
 public:
  Controllers() { restart(); }

  /// What is heard of it, joined by blanks.
  std::string play(const std::string& text) {
    heard_.clear();
    std::istringstream words(text);
    std::string subject;
    std::string what;
    std::string device;
    words >> subject >> what >> device;
    if (subject == "W") write(what);
    if (subject == "done") finishOldest();
    if (subject == "late") expire();
    if (subject == "restart") restart();
    if (subject == "full") std::filesystem::create_directory(blocked());
    if (subject == "room") std::filesystem::remove(blocked());
    if (subject.size() == 1 && subject != "W") controller(static_cast<StreamId>(subject[0]), what, device);
    return heard_;
  }

 private:
  std::string blocked() const { return folder_.path() + "/p4rt-agent.election.new"; }

  void restart() {
    writes_.clear();
    open_.clear();
    ids_ = std::make_unique<ElectionIds>(folder_.path());
    Arbitration::Settings settings;
    settings.maxStreams = 3;
    settings.maxRoles = 3;
    arbitration_ = std::make_unique<Arbitration>(settings, *this, *ids_);
  }

  /// What has waited may be attempted only while no other controller has become primary.
  void finishOldest() {
    if (!arbitration_->checkTerm(writes_.front()).ok()) hear("outlived");
    arbitration_->finished(writes_.front());
    writes_.pop_front();
  }

  void expire() {
    now_ = arbitration_->nextDeadline().value();
    arbitration_->expire(now_ - std::chrono::nanoseconds(1));
    EXPECT_EQ(heard_, "");
    arbitration_->expire(now_);
  }

  void write(const std::string& roleAndId) {
    const std::size_t slash = roleAndId.find('/');
    const std::string role = slash == std::string::npos ? "" : roleAndId.substr(0, slash);
    Arbitration::Ticket ticket;
    const auto status = arbitration_->admit(1, role, idOf(roleAndId.substr(slash + 1)), ticket);
    if (status.ok()) writes_.push_back(ticket);
    EXPECT_EQ(status.ok(), status.message.empty());
    hear(status.ok() ? "ok" : std::string(statusCodeName(status.code)));
  }

  void controller(StreamId stream, const std::string& what, const std::string& device) {
    if (what == "gone") {
      open_.erase(stream);
      return arbitration_->streamClosed(stream);
    }
    if (open_.insert(stream).second) {
      const auto status = arbitration_->streamOpened(stream);
      if (!status.ok()) return end(stream, status);
    }
    ArbitrationRequest request;
    request.device = device.empty() ? 1 : std::stoull(device.substr(1));
    const std::size_t slash = what.find('/');
    if (slash != std::string::npos) request.role = what.substr(0, slash);
    if (request.role.starts_with('#'))
      request.roleId = std::stoull(std::exchange(request.role, "").substr(1));
    if (request.role.ends_with('+')) {
      request.hasRoleConfig = true;
      request.role.pop_back();
    }
    request.electionId = idOf(what.substr(slash + 1));
    arbitration_->arbitrate(stream, request, now_);
  }

  void notify(StreamId stream, const Notice& notice) noexcept override {
    hear(std::string(1, static_cast<char>(stream)) + "=" + std::string(statusCodeName(notice.code)) + "/" +
         idText(notice.highest));
  }
  void end(StreamId stream, const Agent::Status& status) override {
    EXPECT_FALSE(status.message.empty());
    open_.erase(stream);
    hear(std::string(1, static_cast<char>(stream)) + "!" + std::string(statusCodeName(status.code)));
  }
  void hear(const std::string& what) { heard_ += (heard_.empty() ? "" : " ") + what; }

  RuntimeFolder folder_{"/dev/shm"};
  std::unique_ptr<ElectionIds> ids_;
  std::unique_ptr<Arbitration> arbitration_;
  Arbitration::Clock::time_point now_{};
  std::deque<Arbitration::Ticket> writes_;
  std::set<StreamId> open_;
  std::string heard_;
};

const History kHistories[] = {
    {"FirstIsPrimary",
     "W 5 > PERMISSION_DENIED; A 5 > A=OK/5; W 5 > ok; W 4 > PERMISSION_DENIED; W - > PERMISSION_DENIED; "
     "A 5 > A=OK/5"},
    {"ZeroIsAnId", "A 0 > A=OK/0; W 0 > ok; B - > B=ALREADY_EXISTS/0; W - > PERMISSION_DENIED"},
    {"UnsetNeverWins",
     "A - > A=NOT_FOUND/-; B - > B=NOT_FOUND/-; W - > PERMISSION_DENIED; "
     "C 1 > A=ALREADY_EXISTS/1 B=ALREADY_EXISTS/1 C=OK/1"},
    {"IdsAre128Bits",
     "A 18446744073709551615 > A=OK/18446744073709551615; B 1.0 > A=ALREADY_EXISTS/1.0 B=OK/1.0; "
     "A 5.0 > B=ALREADY_EXISTS/5.0 A=OK/5.0"},
    {"BackupsDoNotInherit",
     "A 5 > A=OK/5; B 4 > B=ALREADY_EXISTS/5; A gone > B=NOT_FOUND/5; W 5 > PERMISSION_DENIED; "
     "W 4 > PERMISSION_DENIED; B 4 > B=NOT_FOUND/5; C 3 > C=NOT_FOUND/5; "
     "B 5 > C=ALREADY_EXISTS/5 B=OK/5; W 5 > ok"},
    {"TakeOverWaitsForWrites",
     "A 5 > A=OK/5; W 5 > ok; W 5 > ok; B 6 > A=ALREADY_EXISTS/6; W 5 > PERMISSION_DENIED; "
     "W 6 > PERMISSION_DENIED; done; B 6; C 1 > C=ALREADY_EXISTS/6; done > B=OK/6; W 6 > ok"},
    {"TakeOverWaitsNoLongerThanTheTimeOut",
     "A 5 > A=OK/5; W 5 > ok; B 6 > A=ALREADY_EXISTS/6; late > B=OK/6; W 6 > ok; done > outlived; "
     "W 6 > ok"},
    {"HigherBidWhileOneWaits",
     "A 5 > A=OK/5; W 5 > ok; B 6 > A=ALREADY_EXISTS/6; C 7 > A=ALREADY_EXISTS/7 B=ALREADY_EXISTS/7; "
     "late > C=OK/7"},
    {"WaitingLeaderGoes",
     "A 5 > A=OK/5; W 5 > ok; B 6 > A=ALREADY_EXISTS/6; B gone > A=NOT_FOUND/6; done; "
     "W 5 > PERMISSION_DENIED; A 5 > A=NOT_FOUND/6; A 7 > A=OK/7"},
    {"PrimaryReturnsOverItsOwnWrites",
     "A 5 > A=OK/5; W 5 > ok; A gone; A 5; W 5 > PERMISSION_DENIED; done > A=OK/5"},
    {"PrimaryRaisesItsId",
     "A 5 > A=OK/5; B 4 > B=ALREADY_EXISTS/5; A 7 > B=ALREADY_EXISTS/7 A=OK/7; W 5 > PERMISSION_DENIED; "
     "W 7 > ok; B 6 > B=ALREADY_EXISTS/7"},
    {"PrimaryStepsDownByALowerId",
     "A 5 > A=OK/5; B 4 > B=ALREADY_EXISTS/5; A 3 > A=NOT_FOUND/5 B=NOT_FOUND/5; "
     "W 3 > PERMISSION_DENIED; W 5 > PERMISSION_DENIED; A 5 > B=ALREADY_EXISTS/5 A=OK/5"},
    {"PrimaryStepsDownByNone", "A 5 > A=OK/5; B 4 > B=ALREADY_EXISTS/5; A - > A=NOT_FOUND/5 B=NOT_FOUND/5"},
    {"EqualIds",
     "A 5 > A=OK/5; B 5 > B!INVALID_ARGUMENT; B 4 > B=ALREADY_EXISTS/5; C 4 > C!INVALID_ARGUMENT; "
     "B 5 > B!INVALID_ARGUMENT; W 5 > ok; done; A 4 > A=NOT_FOUND/5; C 5 > A=ALREADY_EXISTS/5 C=OK/5"},
    {"PrimaryWithAnothersIdIsEnded",
     "A 5 > A=OK/5; B 4 > B=ALREADY_EXISTS/5; A 4 > B=NOT_FOUND/5 A!INVALID_ARGUMENT; "
     "W 5 > PERMISSION_DENIED"},
    {"Device",
     "A 5 @2 > A!NOT_FOUND; A 5 > A=OK/5; B 4 > B=ALREADY_EXISTS/5; "
     "A 5 @2 > B=NOT_FOUND/5 A!FAILED_PRECONDITION"},
    {"RolesAreApart",
     "A 5 > A=OK/5; W red/5 > NOT_FOUND; B red/5 > B=OK/5; C red/4 > C=ALREADY_EXISTS/5; W red/5 > ok; "
     "A gone; W 5 > PERMISSION_DENIED; W red/5 > ok"},
    {"RoleChange",
     "A 5 > A=OK/5; A red/5 > A!FAILED_PRECONDITION; W 5 > PERMISSION_DENIED; A red/5 > A=OK/5; "
     "A 5 > A!FAILED_PRECONDITION"},
    {"RolesByNumberOrWithConfig",
     "A #7/5 > A!INVALID_ARGUMENT; A red+/5 > A!UNIMPLEMENTED; A +/5 > A!INVALID_ARGUMENT"},
    {"TooManyRoles",
     "A red/5 > A=OK/5; B blue/5 > B=OK/5; C green/5 > C!RESOURCE_EXHAUSTED; B gone; "
     "C green/5 > C!RESOURCE_EXHAUSTED; C blue/4 > C=NOT_FOUND/5"},
    {"TooManyStreams",
     "A 5 > A=OK/5; B 4 > B=ALREADY_EXISTS/5; C 3 > C=ALREADY_EXISTS/5; D 9 > D!RESOURCE_EXHAUSTED; "
     "C gone; D 9 > A=ALREADY_EXISTS/9 B=ALREADY_EXISTS/9 D=OK/9"},
    {"HighestIdsSurviveARestart",
     "A 5 > A=OK/5; B red/2.1 > B=OK/2.1; C red/1 > C=ALREADY_EXISTS/2.1; restart; "
     "W 5 > PERMISSION_DENIED; W red/2.1 > PERMISSION_DENIED; A 4 > A=NOT_FOUND/5; "
     "B red/2.0 > B=NOT_FOUND/2.1; A 5 > A=OK/5; C red/2.1 > B=ALREADY_EXISTS/2.1 C=OK/2.1"},
    {"IdThatCannotBeStored",
     "A 5 > A=OK/5; full; B 6 > B!INTERNAL; W 5 > ok; A 5 > A=OK/5; room; B 6 > A=ALREADY_EXISTS/6; "
     "done > B=OK/6"},
};

TEST(Arbitration, IsHeardByEveryController) { expectAll<Controllers>(kHistories); }

TEST(Arbitration, RefusesNamesThatAreTooLong) {
  Controllers controllers;
  const std::string name(256, 'r');
  EXPECT_EQ(controllers.play("A " + name + "/5"), "A=OK/5");
  EXPECT_EQ(controllers.play("B " + name + "r/5"), "B!INVALID_ARGUMENT");
  controllers.play("restart");
  EXPECT_EQ(controllers.play("A " + name + "/4"), "A=NOT_FOUND/5");
}

}  // namespace
