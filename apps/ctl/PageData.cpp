// What the status page shows.
#include <nlohmann/json.hpp>

#include "apps/ctl/Metrics.h"
#include "apps/ctl/Text.h"

namespace Ctl {

namespace {

using Json = nlohmann::ordered_json;

template <class Words>
Json programOf(const Program<Words>& program) {
  Json object{{"name", program.name}, {"up", program.fault().empty()}, {"state", program.stateText()}};
  if (!program.view) return object;
  const Counters::ProgramState& state = program.view->program();
  object["pid"] = state.process;
  object["version"] = state.version;
  object["options"] = state.options;
  object["start"] = timeText(state.startWall);
  return object;
}

/// Buckets that are not empty, as [ends before nanoseconds, answers].
Json timesOf(const Counters::AnswerTimeCounts& times) {
  Json buckets = Json::array();
  for (std::size_t bucket = 0; bucket < times.size(); ++bucket) {
    if (times[bucket] != 0) buckets.push_back({Counters::lowestOf(bucket + 1), times[bucket]});
  }
  return buckets;
}

Json tablesOf(const Counters::AgentCounts& words) {
  Json tables = Json::array();
  for (std::size_t table = 0; table < words.tables.size(); ++table) {
    const auto& counts = words.tables[table];
    tables.push_back({{"name", tableNames()[table]},
                      {"capacity", counts.capacity},
                      {"used", counts.used},
                      {"highWater", counts.highWater},
                      {"writes", counts.writes[0] + counts.writes[1] + counts.writes[2]},
                      {"completed", counts.completions[0]},
                      {"failed", failedOf(counts.completions)},
                      {"timeouts", counts.timeouts},
                      {"capacityRefusals", counts.capacityRefusals},
                      {"undosRefused", counts.undosRefused},
                      {"damageReports", counts.segments.damageReports},
                      {"answerTimes", timesOf(counts.answerTimes.buckets)}});
  }
  return tables;
}

Json failuresOf(const Programs& programs) {
  Json failures = Json::array();
  for (const Failure& failure : programs.failures()) {
    failures.push_back({{"number", failure.number},
                        {"time", timeText(failure.time)},
                        {"table", failure.table},
                        {"handle", std::to_string(failure.handle)},  // more digits than a script's numbers
                        {"status", failure.status},
                        {"hardwareCode", failure.hardwareCode}});
  }
  return failures;
}

}  // namespace

std::string pageData(const Programs& programs) {
  Json document{{"time", programs.time()},
                {"programs", {programOf(programs.agent()), programOf(programs.hardware())}}};
  if (const auto* words = programs.agent().words()) {
    document["server"] = {{"requests", words->server.requests},
                          {"rejections", words->server.rejections},
                          {"shortenedTexts", words->server.shortenedTexts},
                          {"requestsInFlight", words->server.requestsInFlight},
                          {"batchesInFlight", words->server.batchesInFlight},
                          {"streams", words->server.streams}};
    document["failureCount"] = words->failures;
    document["failures"] = failuresOf(programs);
    document["tables"] = tablesOf(*words);
  }
  // Options are bytes of any kind.
  return document.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace Ctl
