// tolmarctl check: the references to each VRF by rows beside the agent's own count of them.
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <thread>

#include "apps/counters/TickScale.h"
#include "apps/ctl/Checks.h"
#include "apps/ctl/Programs.h"
#include "apps/ctl/Tables.h"
#include "cairn/Exception.h"

namespace Ctl {

namespace {

using Agent = Program<Counters::AgentCounts>;
/// By VRF.
using References = std::map<std::uint64_t, std::uint64_t>;

std::uint64_t referencesTo(std::uint64_t vrf, const References& references) {
  const auto found = references.find(vrf);
  return found == references.end() ? 0 : found->second;
}

References byRows(const Folder& folder) {
  References references;
  try {
    for (const Table& table : readTables(folder)) {
      for (const Entry& entry : table.entries) {
        if (!entry.config) continue;
        for (const Field& field : entry.config->data) {
          if (field.name == "vrf") ++references[std::stoul(field.text)];
        }
      }
    }
  } catch (const Cairn::Exception&) {
    // There are no tables, which is a finding of its own.
  }
  return references;
}

/// Nothing without a counter file, and when it has no room for all VRFs.
std::optional<References> byAgent(const Agent& agent) {
  if (!agent.view || agent.words()->vrfs > Counters::kVrfs) return std::nullopt;
  References references;
  for (std::size_t place = 0; place < agent.words()->vrfs; ++place) {
    const std::uint64_t word = agent.words()->vrfReferences[place];
    references[word >> 32] = word & 0xffff'ffff;
  }
  return references;
}

struct Comparison {
  References rows;
  std::optional<References> counted;
  References missing{};    ///< those that the agent has not counted
  bool isCurrent = false;  ///< the agent has copied its count after the rows were read

  void compare(const References& least) {
    missing.clear();
    if (!counted) return;
    for (const auto& [vrf, count] : least) {
      const std::uint64_t known = referencesTo(vrf, *counted);
      if (known < count) missing[vrf] = count - known;
    }
  }
};

/// The agent copies its counts every 400 ms, so rows may be newer than these; and rows may be removed before
/// the count of them is read. Missing are therefore references that stay so while the agent copies its counts
/// some more times, and of rows that have all been there meanwhile.
Comparison compared(const Folder& folder) {
  constexpr int kCopies = 3;
  constexpr std::chrono::milliseconds kInterval{500};
  Agent agent{std::string(kAgent), {}, {}};
  agent.read(folder.path());
  Comparison comparison{byRows(folder), byAgent(agent), {}, agent.fault().empty()};
  References least = comparison.rows;
  comparison.compare(least);
  for (int copy = 0; copy < kCopies && comparison.isCurrent && !comparison.missing.empty(); ++copy) {
    const std::uint64_t before = Counters::monotonicNanoseconds();
    std::this_thread::sleep_for(kInterval);
    agent.read(folder.path());
    comparison = {byRows(folder), byAgent(agent), {}, agent.view && agent.words()->heartbeat > before};
    for (auto& [vrf, count] : least) count = std::min(count, referencesTo(vrf, comparison.rows));
    comparison.compare(least);
  }
  return comparison;
}

}  // namespace

void checkVrfs(const Folder& folder, std::vector<Finding>& findings) {
  const Comparison comparison = compared(folder);
  References all = comparison.rows;
  if (comparison.counted) all.insert(comparison.counted->begin(), comparison.counted->end());
  for (const auto& [vrf, known] : all) {
    Finding finding{Finding::Kind::fine, fmt::format("VRF {}", vrf),
                    fmt::format("{} references by rows", referencesTo(vrf, comparison.rows))};
    if (comparison.counted) {
      finding.text += fmt::format(", {} by {}{}", referencesTo(vrf, *comparison.counted), kAgent,
                                  comparison.isCurrent ? "" : " when it last copied its count");
    }
    if (comparison.isCurrent && comparison.missing.contains(vrf)) {
      finding.kind = Finding::Kind::fault;
      finding.advice = fmt::format("restart {}, which then counts the rows", kAgent);
    }
    findings.push_back(std::move(finding));
  }
}

}  // namespace Ctl
