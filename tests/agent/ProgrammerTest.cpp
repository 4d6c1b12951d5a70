#include <gtest/gtest.h>

#include <map>

#include "apps/hw/Programmer.h"

namespace {

using namespace HwAgent;
using namespace std::chrono_literals;
using TolmarHwLib::L3IifTH3ConfigEntry;
using TolmarHwLib::L3IifTH3Key;
using TolmarHwLib::L3IifTH3StatusEntry;
using Strings = std::vector<std::string>;

/// A table pair in memory whose status table is of a given capacity and whose readers handle what they are
/// told to.
class FakePair final : public TablePair<L3IifTH3Key, L3IifTH3ConfigEntry, L3IifTH3StatusEntry> {
 public:
  explicit FakePair(std::size_t capacity) : capacity_(capacity) {}

  bool readable() const override { return readable_; }
  std::optional<Config> config(const Key& key) const override { return found(configs, key); }
  std::optional<Status> status(const Key& key) const override { return found(statuses, key); }
  void eachConfig(const std::function<void(const Config&)>& visit) const override {
    for (const auto& [key, config] : configs) visit(config);
  }
  void eachStatus(const std::function<void(const Status&)>& visit) const override {
    for (const auto& [key, status] : statuses) visit(status);
  }
  void statusIs(const Status& status) override {
    if (!statuses.contains(status.key()) && statuses.size() == capacity_) {
      throw Cairn::ResourceExhaustedException("used");
    }
    statuses[status.key()] = status;
    ++sequence_;
    log.push_back(std::to_string(status.l3Iif) + (status.deleted ? " deleted " : " handle ") +
                  std::to_string(status.entryHandle) +
                  (status.errorCode != 0 ? " error " + std::to_string(status.errorCode) : ""));
  }
  void statusDel(const Key& key) override {
    statuses.erase(key);
    ++sequence_;
    log.push_back(std::to_string(key.l3Iif) + " gone");
  }
  std::uint64_t statusSequence() const override { return sequence_; }
  bool readersHandled(std::uint64_t sequence) const override { return sequence <= handled; }

  void configIs(std::uint64_t l3Iif, std::uint64_t handle, std::uint64_t genId, bool valid = true) {
    Config config;
    config.l3Iif = l3Iif;
    config.entryHandle = handle;
    config.genId = genId;
    config.valid = valid;
    configs[config.key()] = config;
  }
  void oldStatusIs(std::uint64_t l3Iif, std::uint64_t handle, std::uint64_t genId, bool deleted = false) {
    Status status;
    status.l3Iif = l3Iif;
    status.entryHandle = handle;
    status.genId = genId;
    status.deleted = deleted;
    statuses[status.key()] = status;
  }
  Strings taken() { return std::exchange(log, {}); }

  std::map<Key, Config> configs;
  std::map<Key, Status> statuses;
  std::uint64_t handled = 0;
  bool readable_ = true;
  Strings log;

 private:
  template <class Entry>
  static std::optional<Entry> found(const std::map<Key, Entry>& entries, const Key& key) {
    const auto at = entries.find(key);
    return at == entries.end() ? std::nullopt : std::optional(at->second);
  }

