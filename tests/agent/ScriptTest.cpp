#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "apps/script/ScriptCursor.h"

namespace {

using namespace Agent;

std::string textOf(const ScriptUpdate& update) {
  std::string text = std::to_string(update.line) + " ";
  if (!update.malformed.empty()) {
    text += "! " + update.malformed;
  } else {
    text.append(updateTypeName(update.type)).append(" ").append(update.table);
    for (const auto& field : update.fields)
      text.append(" ").append(field.name).append("=").append(field.value);
  }
  if (update.expectation.code != Code::ok) text += " ~ " + update.expectation.toString();
  return text;
}

/// The steps of a script as texts: a batch is its updates joined by " | ".
std::vector<std::string> steps(const std::string& script, std::size_t limit = 50) {
  const std::vector<Statement> statements = parseScript(script);
  ScriptCursor cursor(statements);
  std::vector<std::string> texts;
  while (texts.size() < limit) {
    const ScriptStep step = cursor.next();
    if (std::holds_alternative<EndStep>(step)) return texts;
    if (const auto* batch = std::get_if<BatchStep>(&step)) {
      std::string text;
      for (const ScriptUpdate& update : batch->updates) text += (text.empty() ? "" : " | ") + textOf(update);
      texts.push_back(text);
    } else if (const auto* print = std::get_if<PrintStep>(&step)) {
      texts.push_back("print:" + print->text);
    } else if (const auto* show = std::get_if<ShowStep>(&step)) {
      texts.push_back("show:" + show->table);
    } else {
      texts.emplace_back("cleanup");
    }
  }
  return texts;
}

struct Case {
  const char* name;
  const char* script;
  std::vector<std::string> steps;
};
void PrintTo(const Case& c, std::ostream* out) { *out << c.name; }

class ScriptSteps : public testing::TestWithParam<Case> {};

TEST_P(ScriptSteps, AreAsWritten) { EXPECT_EQ(steps(GetParam().script), GetParam().steps); }

const Case kReadable[] = {
    {"Updates_CommentsAndBlankLines",
     "# heading\n\n  insert t a=1\tb=2 # note\r\nmodify t a=1\ndelete t a=1",
     {"3 insert t a=1 b=2", "4 modify t a=1", "5 delete t a=1"}},
    {"Expectations",
     "insert t a=1 expect ok\ninsert t a=1 expect already_exists\ninsert t a=2 expect HARDWARE_ERROR 7\n",
     {"1 insert t a=1", "2 insert t a=1 ~ ALREADY_EXISTS", "3 insert t a=2 ~ HARDWARE_ERROR 7"}},
    {"Batch_IsOneStep",
     "batch\ninsert t a=1\ninsert t a=2\nend\ninsert t a=3\n",
     {"2 insert t a=1 | 3 insert t a=2", "5 insert t a=3"}},
    {"EmptyBatch_IsNoStep", "batch\nend\nprint done\n", {"print:done"}},
    {"LoopOutsideBatch_IsAStepARound",
     "for i in 3..5\ninsert t a={i}\nend\n",
     {"2 insert t a=3", "2 insert t a=4", "2 insert t a=5"}},
    {"LoopInBatch_NestedInnerSeesOuter",
     "batch\nfor i in 0..1\nfor i in i..1\ninsert t a={i}\nend\ndelete t a={i}\nend\nend\n",
     {"4 insert t a=0 | 4 insert t a=1 | 6 delete t a=0 | 4 insert t a=1 | 6 delete t a=1"}},
    {"BatchInLoop_IsABatchARound",
     "for i in 1..2\nbatch\ninsert t a={i}\ninsert t b={i}\nend\nend\n",
     {"3 insert t a=1 | 4 insert t b=1", "3 insert t a=2 | 4 insert t b=2"}},
    {"LoopsThatRunNever",
     "for i in 1..0\ninsert t a={i}\nend\nbatch\nfor i in 1..0\ninsert t a={i}\nend\nend\n",
     {}},
    {"LoopVariableEndsWithItsLoop",
     "for i in 1..1\nend\ninsert t a={i}\n",
     {"3 ! expected a loop variable, got \"i\""}},
    {"Expressions_PrecedenceAndFormats",
     "for i in 10..10\ninsert t a={2+3*i} b={(2+3)*i} c={7-2-1} d={i/3}.{i%3} e={i:x} f={i*26:04x} g={i:04} "
     "h=fe80::{i : 02x}\nend\n",
     {"2 ! expected a format such as x, 04x or 03, got \" 02x\""}},
    {"Expressions_Formats",
     "for i in 10..10\ninsert t a={2+3*i} b={(2 + 3) * i} c={7-2-1} d={i/3}.{i%3} e={i:x} f={i*26:04x} "
     "g={i:04}\nend\n",
     {"2 insert t a=32 b=50 c=4 d=3.1 e=a f=0104 g=0010"}},
    {"OtherStatements",
     "print a {1+1} expect ok\nshow t\ncleanup\n",
     {"print:a 2 expect ok", "show:t", "cleanup"}},
};
INSTANTIATE_TEST_SUITE_P(Readable, ScriptSteps, testing::ValuesIn(kReadable),
                         [](const auto& tested) { return std::string(tested.param.name); });

const Case kMalformed[] = {
    {"Verb_RestOfBatchStays",
     "batch\ninsert t a=1\ninsrt t a=2 expect INVALID_ARGUMENT\ninsert t a=3\nend\n",
     {"2 insert t a=1 | 3 ! expected insert, modify, delete, batch, for, end, print, show or cleanup, got "
      "\"insrt\" ~ "
      "INVALID_ARGUMENT | 4 insert t a=3"}},
    {"Table", "insert\n", {"1 ! expected a table name, got the end of the line"}},
    {"Field",
     "insert t a\ninsert t =1\n",
     {"1 ! expected field=value, got \"a\"", "2 ! expected field=value, got \"=1\""}},
    {"Expectation",
     "insert t a=1 expect maybe\n",
     {"1 ! expected one of OK, ALREADY_EXISTS, NOT_FOUND, RESOURCE_EXHAUSTED, INVALID_ARGUMENT, "
      "HARDWARE_ERROR, "
      "DEADLINE_EXCEEDED, INTERNAL, got \"maybe\""}},
    {"ExpectedCode",
     "insert t a=1 expect HARDWARE_ERROR 70000\ninsert t a=1 expect ok 3\n",
     {"1 ! expected the end of the line, or 0 to 65535 after HARDWARE_ERROR, got \"70000\"",
      "2 ! expected the end of the line, or 0 to 65535 after HARDWARE_ERROR, got \"3\""}},
    {"ExpectationAlone",
     "expect ok\n",
     {"1 ! expected an update before \"expect\", got the end of the line"}},
    {"End",
     "end\ninsert t a=1\n",
     {"1 ! expected a statement, got \"end\" without \"batch\" or \"for\"", "2 insert t a=1"}},
    {"OpenBlocks",
     "batch\nfor i in 0..0\ninsert t a=1\n",
     {"3 insert t a=1 | 3 ! expected \"end\" for line 2, got the end of the script | 3 ! expected \"end\" "
      "for line 1, got "
      "the end of the script"}},
    {"LoopHeader_BodyIsLeftOut",
     "for i 0..3\ninsert t a={i}\nend\ninsert t a=1\n",
     {"1 ! expected \"for VARIABLE in FIRST..LAST\", got 3 words", "4 insert t a=1"}},
    {"LoopBounds",
     "for i in 0..x\ninsert t a={i}\nend\nfor i in 0..99999999\ninsert t a={i}\nend\n",
     {"1 ! expected a loop variable, got \"x\"",
      "4 ! expected a loop of at most 1000000 rounds, got 0..99999999"}},
    {"PrintInBatch",
     "batch\nprint x\nend\n",
     {"2 ! expected insert, modify, delete, for or end in the batch of line 1, got \"print\""}},
    {"DivisionByZero",
     "for i in 0..1\ninsert t a={4/i}\nend\n",
     {"2 ! expected a divisor other than 0", "2 insert t a=4"}},
    {"Overflow",
     "insert t a={9223372036854775807+1}\ninsert t a={9223372036854775808}\n",
     {"1 ! expected a value of at most 64 bits",
      "2 ! expected a number of at most 64 bits, a loop variable or \"(\", got \"9223372036854775808\" in "
      "the expression "
      "\"9223372036854775808\""}},
    {"Braces",
     "insert t a={1\ninsert t a=1}\ninsert t a={}\ninsert t a={1:5y}\n",
     {"1 ! expected \"{\", an expression and \"}\", got \"{1\"",
      "2 ! expected \"{\", an expression and \"}\", got \"}\"",
      "3 ! expected a number of at most 64 bits, a loop variable or \"(\", got \"\" in the expression \"\"",
      "4 ! expected a format such as x, 04x or 03, got \"5y\""}},
};
INSTANTIATE_TEST_SUITE_P(Malformed, ScriptSteps, testing::ValuesIn(kMalformed),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST(ScriptLimits, EndlessScriptsAreCutShort) {
  const std::vector<Statement> script = parseScript("batch\nfor i in 1..200000\ninsert t a={i}\nend\nend\n");
  ScriptCursor cursor(script);
  const ScriptStep step = cursor.next();
  const std::vector<ScriptUpdate>& updates = std::get<BatchStep>(step).updates;
  ASSERT_EQ(updates.size(), 100'001u);
  EXPECT_EQ(textOf(updates[99'999]), "3 insert t a=100000");
  EXPECT_EQ(textOf(updates.back()), "3 ! expected at most 100000 updates in a batch, got more");
}

TEST(ScriptLimits, DeepParenthesesAreRefused) {
  const std::string deep(100'000, '(');
  EXPECT_THROW(Template::parse("{" + deep + "}", {}), ScriptError);
}

}  // namespace
