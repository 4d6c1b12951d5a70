// Random requests of several clients, explained by a model.
#include <atomic>
#include <iostream>
#include <limits>
#include <random>
#include <set>
#include <thread>

#include "tests/server/P4RuntimeFixture.h"

namespace {

/// What one client has asked for and been answered; the times are the places of call and answer among those
/// of all clients.
struct Exchange {
  Strings updates;  // none: a Read
  int atomicity = 0;
  int begin = 0;
  int end = 0;
  std::string outcome;
};
std::ostream& operator<<(std::ostream& out, const Exchange& each) {
  out << " [" << each.begin << ", " << each.end << "] mode " << each.atomicity;
  for (const std::string& text : each.updates) out << " " << text;
  return out << ": " << each.outcome;
}
using Model = std::map<int, int>;  // VRFs by key

/// The hardware refuses one VRF; an update whose answer was lost with the hardware agent is "13".
bool explains(const Exchange& exchange, Model& model) {
  if (exchange.updates.empty()) {
    std::string entries;
    for (const auto& [key, vrf] : model) entries += std::to_string(key) + "=" + std::to_string(vrf) + " ";
    return exchange.outcome == entries + "0";
  }
  std::istringstream in(exchange.outcome);
  std::string call;
  in >> call;
  Model after = model;
  const bool isRolledBack = exchange.atomicity == 1 && call != "0";
  bool isOneFailed = false;
  for (const std::string& text : exchange.updates) {
    const int key = text[1] - '0';
    const bool isInsertion = text[0] == '+';
    const bool isKnownBefore = isInsertion == (model.count(key) != 0);
    std::string expected = isKnownBefore ? (isInsertion ? "6" : "5") : text.ends_with("=4095") ? "13/7" : "0";
    std::string got = "0";
    if (call != "0") in >> got;
    const bool isLost = got == "13" && !isKnownBefore;
    const bool isAborted = isRolledBack && got == "10" && !isKnownBefore;
    if (!isLost && !isAborted && (got != expected || (isRolledBack && got == "0"))) return false;
    isOneFailed = isOneFailed || !isAborted;
    if (got != "0") continue;
    if (text[0] == '-') {
      after.erase(key);
    } else {
      after[key] = std::stoi(text.substr(3));
    }
  }
  if (isRolledBack) return isOneFailed;
  model = std::move(after);
  return true;
}

/// Whether the exchanges could have happened one after the other, those of a client in its order, and none
/// that was answered before another was asked for after that one.
bool isSerialisable(const std::vector<std::vector<Exchange>>& clients, std::vector<std::size_t>& next,
                    const Model& model, std::set<std::pair<std::vector<std::size_t>, Model>>& tried) {
  if (!tried.emplace(next, model).second) return false;
  int earliestEnd = std::numeric_limits<int>::max();
  for (std::size_t i = 0; i < clients.size(); ++i) {
    if (next[i] < clients[i].size()) earliestEnd = std::min(earliestEnd, clients[i][next[i]].end);
  }
  if (earliestEnd == std::numeric_limits<int>::max()) return true;
  for (std::size_t i = 0; i < clients.size(); ++i) {
    if (next[i] == clients[i].size() || clients[i][next[i]].begin > earliestEnd) continue;
    Model after = model;
    if (!explains(clients[i][next[i]], after)) continue;
    ++next[i];
    if (isSerialisable(clients, next, after, tried)) return true;
    --next[i];
  }
  return false;
}

Exchange randomExchange(Entries::Random& random) {
  Exchange made;
  if (random() % 3 == 0) return made;
  made.atomicity = static_cast<int>(random() % 2);
  bool isRefused = false;
  for (char key = '1'; key <= '6'; ++key) {
    if (random() % 3 != 0) continue;
    std::string text = std::string(1, "+~-"[random() % 3]) + key;
    const bool refuse = text[0] != '-' && !isRefused && random() % 8 == 0;
    isRefused = isRefused || refuse;
    if (text[0] != '-') text += "=" + std::to_string(refuse ? 4095 : 1 + random() % 9);
    made.updates.push_back(text);
  }
  return made;
}

// Three clients of one primary, refusals by the hardware, and a hardware agent that is killed.
TEST_F(P4RuntimeTest, History_IsStrictlySerialisable) {
  const Strings faults = {"--fail", "l3IifTH3:vrf=4095:7"};
  start({"--timeout", "60"}, faults);
  const auto seed = std::random_device()();
  std::atomic<int> time{0};
  std::vector<std::future<std::vector<Exchange>>> running;
  for (unsigned i = 0; i < 3; ++i) {
    running.push_back(
        std::async(std::launch::async, [this, &time, random = Entries::Random(seed + i)]() mutable {
          Controller client(address());
          std::vector<Exchange> exchanges(150);
          for (Exchange& exchange : exchanges) {
            exchange = randomExchange(random);
            exchange.begin = ++time;
            exchange.outcome = exchange.updates.empty()
                                   ? read(client)
                                   : write(client, request(exchange.updates, 1, exchange.atomicity));
            exchange.end = ++time;
          }
          return exchanges;
        }));
  }
  for (const int kill : {100, 300, 500}) {
    while (time < kill) std::this_thread::yield();
    hardware_.reset();
    startHardware(faults);
  }
  std::vector<std::vector<Exchange>> clients;
  for (auto& each : running) clients.push_back(each.get());
  std::vector<std::size_t> next(clients.size());
  std::set<std::pair<std::vector<std::size_t>, Model>> tried;
  if (isSerialisable(clients, next, {}, tried)) return;
  std::size_t furthest = 0;
  for (const auto& [places, model] : tried) furthest = std::max(furthest, places[0] + places[1] + places[2]);
  ADD_FAILURE() << "seed " << seed << ", explained " << furthest;
  for (const auto& [places, model] : tried) {
    if (places[0] + places[1] + places[2] != furthest) continue;
    for (const auto& [key, vrf] : model) std::cout << key << "=" << vrf << " ";
    std::cout << "and then:\n";
    for (std::size_t i = 0; i < clients.size(); ++i) {
      if (places[i] != clients[i].size()) std::cout << "  client " << i << clients[i][places[i]] << "\n";
    }
  }
}

}  // namespace
