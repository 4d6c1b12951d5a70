// Threads that post as gRPC's do, and a loop that takes.
#include <gtest/gtest.h>
#include <poll.h>

#include <array>
#include <memory>
#include <thread>
#include <vector>

#include "apps/bridge/Inbox.h"
#include "apps/bridge/Quota.h"

namespace {

using Bridge::Inbox;
using Bridge::Quota;

constexpr std::size_t kThreads = 4;

/// Threads that each run the body with their number, joined when they go.
template <class Body>
std::vector<std::jthread> threads(const Body& body) {
  std::vector<std::jthread> started;
  for (std::size_t i = 0; i < kThreads; ++i) started.emplace_back(body, i);
  return started;
}

bool isReadable(const Inbox& inbox, int timeout) {
  pollfd waiting{inbox.descriptor(), POLLIN, 0};
  return ::poll(&waiting, 1, timeout) == 1;
}

/// Notes its number; gone once it has run, so that the sanitizers see anybody who still looks at it.
struct Note final : Bridge::Work {
  Note(std::vector<std::size_t>& runs, std::size_t number_) : log(runs), number(number_) {}
  void run() noexcept override {
    log.push_back(number);
    delete this;
  }
  std::vector<std::size_t>& log;
  std::size_t number;
};

TEST(Inbox, RunsWorkInOrderAndInSteps) {
  Inbox inbox;
  std::vector<std::size_t> log;
  EXPECT_FALSE(isReadable(inbox, 0));
  for (std::size_t i = 0; i < 5; ++i) EXPECT_TRUE(inbox.post(*new Note(log, i)));
  EXPECT_TRUE(isReadable(inbox, 0));
  EXPECT_EQ(inbox.run(3), 3u);
  EXPECT_TRUE(isReadable(inbox, 0));  // there is more
  EXPECT_TRUE(inbox.post(*new Note(log, 5)));
  EXPECT_EQ(inbox.run(2), 2u);
  EXPECT_EQ(inbox.run(9), 1u);
  EXPECT_FALSE(isReadable(inbox, 0));
  EXPECT_EQ(log, (std::vector<std::size_t>{0, 1, 2, 3, 4, 5}));
}

// The loop hardly ever sleeps here, so that posts fall between all of its steps.
TEST(Inbox, KeepsEachThreadsOrderAndIsReadableWhileThereIsWork) {
  constexpr std::size_t kPosts = 50000;
  Inbox inbox;
  std::array<std::vector<std::size_t>, kThreads> logs;
  std::atomic<std::size_t> posted{0};
  auto posting = threads([&](std::size_t thread) {
    for (std::size_t i = 0; i < kPosts; ++i) {
      inbox.post(*new Note(logs.at(thread), i));
      posted.fetch_add(1, std::memory_order_release);
    }
  });
  std::size_t missed = 0;
  for (std::size_t done = 0; done < kThreads * kPosts; done += inbox.run(kPosts)) {
    if (posted.load(std::memory_order_acquire) > done && !isReadable(inbox, 0)) ++missed;
  }
  posting.clear();
  EXPECT_EQ(missed, 0u);
  EXPECT_EQ(inbox.run(1), 0u);  // a thread may have made it readable for work that was taken already
  EXPECT_FALSE(isReadable(inbox, 0));
  for (const auto& log : logs) {
    EXPECT_EQ(log.size(), kPosts);
    EXPECT_TRUE(std::is_sorted(log.begin(), log.end()));
  }
}

/// Hands itself back to the thread that has posted it.
struct Call final : Bridge::Work {
  void run() noexcept override { isDone.store(true, std::memory_order_release), isDone.notify_one(); }
  std::atomic<bool> isDone{false};
};

// Each post finds the loop about to sleep: where a wake-up is lost, both wait for ever.
TEST(Inbox, LosesNoWakeUp) {
  constexpr std::size_t kCalls = 5000;
  Inbox inbox;
  const auto callers = threads([&inbox](std::size_t) {
    for (std::size_t i = 0; i < kCalls; ++i) {
      Call call;
      inbox.post(call);
      call.isDone.wait(false, std::memory_order_acquire);
    }
  });
  for (std::size_t done = 0; done < kThreads * kCalls; done += inbox.run(1)) {
    if (isReadable(inbox, 10000)) continue;
    ADD_FAILURE() << "a wake-up was lost after " << done;
    std::abort();  // the callers cannot be joined
  }
}

TEST(Inbox, RunsOrRefusesEverythingWhenItCloses) {
  for (int round = 0; round < 100; ++round) {
    Inbox inbox;
    std::vector<std::size_t> log;
    std::atomic<std::size_t> accepted{0};
    auto posting = threads([&](std::size_t) {
      for (int post = 0; post < 200; ++post) {
        auto note = std::make_unique<Note>(log, 0);
        if (!inbox.post(*note)) return;
        note.release();
        accepted.fetch_add(1, std::memory_order_relaxed);
      }
    });
    for (std::size_t done = 0; done < 100;) done += inbox.run(7);
    inbox.close();
    posting.clear();
    EXPECT_EQ(log.size(), accepted.load());
  }
}

TEST(Quota, RefusesWithNumbers) {
  Quota quota(2, 100);
  std::array<Quota::Share, 3> shares;
  EXPECT_TRUE(quota.take(60, shares[0]).ok());
  const auto tooLong = quota.take(41, shares[1]);
  EXPECT_EQ(tooLong.code, Agent::StatusCode::resourceExhausted);
  EXPECT_EQ(tooLong.message,
            "expected room for a request of 41 bytes, got 1 of 2 requests and 60 of 100 bytes in flight");
  EXPECT_TRUE(quota.take(40, shares[1]).ok());
  EXPECT_FALSE(quota.take(0, shares[2]).ok()) << "a third";
  shares[2] = std::exchange(shares[0], {});
  EXPECT_EQ(quota.bytes(), 100u);
  EXPECT_FALSE(quota.grow(shares[2], 1).ok());
  shares[1].answered();
  EXPECT_TRUE(quota.take(0, shares[0]).ok()) << "an answered one counts by its bytes alone";
  EXPECT_FALSE(quota.grow(shares[0], 1).ok());
  shares[0] = {};
  shares[1] = {};
  EXPECT_EQ(quota.requests(), 1u);
  EXPECT_TRUE(quota.grow(shares[2], 1000).ok()) << "alone";
  EXPECT_EQ(quota.bytes(), 1060u);
  EXPECT_FALSE(quota.take(1, shares[1]).ok());
  shares[2] = {};
  EXPECT_EQ(quota.bytes(), 0u);
  EXPECT_FALSE(quota.take(101, shares[0]).ok());
}

TEST(Quota, CountsForEveryThread) {
  Quota quota(2, 30);
  std::atomic<int> inFlight{0};
  threads([&](std::size_t) {
    for (int round = 0; round < 20000; ++round) {
      Quota::Share share;
      if (!quota.take(10, share).ok()) continue;
      EXPECT_LE(inFlight.fetch_add(1), 1);
      inFlight.fetch_sub(1);
    }
  });
  EXPECT_EQ(quota.requests() + quota.bytes(), 0u);
}

}  // namespace
