#pragma once

#include <fstream>
#include <string>

#include "apps/client/Script.h"

namespace Client {

/// The results as JSON, one line for each update:
///
///   {"script":"x.script","line":7,"update":"insert","table":"l3IifTH3","key":{"l3Iif":"99"},
///    "code":"INTERNAL","hardwareCode":7,"message":"...","expected":true}
///
/// Update, table and key are left out as far as the line could not be read. `code` is LOST without an answer.
class ResultLog {
 public:
  /// Replaces the file. Throws Cairn::SystemException.
  explicit ResultLog(const std::string& path);

  /// Throws Cairn::SystemException when the file cannot be written.
  void add(const std::string& script, const ScriptUpdate& update, const Outcome& outcome);
  void flush();

 private:
  std::string path_;
  std::ofstream file_;
};

}  // namespace Client
