#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "apps/script/ScriptCursor.h"

namespace {

using namespace Agent;
using Strings = std::vector<std::string>;

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
Strings steps(const std::string& script, std::size_t limit = 50) {
  const std::vector<Statement> statements = parseScript(script);
  ScriptCursor cursor(statements);
  Strings texts;
  while (texts.size() < limit) {
    const ScriptStep step = cursor.next();
    if (std::holds_alternative<EndStep>(step)) break;
    std::string& text = texts.emplace_back();
    if (const auto* print = std::get_if<PrintStep>(&step)) text = "print:" + print->text;
    if (const auto* show = std::get_if<ShowStep>(&step)) text = "show:" + show->table;
    if (std::holds_alternative<CleanupStep>(step)) text = "cleanup";
    const auto* const batch = std::get_if<BatchStep>(&step);
    if (batch == nullptr) continue;
    for (const ScriptUpdate& update : batch->updates) text += (text.empty() ? "" : " | ") + textOf(update);
  }
  return texts;
}

struct Case {
  const char* name;
  const char* script;
  std::vector<std::string> steps;
};

const Case kCases[] = {
    {"Lines",
     "# heading\n\n  insert t a=1\tb=2 # note\r\nmodify t a=1 expect ok\ndelete t a=1 expect not_found\n"
     "insert t a=2 expect HARDWARE_ERROR 7\nprint a {1+1} expect ok\nshow t\ncleanup",
     {"3 insert t a=1 b=2", "4 modify t a=1", "5 delete t a=1 ~ NOT_FOUND",
      "6 insert t a=2 ~ HARDWARE_ERROR 7", "print:a 2 expect ok", "show:t", "cleanup"}},
    {"LoopOutsideBatch_IsAStepARoundAndAnEmptyBatchNone",
     "batch\nend\nfor i in 3..4\ninsert t a={i}\nend\nfor i in 1..2\nbatch\ninsert t a={i}\ninsert t "
     "b={i}\nend\nend\n",
     {"4 insert t a=3", "4 insert t a=4", "8 insert t a=1 | 9 insert t b=1",
      "8 insert t a=2 | 9 insert t b=2"}},
    {"LoopInBatch_NestedInnerSeesOuter",
     "batch\nfor i in 0..1\nfor i in i..1\ninsert t a={i}\nend\ndelete t a={i}\nend\nend\n",
     {"4 insert t a=0 | 4 insert t a=1 | 6 delete t a=0 | 4 insert t a=1 | 6 delete t a=1"}},
    {"LoopsThatRunNever_AndOnesVariableAfterItsEnd",
     "for i in 1..0\ninsert t a={i}\nend\nbatch\nfor i in 1..0\ninsert t a={i}\nend\nend\nfor i in 1..1\n"
     "end\ninsert t a={i}\n",
     {"11 ! expected a loop variable, got \"i\""}},
    {"Expressions",
     "for i in 10..10\ninsert t a={2+3*i} b={(2 + 3) * i} c={7-2-1} d={i/3}.{i%3} e={i:x} f={i*26:04x} "
     "g={i:04}\nend\n",
     {"2 insert t a=32 b=50 c=4 d=3.1 e=a f=0104 g=0010"}},
    {"Malformed_Lines",
     "insrt t a=2 expect INVALID_ARGUMENT\ninsert\ninsert t a\ninsert t a=1 expect maybe\n"
     "insert t a=1 expect HARDWARE_ERROR 70000\nexpect ok\nend\n",
     {"1 ! expected insert, modify, delete, batch, for, end, print, show or cleanup, got \"insrt\" ~ "
      "INVALID_ARGUMENT",
      "2 ! expected a table name, got the end of the line", "3 ! expected field=value, got \"a\"",
      "4 ! expected one of OK, ALREADY_EXISTS, NOT_FOUND, RESOURCE_EXHAUSTED, INVALID_ARGUMENT, "
      "HARDWARE_ERROR, DEADLINE_EXCEEDED, INTERNAL, got \"maybe\"",
      "5 ! expected the end of the line, or 0 to 65535 after HARDWARE_ERROR, got \"70000\"",
      "6 ! expected an update before \"expect\", got the end of the line",
      "7 ! expected a statement, got \"end\" without \"batch\" or \"for\""}},
    {"Malformed_InBatchTheRestStaysAndEndsAreMissed",
     "batch\nprint x\nfor i in 0..0\ninsert t a=3\n",
     {"2 ! expected insert, modify, delete, for or end in the batch of line 1, got \"print\" | 4 insert t "
      "a=3 "
      "| 4 ! expected \"end\" for line 3, got the end of the script | 4 ! expected \"end\" for line 1, got "
      "the "
      "end of the script"}},
    {"Malformed_LoopsAreLeftOut",
     "for i 0..3\ninsert t a={i}\nend\nfor i in 0..x\ninsert t a={i}\nend\nfor i in 0..99999999\ninsert t "
     "a={i}\nend\ninsert t a=1\n",
     {"1 ! expected \"for VARIABLE in FIRST..LAST\", got 3 words", "4 ! expected a loop variable, got \"x\"",
      "7 ! expected a loop of at most 1000000 rounds, got 0..99999999", "10 insert t a=1"}},
    {"Malformed_Values",
     "for i in 0..1\ninsert t a={4/i}\nend\ninsert t a={9223372036854775807+1}\n"
     "insert t a={9223372036854775808}\ninsert t a={1\ninsert t a=1}\ninsert t a={1:5y}\n",
     {"2 ! expected a divisor other than 0", "2 insert t a=4", "4 ! expected a value of at most 64 bits",
      "5 ! expected a number of at most 64 bits, a loop variable or \"(\", got \"9223372036854775808\" in "
      "the expression \"9223372036854775808\"",
      "6 ! expected \"{\", an expression and \"}\", got \"{1\"",
      "7 ! expected \"{\", an expression and \"}\", got \"}\"",
      "8 ! expected a format such as x, 04x or 03, got \"5y\""}},
};

TEST(Script, StepsAreAsWritten) {
  for (const Case& tested : kCases) EXPECT_EQ(steps(tested.script), tested.steps) << tested.name;
}

std::string repeated(int times, const std::string& text) {
  std::string all;
  for (int i = 0; i < times; ++i) all += text;
  return all;
}

TEST(ScriptLimits, EndlessScriptsAreCutShort) {
  const std::vector<Statement> script = parseScript("batch\nfor i in 1..200000\ninsert t a={i}\nend\nend\n");
  const ScriptStep step = ScriptCursor(script).next();
  const std::vector<ScriptUpdate>& updates = std::get<BatchStep>(step).updates;
  ASSERT_EQ(updates.size(), 100'001u);
  EXPECT_EQ(textOf(updates.back()), "3 ! expected at most 100000 updates in a batch, got more");

  const std::string idle = repeated(3, "for i in 1..1000000\n") + repeated(3, "end\n");
  EXPECT_EQ(steps(idle, 2), Strings(2, "")) << "a batch without updates: time for other work";
  EXPECT_TRUE(steps("batch\n" + idle + "end\n").at(0).ends_with("rounds in a batch, got more"));
}

TEST(ScriptLimits, DeepNestingIsRefused) {
  EXPECT_THROW(Template::parse(std::string("{").append(repeated(100'000, "(")), {}), ScriptError);
  EXPECT_EQ(steps(repeated(100'000, "for i in 1..1\n"), 1),
            Strings{"33 ! expected at most 32 blocks inside each other, got more"});
}

}  // namespace
