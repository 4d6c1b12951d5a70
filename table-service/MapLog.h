#pragma once

#include <memory>
#include <optional>
#include <string>

#include "cairn/DebugHandler.h"
#include "vesta/files/RootPath.h"
#include "vesta/segment/Damage.h"

namespace Vesta {

/// What a map logs of its table, and the path that names the table there. Empty until the first attach.
class MapLog {
 public:
  void pathIs(const RootPath& path) { path_ = path; }
  void handlerIs(std::shared_ptr<const Cairn::DebugHandler> handler) { handler_ = std::move(handler); }
  const std::shared_ptr<const Cairn::DebugHandler>& handler() const noexcept { return handler_; }
  /// An assertion failure before the first attach.
  const RootPath& path() const;

  /// Logs that corruption was detected. Returns the text.
  std::string corruption(const std::string& message) const;
  void detached() const;
  void ready(bool ready, bool notifying) const;
  void error(int line, const char* function, const std::string& text) const;
  /// Writes the corruption report; a failure is logged.
  void report(const std::string& message, const DamagedPlaces& places) const;

 private:
  std::string pathText() const { return path_ ? path_->text() : std::string(); }

  std::optional<RootPath> path_;
  std::shared_ptr<const Cairn::DebugHandler> handler_;
};

}  // namespace Vesta
