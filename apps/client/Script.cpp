#include "apps/client/Script.h"

#include <fmt/format.h>

#include <algorithm>

#include "apps/process/CommandLine.h"
#include "cairn/Exception.h"

namespace Client {

namespace {

using p4::v1::Update;
using Process::numberIn;

/// Beyond this number of generated entries, a batch would be refused anyway.
constexpr std::uint64_t kMaxLoad = 1'000'000;

std::string got(std::string_view text) {
  return text.empty() ? ", got the end of the line" : ", got \"" + std::string(text) + "\"";
}

/// The words of a line up to a comment.
std::vector<std::string> wordsOf(std::string_view line) {
  constexpr std::string_view kBlanks = " \t\r";
  std::vector<std::string> words;
  while (true) {
    line.remove_prefix(std::min(line.find_first_not_of(kBlanks), line.size()));
    if (line.empty() || line[0] == '#') return words;
    words.emplace_back(line.substr(0, line.find_first_of(kBlanks)));
    line.remove_prefix(words.back().size());
  }
}

void expectEnd(const std::vector<std::string>& words, std::size_t count) {
  if (words.size() > count) throw Cairn::Exception("expected the end of the line" + got(words[count]));
}

/// Takes "expect CODE [N]" off the end of `words`.
Expectation takeExpectation(std::vector<std::string>& words) {
  const auto found = std::find(words.begin(), words.end(), "expect");
  if (found == words.end()) return {};
  const std::vector<std::string> after(found + 1, words.end());
  words.erase(found, words.end());
  const auto named = after.empty() ? std::nullopt : expectationOf(after[0]);
  if (!named)
    throw Cairn::Exception("expected one of " + outcomeNames() + got(after.empty() ? "" : after[0]));
  Expectation expectation = *named;
  if (after.size() == 1) return expectation;
  expectation.hardwareCode = numberIn<std::uint32_t>(after[1], 0, 65535);
  if (!expectation.hardwareCode || !expectation.ofHardware) {
    throw Cairn::Exception("expected the end of the line, or 0 to 65535 after HARDWARE_ERROR" +
                           got(after[1]));
  }
  expectEnd(after, 2);
  return expectation;
}

bool isUpdate(std::string_view verb) {
  return verb == "insert" || verb == "modify" || verb == "delete" || verb == "load";
}

class Parser {
 public:
  std::vector<ScriptStep> parse(std::string_view text) {
    while (!text.empty()) {
      const std::size_t end = text.find('\n');
      ++line_;
      readLine(text.substr(0, end));
      text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    if (batch_) {
      const std::string begin = std::to_string(batchLine_);
      add({line_, {}, {}, "expected \"end\" for line " + begin + ", got the end of the script"});
      steps_.push_back(std::move(*batch_));
    }
    return std::move(steps_);
  }

 private:
  void readLine(std::string_view text) {
    Line line{line_, wordsOf(text), {}, ""};
    if (line.words.empty()) return;
    try {
      // What follows "print" is free text, in which "expect" is a word like any other.
      if (line.words[0] != "print") line.expectation = takeExpectation(line.words);
      if (line.words.empty()) throw Cairn::Exception("expected an update before \"expect\"");
      readStatement(line, text);
    } catch (const Cairn::Exception& error) {
      line.problem = error.message();
      add(std::move(line));
    }
  }

  void readStatement(Line& line, std::string_view text) {
    const std::string& verb = line.words[0];
    if (isUpdate(verb)) return add(std::move(line));
    if (batch_ && verb != "end") {
      throw Cairn::Exception("expected insert, modify, delete, load or end in the batch of line " +
                             std::to_string(batchLine_) + got(verb));
    }
    if (verb == "batch") {
      const bool isRollback = line.words.size() > 1 && line.words[1] == "rollback";
      expectEnd(line.words, isRollback ? 2 : 1);
      batch_ = BatchStep{isRollback, {}};
      batchLine_ = line_;
    } else if (verb == "end") {
      expectEnd(line.words, 1);
      if (!batch_) throw Cairn::Exception("expected a statement, got \"end\" without \"batch\"");
      steps_.push_back(std::move(*batch_));
      batch_.reset();
    } else if (verb == "read") {
      steps_.push_back(ReadStep{line_, {line.words.begin() + 1, line.words.end()}});
    } else if (verb == "print") {
      text.remove_prefix(text.find(verb) + verb.size());
      text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
      steps_.push_back(PrintStep{std::string(text)});
    } else {
      throw Cairn::Exception("expected insert, modify, delete, load, batch, end, read or print" + got(verb));
    }
  }

  void add(Line line) {
    if (batch_) return batch_->lines.push_back(std::move(line));
    BatchStep own;
    own.lines.push_back(std::move(line));
    steps_.push_back(std::move(own));
  }

  int line_ = 0;
  int batchLine_ = 0;
  std::optional<BatchStep> batch_;
  std::vector<ScriptStep> steps_;
};

Update::Type typeOf(std::string_view verb) {
  for (const Update::Type type : {Update::INSERT, Update::MODIFY, Update::DELETE}) {
    if (verb == verbOf(type)) return type;
  }
  throw Cairn::Exception("expected insert, modify or delete" + got(verb));
}

const std::string& wordOf(const Line& line, std::size_t index, const char* expected) {
  if (index >= line.words.size()) throw Cairn::Exception(std::string("expected ") + expected + got(""));
  return line.words[index];
}

Part partOf(Update::Type type) { return type == Update::DELETE ? Part::key : Part::whole; }

/// Fills in the entry; `update` has what is known so far when that throws.
void fill(ScriptUpdate& update, std::span<const FieldText> fields) {
  update.fields = joined(fields);
  update.entry = entryOf(*update.table, fields, partOf(update.type));
}

void load(const Line& line, std::size_t at, const ScriptUpdate& begun, std::vector<ScriptUpdate>& updates) {
  const Range range = rangeOf(wordOf(line, at, "FIRST..LAST or FIRST..LAST/STEP"));
  const std::vector<FieldText> given = fieldsOf(std::span(line.words).subspan(at + 1));
  if (range.count() > kMaxLoad) {
    throw Cairn::Exception("expected at most " + std::to_string(kMaxLoad) + " entries, got more");
  }
  const std::size_t before = updates.size();
  try {
    for (std::uint64_t i = 0; i < range.count(); ++i) {
      const std::uint64_t number = range.first + i * range.step;
      fill(updates.emplace_back(begun), generatedFields(*begun.table, number, given, partOf(begun.type)));
    }
  } catch (const Cairn::Exception&) {
    updates.resize(before);
    throw;
  }
}

}  // namespace

std::vector<ScriptStep> parseScript(std::string_view text) { return Parser().parse(text); }

const char* verbOf(Update::Type type) {
  return type == Update::INSERT ? "insert" : type == Update::MODIFY ? "modify" : "delete";
}

void resolve(const Line& line, const Catalogue& catalogue, std::vector<ScriptUpdate>& updates) {
  ScriptUpdate update;
  update.line = line.number;
  update.expectation = line.expectation;
  try {
    if (!line.problem.empty()) throw Cairn::Exception(line.problem);
    const bool isLoad = wordOf(line, 0, "insert, modify, delete or load") == "load";
    const std::size_t at = isLoad ? 1 : 0;
    update.type = typeOf(wordOf(line, at, "insert, modify or delete"));
    update.table = &catalogue.table(wordOf(line, at + 1, "a table"));
    if (isLoad) return load(line, at + 2, update, updates);
    fill(update, fieldsOf(std::span(line.words).subspan(at + 2)));
  } catch (const Cairn::Exception& error) {
    update.problem = error.message();
    if (update.table == nullptr) update.fields = fmt::format("{}", fmt::join(line.words, " "));
  }
  updates.push_back(std::move(update));
}

Range rangeOf(std::string_view text) {
  const std::size_t dots = text.find("..");
  const std::size_t slash = std::min(text.find('/'), text.size());
  if (dots < slash) {
    constexpr std::uint64_t kMost = UINT64_MAX - 1;  // so that a count fits, too
    const auto first = numberIn<std::uint64_t>(text.substr(0, dots), 0, kMost);
    const auto last = numberIn<std::uint64_t>(text.substr(dots + 2, slash - dots - 2), 0, kMost);
    const auto step = slash == text.size() ? std::optional<std::uint64_t>(1)
                                           : numberIn<std::uint64_t>(text.substr(slash + 1), 1, kMost);
    if (first && last && step && *first <= *last) return {*first, *last, *step};
  }
  throw Cairn::Exception("expected FIRST..LAST or FIRST..LAST/STEP, got \"" + std::string(text) + "\"");
}

}  // namespace Client