  std::size_t capacity_;
  std::uint64_t sequence_ = 0;
};

using TestProgrammer = Programmer<FakePair>;
constexpr TestProgrammer::Clock::time_point kNow{};

TEST(Programmer, AnswersWritesAndRemovalsWithTheirHandles) {
  FakePair pair(4);
  TestProgrammer programmer(pair, {}, 0s);
  pair.configIs(5, 100, 1);
  programmer.changed({5}, kNow);
  pair.configIs(5, 100, 2);
  programmer.changed({5}, kNow);
  programmer.changed({5}, kNow);  // told twice, answered once
  EXPECT_EQ(pair.statuses.at({5}).genId, 2u);
  pair.configs.clear();
  programmer.changed({5}, kNow);
  programmer.changed({6}, kNow);  // came and went unseen: nobody to answer
  EXPECT_EQ(pair.taken(), (Strings{"5 handle 100", "5 handle 100", "5 deleted 100"}));
}

TEST(Programmer, KeepsTheStatusOfTheDeletedUntilTheReadersHandledIt) {
  FakePair pair(4);
  TestProgrammer programmer(pair, {}, 0s);
  for (const std::uint64_t id : {1u, 2u}) {
    pair.configIs(id, 100 + id, 1);
    programmer.changed({id}, kNow);
  }
  pair.configs.clear();
  programmer.changed({1}, kNow);
  programmer.changed({2}, kNow);
  pair.taken();
  EXPECT_FALSE(programmer.advance(kNow));
  pair.handled = 3;  // the removal of 1 is change 3
  EXPECT_TRUE(programmer.advance(kNow));
  EXPECT_EQ(pair.taken(), (Strings{"1 gone"}));
  pair.configIs(2, 200, 2);  // 2 comes back before its old row went
  programmer.changed({2}, kNow);
  pair.handled = 100;
  programmer.advance(kNow);
  EXPECT_EQ(pair.taken(), (Strings{"2 handle 200"}));
  EXPECT_EQ(programmer.removals(), 0u);
}

TEST(Programmer, FullStatusTable_AnswersWaitForRoomAndRemovalsPassThemBy) {
  FakePair pair(2);
  TestProgrammer programmer(pair, {}, 0s);
  for (const std::uint64_t id : {1u, 2u}) {
    pair.configIs(id, 100 + id, 1);
    programmer.changed({id}, kNow);
  }
  pair.configs.erase({1});
  pair.configIs(3, 103, 1);
  programmer.changed({3}, kNow);  // an overtaken reader may hear of 3 first
  programmer.changed({1}, kNow);
  EXPECT_EQ(programmer.blocked(), 1u);
  pair.taken();
  programmer.advance(kNow);
  EXPECT_EQ(pair.taken(), Strings{});
  pair.handled = 100;
  programmer.advance(kNow);
  EXPECT_EQ(pair.taken(), (Strings{"1 gone", "3 handle 103"}));
  EXPECT_EQ(programmer.blocked(), 0u);
}

TEST(Programmer, Start_AnswersWhatDiffersAndLeavesEqualRowsAlone) {
  FakePair pair(8);
  pair.configIs(1, 101, 1);
  pair.oldStatusIs(1, 101, 1);
  pair.configIs(2, 102, 2);
  pair.oldStatusIs(2, 102, 1);
  pair.configIs(3, 203, 1);
  pair.oldStatusIs(3, 103, 1);
  pair.configIs(4, 104, 1);
  pair.oldStatusIs(5, 105, 1);
  pair.oldStatusIs(6, 106, 1, true);
  pair.configIs(7, 107, 1);
  pair.oldStatusIs(7, 107, 1, true);
  TestProgrammer programmer(pair, {}, 0s);
  programmer.reconcile(kNow);
  EXPECT_EQ(pair.taken(),
            (Strings{"2 handle 102", "3 handle 203", "4 handle 104", "7 handle 107", "5 deleted 105"}));
  pair.handled = 100;
  programmer.advance(kNow);
  EXPECT_EQ(pair.taken(), (Strings{"6 gone", "5 gone"}));
}

TEST(Programmer, DamagedConfigTable_IsNotTakenForRemovals) {
  FakePair pair(4);
  pair.oldStatusIs(1, 101, 1);
  pair.readable_ = false;
  TestProgrammer programmer(pair, {}, 0s);
  programmer.reconcile(kNow);
  programmer.changed({1}, kNow);
  EXPECT_EQ(pair.taken(), Strings{});
}

TEST(Programmer, Delay_HoldsAnswersBackInOrder) {
  FakePair pair(4);
  TestProgrammer programmer(pair, {}, 10ms);
  pair.configIs(1, 101, 1);
  programmer.changed({1}, kNow);
  pair.configIs(2, 102, 1);
  programmer.changed({2}, kNow + 5ms);
  EXPECT_EQ(programmer.nextAnswer(), kNow + 10ms);
  programmer.advance(kNow + 9ms);
  EXPECT_EQ(pair.taken(), Strings{});
  programmer.advance(kNow + 10ms);
  EXPECT_EQ(pair.taken(), (Strings{"1 handle 101"}));
  programmer.advance(kNow + 15ms);
  EXPECT_EQ(pair.taken(), (Strings{"2 handle 102"}));
  EXPECT_FALSE(programmer.nextAnswer());
}

TEST(Programmer, Faults_HitKeysAndEveryNthButNoInvalidEntryAndNoRemoval) {
  FakePair pair(8);
  const Faults<L3IifTH3ConfigEntry> faults(
      "l3IifTH3", {readFail("l3IifTH3:l3Iif=2:7"), readFail("other:x=1:3")}, readFailEvery("3:9"));
  TestProgrammer programmer(pair, faults, 0s);
  for (const std::uint64_t id : {1u, 2u, 3u, 4u}) {
    pair.configIs(id, 100 + id, 1);
    programmer.changed({id}, kNow);
  }
  pair.configIs(2, 102, 2, false);
  programmer.changed({2}, kNow);
  pair.configs.erase({2});
  programmer.changed({2}, kNow);
  EXPECT_EQ(pair.taken(), (Strings{"1 handle 101", "2 handle 102 error 7", "3 handle 103 error 9",
                                   "4 handle 104", "2 handle 102", "2 deleted 102"}));
}

TEST(FaultOptions, MatchOnTheFieldsGivenAlone) {
  using TolmarHwLib::L3TunnelTH3ConfigEntry;
  const Faults<L3TunnelTH3ConfigEntry> faults("v6", {readFail("v6:sip=2001:DB8::1,l4DestPort=6081:65535")},
                                              {});
  TolmarHwLib::L3TunnelTH3Key key{*IpGenAddr::parse("2001:db8::1"), *IpGenAddr::parse("2001:db8::2"), 17,
                                  6081, 4};
  EXPECT_EQ(faults.codeFor(key), 65535);
  key.l4DestPort = 4789;
  EXPECT_EQ(faults.codeFor(key), 0);
}

TEST(FaultOptions, SayWhatWasExpected) {
  const std::pair<const char*, const char*> cases[] = {
      {"l3IifTH3", "--fail: expected TABLE:FIELD=VALUE[,FIELD=VALUE...]:CODE, got \"l3IifTH3\""},
      {"l3IifTH3:7", "--fail: expected TABLE:FIELD=VALUE[,FIELD=VALUE...]:CODE, got \"l3IifTH3:7\""},
      {"l3IifTH3:l3Iif=1:0", "--fail: expected a code from 1 to 65535, got \"0\""},
      {"l3IifTH3:l3Iif=1:65536", "--fail: expected a code from 1 to 65535, got \"65536\""},
      {"l3IifTH3::7", "--fail: expected at least one FIELD=VALUE, got \"l3IifTH3::7\""},
      {"l3IifTH3:l3Iif:7", "--fail: expected FIELD=VALUE, got \"l3Iif\""},
  };
  for (const auto& [option, message] : cases) {
    try {
      readFail(option);
      ADD_FAILURE() << option;
    } catch (const Cairn::Exception& error) {
      EXPECT_EQ(error.message(), message);
    }
  }
  for (const char* field : {"vrf=1", "nothing=1", "l3Iif=x"}) {
    const FailOption option = readFail("l3IifTH3:" + std::string(field) + ":7");
    EXPECT_THROW(Faults<L3IifTH3ConfigEntry>("l3IifTH3", {option}, {}), Cairn::Exception) << field;
  }
}

}  // namespace
