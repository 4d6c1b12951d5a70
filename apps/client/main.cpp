// The client's process.

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <optional>

#include "apps/client/Options.h"
#include "apps/client/ScriptRun.h"
#include "apps/process/Log.h"
#include "cairn/Exception.h"

namespace {

using namespace Client;

struct Script {
  std::string name;
  std::string text;
};

Script readScript(const std::string& path) {
  const std::string name = path == "-" ? "standard input" : path;
  std::FILE* const file = path == "-" ? stdin : std::fopen(path.c_str(), "re");
  if (file == nullptr) throw Cairn::SystemException("script " + name, errno);
  std::string text;
  std::array<char, 65536> bytes;
  while (const std::size_t length = std::fread(bytes.data(), 1, bytes.size(), file)) {
    text.append(bytes.data(), length);
  }
  const int error = std::ferror(file) != 0 ? errno : 0;
  if (file != stdin) std::fclose(file);
  if (error != 0) throw Cairn::SystemException("script " + name, error);
  return {name, std::move(text)};
}

void print(std::string_view text) { std::fwrite(text.data(), 1, text.size(), stdout); }
void printAtOnce(std::string_view text) {
  print(text);
  std::fflush(stdout);
}

bool run(Connection& connection, const Catalogue& catalogue, const Options& options,
         const std::vector<Script>& scripts) {
  std::optional<ResultLog> log;
  if (!options.results.empty()) log.emplace(options.results);
  const auto style = options.colour ? ResultTable::Style::coloured : ResultTable::Style::plain;
  ScriptRun scriptRun(connection, catalogue, printAtOnce, style, log ? &*log : nullptr);
  bool asExpected = true;
  for (const Script& script : scripts) {
    printAtOnce("== " + script.name + "\n");
    asExpected = scriptRun.run(script.name, script.text) && asExpected;
  }
  return asExpected;
}

bool writeOne(Connection& connection, const Catalogue& catalogue, const std::vector<std::string>& words) {
  std::vector<ScriptUpdate> updates;
  resolve({0, words, {}, ""}, catalogue, updates);
  if (!updates[0].problem.empty()) throw Cairn::Exception(updates[0].problem);
  p4::v1::Update message;
  message.set_type(updates[0].type);
  *message.mutable_entity()->mutable_table_entry() = updates[0].entry;
  const Outcome outcome = connection.write({message}, Connection::Atomicity::continueOnError)[0];
  print(textOf(outcome) + (outcome.ok() ? "" : ": " + Process::printable(outcome.message)) + "\n");
  return outcome.ok();
}

bool follow(const Options& options) {
  std::vector<Script> scripts;  // all read before anything is sent
  if (options.command == "run") {
    for (const std::string& path : options.words) scripts.push_back(readScript(path));
  }
  Connection connection(options.target);
  const Catalogue catalogue(connection.p4Info());
  if (options.command == "read") {
    printEntries(connection, catalogue, options.words, print);
    return true;
  }
  connection.becomePrimary();
  if (options.command == "run") return run(connection, catalogue, options, scripts);
  if (options.command == "write") return writeOne(connection, catalogue, options.words);
  return load(connection, catalogue, options.words, options.load, print);
}

}  // namespace

int main(int count, char** arguments) {
  std::signal(SIGPIPE, SIG_IGN);
  Options options;
  return Process::run(
      "p4rt-client", kHelp, [&] { return readOptions(count, arguments, options); },
      [&] { return follow(options); });
}
