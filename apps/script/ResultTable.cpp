#include "apps/script/ResultTable.h"

#include <array>
#include <cstdio>
#include <map>

#include "apps/process/Log.h"

namespace Agent {

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

std::string padded(std::string text, std::size_t width) {
  text = cut(std::move(text), width);
  text.resize(width, ' ');
  return text;
}

std::string fieldsOf(const ScriptUpdate& update) {
  std::string text;
  for (const ScriptUpdate::Field& field : update.fields) {
    if (!text.empty()) text += ' ';
    text.append(field.name).append("=").append(field.value);
  }
  return text;
}

std::string inSeconds(double seconds) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.2f s", seconds);
  return text.data();
}

std::string row(const std::string& line, const std::string& type, const std::string& table,
                const std::string& entry) {
  return padded(line, 7) + padded(type, 8) + padded(table, 18) + padded(entry, 50) + " ";
}
}  // namespace

void ResultTable::progress(std::size_t answered, std::size_t updates) {
  if (updates <= kShortBatch) return;
  if (style_ == Style::terminal) {
    const std::size_t done = answered * 30 / updates;
    output_("\r  [" + std::string(done, '#') + std::string(30 - done, '.') + "] " + std::to_string(answered) +
            " of " + std::to_string(updates) + " answered ");
    progressShown_ = true;
  } else if (answered * 4 / updates != progressQuarter_) {
    progressQuarter_ = answered * 4 / updates;
    output_("  " + std::to_string(answered) + " of " + std::to_string(updates) + " answered\n");
  }
}

void ResultTable::batch(const std::vector<ScriptUpdate>& updates, const std::vector<UpdateStatus>& results,
                        double seconds) {
  clearProgress();
  header();
  const bool whole = updates.size() <= kShortBatch;
  std::size_t failuresLeft = kFailures;
  std::size_t sampleLeft = kSample;
  for (std::size_t i = 0; i < updates.size(); ++i) {
    const bool expected = updates[i].expectation.meets(results[i]);
    const bool failed = !results[i].ok();
    ++totals_.updates;
    totals_.answered += results[i].code == StatusCode::deadlineExceeded ? 0u : 1u;
    totals_.failedAsExpected += failed && expected ? 1u : 0u;
    totals_.unexpected += expected ? 0u : 1u;
    std::size_t& left = failed || !expected ? failuresLeft : sampleLeft;
    if (!whole && left == 0) continue;
    update(updates[i], results[i]);
    --left;
  }
  if (updates.size() > 1) summary(updates, results, seconds);
}

void ResultTable::header() {
  if (headerShown_) return;
  headerShown_ = true;
  output_(coloured(kDim, row("line", "update", "table", "entry") + "result") + "\n");
}

void ResultTable::update(const ScriptUpdate& update, const UpdateStatus& result) {
  const bool expected = update.expectation.meets(result);
  const bool readable = update.malformed.empty();
  std::string text = row(
      std::to_string(update.line), readable ? std::string(updateTypeName(update.type)) : "-",
      readable ? printable(update.table) : "-", readable ? printable(fieldsOf(update)) : "(malformed line)");
  text += coloured(!expected ? kRed : result.ok() ? kGreen : kYellow, textOf(result));
  if (!result.message.empty()) text += ": " + cut(printable(result.message), kLongestMessage);
  if (!expected) text += coloured(kRed, joined({" (expected ", update.expectation.toString(), ")"}));
  output_(text + "\n");
}

void ResultTable::summary(const std::vector<ScriptUpdate>& updates, const std::vector<UpdateStatus>& results,
                          double seconds) {
  std::map<std::string_view, std::size_t> counts;
  std::size_t unexpected = 0;
  for (std::size_t i = 0; i < results.size(); ++i) {
    ++counts[results[i].hardwareCode != 0 ? kHardwareError : statusCodeName(results[i].code)];
    unexpected += updates[i].expectation.meets(results[i]) ? 0u : 1u;
  }
  std::string text = joined({"  batch of ", std::to_string(updates.size()), ":"});
  for (const auto& [name, count] : counts) text += joined({" ", std::to_string(count), " ", name, ","});
  text += unexpected == 0 ? " all as expected, "
                          : joined({" ", std::to_string(unexpected), " NOT as expected, "});
  output_(coloured(unexpected == 0 ? kDim : kRed, text + inSeconds(seconds)) + "\n");
}

void ResultTable::text(std::string_view line) {
  clearProgress();
  output_(printable(line) + "\n");
}

void ResultTable::totals(double seconds, std::size_t failedSteps) {
  clearProgress();
  const std::size_t unexpected = totals_.unexpected + failedSteps;
  output_(coloured(unexpected == 0 ? kGreen : kRed, unexpected == 0 ? "passed: " : "failed: ") +
          std::to_string(totals_.updates) + " updates, " + std::to_string(totals_.answered) + " answered, " +
          std::to_string(totals_.failedAsExpected) + " failed as scripted, " +
          std::to_string(totals_.updates - totals_.answered) + " lost, " + std::to_string(unexpected) +
          " not as expected, " + inSeconds(seconds) + "\n");
}

void ResultTable::clearProgress() {
  if (progressShown_) output_("\r\033[K");
  progressShown_ = false;
  progressQuarter_ = 0;
}

std::string ResultTable::coloured(const char* colour, const std::string& text) const {
  return style_ == Style::terminal ? colour + text + kPlain : text;
}

}  // namespace Agent
