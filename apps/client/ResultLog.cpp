#include "apps/client/ResultLog.h"

#include <cerrno>
#include <nlohmann/json.hpp>

#include "cairn/Exception.h"

namespace Client {

namespace {
// The keys stay in the order in which they are added.
using Json = nlohmann::ordered_json;

std::string codeOf(const Outcome& outcome) { return nameOf(Outcome{outcome.code, 0, ""}); }
}  // namespace

ResultLog::ResultLog(const std::string& path) : path_(path), file_(path) {
  if (!file_) throw Cairn::SystemException("results " + path, errno);
}

void ResultLog::add(const std::string& script, const ScriptUpdate& update, const Outcome& outcome) {
  Json line = {{"script", script}, {"line", update.line}};
  if (update.table != nullptr) {
    line["update"] = verbOf(update.type);
    line["table"] = update.table->name;
    Json& key = line["key"] = Json::object();
    for (const FieldText& field : fieldsOf(*update.table, update.entry, Part::key))
      key[field.name] = field.value;
  }
  line["code"] = codeOf(outcome);
  line["hardwareCode"] = outcome.hardwareCode;
  line["message"] = outcome.message;
  line["expected"] = update.expectation.meets(outcome);
  file_ << line.dump(-1, ' ', false, Json::error_handler_t::replace) << '\n';
}

void ResultLog::flush() {
  if (!file_.flush()) throw Cairn::SystemException("results " + path_, errno);
}

}  // namespace Client
