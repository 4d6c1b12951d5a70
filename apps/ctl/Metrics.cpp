#include "apps/ctl/Metrics.h"

#include <prometheus/metric_family.h>
#include <prometheus/text_serializer.h>

#include <utility>

namespace Ctl {

namespace {

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;
using Labels = std::vector<ClientMetric::Label>;

// Bucket ends of the histograms: powers of two, at which buckets of the counter file end, from 8 us to 17 s.
constexpr unsigned kFirstBits = 13;
constexpr unsigned kLastBits = 34;

class Families {
 public:
  void gauge(const char* name, const char* help, double value, Labels labels = {}) {
    ClientMetric& metric = add(name, help, MetricType::Gauge, std::move(labels));
    metric.gauge.value = value;
  }
  void gauge(const char* name, const char* help, std::uint64_t value, Labels labels = {}) {
    gauge(name, help, static_cast<double>(value), std::move(labels));
  }
  void counter(const char* name, const char* help, std::uint64_t value, Labels labels = {}) {
    ClientMetric& metric = add(name, help, MetricType::Counter, std::move(labels));
    metric.counter.value = static_cast<double>(value);
  }
  void histogram(const char* name, const char* help, const Counters::AnswerTimeCounts& times, Labels labels) {
    ClientMetric& metric = add(name, help, MetricType::Histogram, std::move(labels));
    metric.histogram.sample_count = Counters::countOf(times);
    metric.histogram.sample_sum = Counters::sumOf(times) / 1e9;
    for (unsigned bits = kFirstBits; bits <= kLastBits; ++bits) {
      const std::uint64_t end = std::uint64_t{1} << bits;
      metric.histogram.bucket.push_back({Counters::countBelow(times, end), static_cast<double>(end) / 1e9});
    }
  }
  /// Answers by code; those that never came are left out, save for success.
  void codes(const char* name, const char* help, const std::array<std::uint64_t, Counters::kCodes>& answers,
             const std::string& table) {
    for (std::size_t code = 0; code < answers.size(); ++code) {
      if (code == 0 || answers[code] != 0) {
        counter(name, help, answers[code], {{"table", table}, {"code", codeText(code)}});
      }
    }
  }
  std::string text() const { return prometheus::TextSerializer().Serialize(families_); }

 private:
  ClientMetric& add(const char* name, const char* help, MetricType type, Labels labels) {
    MetricFamily* family = nullptr;
    for (MetricFamily& known : families_) {
      if (known.name == name) family = &known;
    }
    if (family == nullptr) family = &families_.emplace_back(MetricFamily{name, help, type, {}});
    ClientMetric& metric = family->metric.emplace_back();
    metric.label = std::move(labels);
    return metric;
  }

