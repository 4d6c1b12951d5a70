#include "apps/client/Load.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <mutex>
#include <thread>

#include "apps/client/Progress.h"
#include "apps/client/Script.h"
#include "apps/process/Log.h"
#include "cairn/Exception.h"

namespace Client {

namespace {

constexpr std::size_t kFailures = 20;  // printed

/// Hands out the range batch by batch and collects what became of them, on several threads.
class Loading {
 public:
  Loading(Connection& connection, const Catalogue& catalogue, const std::vector<std::string>& words,
          std::size_t batch)
      : connection_(connection), catalogue_(catalogue), batch_(batch) {
    line_.words = {"load"};
    line_.words.insert(line_.words.end(), words.begin(), words.end());
    if (words.size() < 3)
      throw Cairn::Exception("expected VERB TABLE FIRST..LAST, got " + std::to_string(words.size()) +
                             " words");
    range_ = rangeOf(words[2]);
    generate(0, 0);  // whether it can be followed
  }

  std::uint64_t count() const { return range_.count(); }

  /// Until nothing is left. What it throws has ended this thread's part.
  void run(Progress& progress) {
    while (true) {
      const std::uint64_t first = next_.fetch_add(batch_);
      if (first >= count()) return;
      const std::vector<ScriptUpdate> updates = generate(first, std::min(first + batch_, count()) - 1);
      std::vector<p4::v1::Update> sent;
      for (const ScriptUpdate& update : updates) {
        p4::v1::Update& message = sent.emplace_back();
        message.set_type(update.type);
        *message.mutable_entity()->mutable_table_entry() = update.entry;
      }
      collect(updates, connection_.write(std::move(sent), Connection::Atomicity::continueOnError));
      progress.answered(updates.size());
    }
  }

  bool print(double seconds, const ResultTable::Output& output) const {
    for (const std::string& failure : failures_) output(failure + "\n");
    std::string text = fmt::format("{} updates:", count());
    for (const auto& [name, times] : outcomes_) text += fmt::format(" {} {},", times, name);
    output(fmt::format("{} {:.2f} s, {:.0f} updates/s\n", text, seconds,
                       static_cast<double>(count()) / seconds));
    return outcomes_.size() == 1 && outcomes_.count(nameOf(Outcome{})) == 1;
  }

 private:
  /// The updates with these places in the range.
  std::vector<ScriptUpdate> generate(std::uint64_t first, std::uint64_t last) const {
    Line line = line_;
    line.words[3] = fmt::format("{}..{}/{}", range_.first + first * range_.step,
                                range_.first + last * range_.step, range_.step);
    std::vector<ScriptUpdate> updates;
    resolve(line, catalogue_, updates);
    if (!updates[0].problem.empty()) throw Cairn::Exception(updates[0].problem);
    return updates;
  }

  void collect(const std::vector<ScriptUpdate>& updates, const std::vector<Outcome>& outcomes) {
    const std::lock_guard lock(mutex_);
    for (std::size_t i = 0; i < updates.size(); ++i) {
      ++outcomes_[nameOf(outcomes[i])];
      if (outcomes[i].ok() || failures_.size() == kFailures) continue;
      failures_.push_back(fmt::format("{} {} {}: {}: {}", verbOf(updates[i].type), updates[i].table->name,
                                      updates[i].fields, textOf(outcomes[i]),
                                      Process::printable(outcomes[i].message)));
    }
  }

  Connection& connection_;
  const Catalogue& catalogue_;
  const std::uint64_t batch_;
  Line line_;
  Range range_;
  std::atomic<std::uint64_t> next_{0};
  std::mutex mutex_;
  std::map<std::string, std::size_t> outcomes_;
  std::vector<std::string> failures_;
};

}  // namespace

bool load(Connection& connection, const Catalogue& catalogue, const std::vector<std::string>& words,
          const LoadSettings& settings, const ResultTable::Output& output) {
  const auto begin = std::chrono::steady_clock::now();
  Loading loading(connection, catalogue, words, settings.batch);
  {
    Progress progress(loading.count());
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < settings.inFlight; ++i) {
      threads.emplace_back([&] { loading.run(progress); });
    }
    for (std::thread& thread : threads) thread.join();
  }
  return loading.print(std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count(),
                       output);
}

}  // namespace Client
