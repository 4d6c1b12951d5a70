#include "apps/client/ResultTable.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <map>

#include "apps/process/Log.h"

namespace Client {

using Process::printable;

namespace {
constexpr std::size_t kLongestMessage = 400;
constexpr const char* kGreen = "\033[32m";
constexpr const char* kYellow = "\033[33m";
constexpr const char* kRed = "\033[1;31m";
constexpr const char* kDim = "\033[2m";
constexpr const char* kPlain = "\033[0m";

std::string joined(std::initializer_list<std::string_view> pieces) {
  std::string text;
  for (const std::string_view piece : pieces) text += piece;
  return text;
}

std::string cut(std::string text, std::size_t width) {
  return text.size() > width ? text.substr(0, width - 2) + ".." : text;
}

/// Never cut: a failed entry can be identified.
std::string padded(std::string text, std::size_t width) {
  text.resize(std::max(width, text.size() + 1), ' ');
  return text;
}

std::string inSeconds(double seconds) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.2f s", seconds);
  return text.data();
}

std::string row(const std::string& line, const std::string& type, const std::string& table,
                const std::string& entry) {
  return padded(line, 7) + padded(type, 8) + padded(table, 18) + padded(entry, 51);
}
}  // namespace

void ResultTable::batch(const std::vector<ScriptUpdate>& updates, const std::vector<Outcome>& outcomes,
                        double seconds) {
  header();
  const bool whole = updates.size() <= kShortBatch;
  std::size_t failuresLeft = kFailures;
  std::size_t sampleLeft = kSample;
  for (std::size_t i = 0; i < updates.size(); ++i) {
    const bool expected = updates[i].expectation.meets(outcomes[i]);
    const bool failed = !outcomes[i].ok();
    ++totals_.updates;
    totals_.answered += outcomes[i].isLost() ? 0u : 1u;
    totals_.failedAsExpected += failed && expected ? 1u : 0u;
    totals_.unexpected += expected ? 0u : 1u;
    std::size_t& left = failed || !expected ? failuresLeft : sampleLeft;
    if (!whole && left == 0) continue;
    update(updates[i], outcomes[i]);
    --left;
  }
  if (updates.size() > 1) summary(updates, outcomes, seconds);
}

void ResultTable::header() {
  if (headerShown_) return;
  headerShown_ = true;
  output_(coloured(kDim, row("line", "update", "table", "entry") + "result") + "\n");
}

void ResultTable::update(const ScriptUpdate& update, const Outcome& outcome) {
  const bool expected = update.expectation.meets(outcome);
  std::string text = row(std::to_string(update.line), update.table ? verbOf(update.type) : "-",
                         update.table ? printable(update.table->name) : "-", printable(update.fields));
  text += coloured(!expected ? kRed : outcome.ok() ? kGreen : kYellow, textOf(outcome));
  if (!outcome.message.empty()) text += ": " + cut(printable(outcome.message), kLongestMessage);
  if (!expected) text += coloured(kRed, joined({" (expected ", update.expectation.toString(), ")"}));
  output_(text + "\n");
}

void ResultTable::summary(const std::vector<ScriptUpdate>& updates, const std::vector<Outcome>& outcomes,
                          double seconds) {
  std::map<std::string, std::size_t> counts;
  std::size_t unexpected = 0;
  for (std::size_t i = 0; i < outcomes.size(); ++i) {
    ++counts[nameOf(outcomes[i])];
    unexpected += updates[i].expectation.meets(outcomes[i]) ? 0u : 1u;
  }
  std::string text = joined({"  batch of ", std::to_string(updates.size()), ":"});
  for (const auto& [name, count] : counts) text += joined({" ", std::to_string(count), " ", name, ","});
  text += unexpected == 0 ? " all as expected, "
                          : joined({" ", std::to_string(unexpected), " NOT as expected, "});
  output_(coloured(unexpected == 0 ? kDim : kRed, text + inSeconds(seconds)) + "\n");
}

void ResultTable::text(std::string_view line) { output_(printable(line) + "\n"); }

void ResultTable::totals(double seconds, std::size_t failedReads) {
  const std::size_t unexpected = totals_.unexpected + failedReads;
  output_(coloured(unexpected == 0 ? kGreen : kRed, unexpected == 0 ? "passed: " : "failed: ") +
          std::to_string(totals_.updates) + " updates, " + std::to_string(totals_.answered) + " answered, " +
          std::to_string(totals_.failedAsExpected) + " failed as scripted, " +
          std::to_string(totals_.updates - totals_.answered) + " lost, " + std::to_string(unexpected) +
          " not as expected, " + inSeconds(seconds) + "\n");
}

std::string ResultTable::coloured(const char* colour, const std::string& text) const {
  return style_ == Style::coloured ? colour + text + kPlain : text;
}

}  // namespace Client