  std::vector<MetricFamily> families_;
};

template <class Words>
void addProgram(Families& all, const Program<Words>& program) {
  const Labels label = {{"program", program.name}};
  const bool up = program.fault().empty();
  all.gauge("tolmar_up", "1 while the program runs and updates its counters.", std::uint64_t{up}, label);
  if (!program.view) return;
  const Counters::ProgramState& state = program.view->program();
  all.gauge("tolmar_build_info", "The version of the program.", std::uint64_t{1},
            {{"program", program.name}, {"version", state.version}});
  all.gauge("tolmar_start_time_seconds", "When the program was started.",
            static_cast<double>(state.startWall) / 1e9, label);
  all.gauge("tolmar_silence_seconds", "Time since the program's last heartbeat, while it runs.",
            static_cast<double>(state.silence) / 1e9, label);
}

void addSegments(Families& all, const Counters::SegmentWords<std::uint64_t>& words,
                 const std::string& program, const std::string& table) {
  const Labels labels = {{"program", program}, {"table", table}};
  all.counter("tolmar_wakeups_total", "Wake-ups of the other program.", words.wakeups, labels);
  all.counter("tolmar_reader_retries_total", "Rows read again because they were being changed.",
              words.readerRetries, labels);
  all.counter("tolmar_log_overruns_total", "Times the change log has overrun the program.", words.logOverruns,
              labels);
  all.counter("tolmar_damage_reports_total", "Segments in which damage was detected.", words.damageReports,
              labels);
}

void addTable(Families& all, const Counters::AgentTableWords<std::uint64_t>& words, const std::string& name) {
  const Labels label = {{"table", name}};
  all.gauge("tolmar_table_capacity", "Rows that the table holds.", words.capacity, label);
  all.gauge("tolmar_table_used", "Rows that are used.", words.used, label);
  all.gauge("tolmar_table_high_water", "The most rows that were used.", words.highWater, label);
  constexpr std::array kTypes = {"insert", "modify", "delete"};
  for (std::size_t type = 0; type < kTypes.size(); ++type) {
    all.counter("tolmar_writes_total", "Updates written to the table.", words.writes[type],
                {{"table", name}, {"type", kTypes[type]}});
  }
  all.codes("tolmar_completions_total", "Answers of the hardware by code.", words.completions, name);
  all.counter("tolmar_capacity_refusals_total", "Insertions that found the table full.",
              words.capacityRefusals, label);
  all.counter("tolmar_timeouts_total", "Updates that the hardware did not answer in time.", words.timeouts,
              label);
  all.counter("tolmar_unexpected_completions_total", "Answers that no update was waiting for.",
              words.unexpectedCompletions, label);
  all.counter("tolmar_undos_total", "Updates undone.", words.undos, label);
  all.counter("tolmar_undos_refused_total", "Undos that the hardware has refused or not answered.",
              words.undosRefused, label);
  all.histogram("tolmar_answer_seconds", "Time from the write of an update to the hardware's answer.",
                words.answerTimes.buckets, label);
}

void addServer(Families& all, const Counters::ServerWords<std::uint64_t>& words) {
  all.counter("tolmar_server_requests_total", "Unary calls that have arrived.", words.requests);
  all.counter("tolmar_server_request_bytes_total", "Bytes of these calls.", words.requestBytes);
  all.counter("tolmar_server_rejections_total", "Calls answered with an error as a whole.", words.rejections);
  all.counter("tolmar_server_shortened_texts_total",
              "Error texts of updates cut to fit into the answer's trailer.", words.shortenedTexts);
  all.gauge("tolmar_server_requests_in_flight", "Calls without an answer.", words.requestsInFlight);
  all.gauge("tolmar_server_bytes_in_flight", "Bytes of calls in memory.", words.bytesInFlight);
  all.gauge("tolmar_server_batches_in_flight", "Batches of updates without an answer.",
            words.batchesInFlight);
  all.gauge("tolmar_server_streams", "Open streams of controllers.", words.streams);
  all.counter("tolmar_server_connections_total", "Connections that were accepted.", words.connections);
  all.counter("tolmar_server_connections_refused_total", "Connections that were refused.",
              words.connectionsRefused);
}

void addAgent(Families& all, const Counters::AgentCounts& words) {
  all.counter("tolmar_failures_total", "Updates not answered with success.", words.failures);
  all.counter("tolmar_unknown_completions_total", "Answers for handles of no entry.",
              words.unknownCompletions);
  all.gauge("tolmar_vrfs", "VRFs with references.", words.vrfs);
  addServer(all, words.server);
  for (std::size_t table = 0; table < words.tables.size(); ++table) {
    addTable(all, words.tables[table], tableNames()[table]);
    addSegments(all, words.tables[table].segments, "p4rt-agent", tableNames()[table]);
  }
}

void addHardware(Families& all, const Counters::HardwareCounts& words) {
  for (std::size_t table = 0; table < words.tables.size(); ++table) {
    const auto& counts = words.tables[table];
    const std::string& name = tableNames()[table];
    const Labels label = {{"table", name}};
    all.gauge("tolmar_hw_status_rows", "Rows of the status table.", counts.used, label);
    all.gauge("tolmar_hw_blocked_answers", "Answers that wait for room in the status table.", counts.blocked,
              label);
    all.counter("tolmar_hw_seen_total", "Changes of config rows that were seen.", counts.seen, label);
    all.counter("tolmar_hw_removals_total", "Answers to removals.", counts.removals, label);
    all.codes("tolmar_hw_answers_total", "Answers to rows by code.", counts.answers, name);
    all.histogram("tolmar_hw_answer_seconds", "Time from the change seen to its answer.",
                  counts.answerTimes.buckets, label);
    addSegments(all, counts.segments, "hw-agent", name);
  }
}

}  // namespace

std::string metricsText(const Programs& programs) {
  Families all;
  addProgram(all, programs.agent());
  addProgram(all, programs.hardware());
  if (const auto* words = programs.agent().words()) addAgent(all, *words);
  if (const auto* words = programs.hardware().words()) addHardware(all, *words);
  return all.text();
}

}  // namespace Ctl
