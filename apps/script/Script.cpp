#include "apps/script/Script.h"

#include "apps/process/CommandLine.h"

namespace Agent {

namespace {

std::string got(std::string_view text) {
  return text.empty() ? ", got the end of the line" : ", got \"" + std::string(text) + "\"";
}

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

/// The words of a line up to a comment. Blanks inside braces do not separate.
std::vector<std::string_view> wordsOf(std::string_view line) {
  std::vector<std::string_view> words;
  std::size_t at = 0;
  while (true) {
    while (at < line.size() && isBlank(line[at])) ++at;
    if (at == line.size() || line[at] == '#') return words;
    const std::size_t begin = at;
    for (int depth = 0; at < line.size() && (depth > 0 || !isBlank(line[at])); ++at) {
      depth += line[at] == '{' ? 1 : line[at] == '}' && depth > 0 ? -1 : 0;
    }
    words.push_back(line.substr(begin, at - begin));
  }
}

std::optional<UpdateType> updateTypeOf(std::string_view word) {
  for (const UpdateType type : {UpdateType::insert, UpdateType::modify, UpdateType::remove}) {
    if (word == updateTypeName(type)) return type;
  }
  return std::nullopt;
}

/// Takes "expect CODE [N]" off the end of `words`. Throws ScriptError when what follows "expect" is no code.
Expectation takeExpectation(std::vector<std::string_view>& words) {
  Expectation expectation;
  for (std::size_t i = 0; i < words.size(); ++i) {
    if (words[i] != "expect") continue;
    const std::vector<std::string_view> after(words.begin() + static_cast<std::ptrdiff_t>(i) + 1,
                                              words.end());
    words.resize(i);
    const auto named = after.empty() ? std::nullopt : expectationOf(after[0]);
    if (!named) throw ScriptError("expected one of " + outcomeNames() + got(after.empty() ? "" : after[0]));
    expectation = *named;
    if (after.size() == 1) return expectation;
    expectation.hardwareCode = Process::numberIn<std::uint16_t>(after[1], 0, 65535);
    if (!expectation.hardwareCode || !expectation.ofHardware) {
      throw ScriptError("expected the end of the line, or 0 to 65535 after HARDWARE_ERROR" + got(after[1]));
    }
    if (after.size() > 2) throw ScriptError("expected the end of the line" + got(after[2]));
    return expectation;
  }
  return expectation;
}

class Parser {
 public:
  std::vector<Statement> parse(std::string_view text) {
    open_.push_back({Block::script, 0, {}, {}});
    while (!text.empty()) {
      const std::size_t end = text.find('\n');
      ++line_;
      readLine(text.substr(0, end));
      text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    while (open_.size() > 1) {
      add(MalformedStatement{
          "expected \"end\" for line " + std::to_string(open_.back().line) + ", got the end of the script",
          {}});
      closeBlock();
    }
    return std::move(open_.front().body);
  }

 private:
  static constexpr std::size_t kMaxDepth = 32;  // so that no script can exhaust the stack
  enum class Block { script, batch, loop, unreadableLoop };
  struct OpenBlock {
    Block kind;
    int line;
    std::vector<Statement> body;
    LoopStatement loop;
  };

  template <class What>
  void add(What what) {
    open_.back().body.push_back({line_, std::move(what)});
  }

  void readLine(std::string_view line) {
    std::vector<std::string_view> words = wordsOf(line);
    if (words.empty()) return;
    Expectation expectation;
    try {
      // What follows "print" is free text, in which "expect" is a word like any other.
      if (words[0] != "print") expectation = takeExpectation(words);
      if (words.empty()) throw ScriptError("expected an update before \"expect\"" + got(""));
      readStatement(words, line, expectation);
    } catch (const ScriptError& error) {
      add(MalformedStatement{error.what(), expectation});
    }
  }

  void readStatement(const std::vector<std::string_view>& words, std::string_view line,
                     const Expectation& expectation) {
    const std::string_view verb = words[0];
    if (const auto type = updateTypeOf(verb)) {
      readUpdate(*type, words, expectation);
    } else if (verb == "for") {
      readLoop(words);
    } else if (verb == "end") {
      if (open_.size() == 1)
        throw ScriptError("expected a statement, got \"end\" without \"batch\" or \"for\"");
      closeBlock();
      expectEnd(words, 1);
    } else if (verb == "batch") {
      notInBatch(verb);
      open_.push_back({Block::batch, line_, {}, {}});
      expectEnd(words, 1);
    } else if (verb == "print") {
      notInBatch(verb);
      const std::size_t begin =
          std::min(line.find_first_not_of(" \t", line.find(verb) + verb.size()), line.size());
      add(PrintStatement{Template::parse(line.substr(begin), variables_)});
    } else if (verb == "show") {
      notInBatch(verb);
      if (words.size() < 2) throw ScriptError("expected a table name" + got(""));
      expectEnd(words, 2);
      add(ShowStatement{std::string(words[1])});
    } else if (verb == "cleanup") {
      notInBatch(verb);
      expectEnd(words, 1);
      add(CleanupStatement{});
    } else {
      throw ScriptError("expected insert, modify, delete, batch, for, end, print, show or cleanup" +
                        got(verb));
    }
  }

  void readUpdate(UpdateType type, const std::vector<std::string_view>& words,
                  const Expectation& expectation) {
    if (words.size() < 2) throw ScriptError("expected a table name" + got(""));
    UpdateStatement update{type, std::string(words[1]), {}, expectation};
    for (std::size_t i = 2; i < words.size(); ++i) {
      const std::size_t equals = words[i].find('=');
      if (equals == std::string_view::npos || equals == 0)
        throw ScriptError("expected field=value" + got(words[i]));
      update.fields.push_back({std::string(words[i].substr(0, equals)),
                               Template::parse(words[i].substr(equals + 1), variables_)});
    }
    add(std::move(update));
  }

  /// A loop whose header cannot be read still has a body and an end: they are read and left out.
  void readLoop(const std::vector<std::string_view>& words) {
    LoopStatement loop;
    const std::string_view bounds = words.size() > 3 ? words[3] : std::string_view();
    const std::size_t dots = bounds.find("..");
    try {
      if (open_.size() > kMaxDepth) {
        throw ScriptError("expected at most " + std::to_string(kMaxDepth) +
                          " blocks inside each other, got more");
      }
      if (words.size() != 4 || words[2] != "in" || dots == std::string_view::npos) {
        throw ScriptError("expected \"for VARIABLE in FIRST..LAST\", got " + std::to_string(words.size()) +
                          " words");
      }
      loop.first = Expression::parse(bounds.substr(0, dots), variables_);
      loop.last = Expression::parse(bounds.substr(dots + 2), variables_);
    } catch (const ScriptError& error) {
      add(MalformedStatement{error.what(), {}});
      variables_.emplace_back(words.size() > 1 ? words[1] : "");
      open_.push_back({Block::unreadableLoop, line_, {}, {}});
      return;
    }
    variables_.emplace_back(words[1]);
    open_.push_back({Block::loop, line_, {}, std::move(loop)});
  }

  void closeBlock() {
    OpenBlock block = std::move(open_.back());
    open_.pop_back();
    std::vector<Statement>& outer = open_.back().body;
    if (block.kind == Block::batch) outer.push_back({block.line, BatchStatement{std::move(block.body)}});
    if (block.kind == Block::loop || block.kind == Block::unreadableLoop) variables_.pop_back();
    if (block.kind == Block::loop) {
      block.loop.body = std::move(block.body);
      outer.push_back({block.line, std::move(block.loop)});
    }
  }

  void notInBatch(std::string_view verb) const {
    for (const OpenBlock& block : open_) {
      if (block.kind != Block::batch) continue;
      throw ScriptError("expected insert, modify, delete, for or end in the batch of line " +
                        std::to_string(block.line) + got(verb));
    }
  }
  static void expectEnd(const std::vector<std::string_view>& words, std::size_t count) {
    if (words.size() > count) throw ScriptError("expected the end of the line" + got(words[count]));
  }

  int line_ = 0;
  std::vector<OpenBlock> open_;
  VariableNames variables_;
};

}  // namespace

std::vector<Statement> parseScript(std::string_view text) { return Parser().parse(text); }

}  // namespace Agent
