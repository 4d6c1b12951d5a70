#include "table-service/MapLog.h"

#include <exception>

#include "cairn/Assert.h"
#include "vesta/files/CorruptionReport.h"

namespace Vesta {

const RootPath& MapLog::path() const {
  Cairn::require(path_.has_value(), "table is not attached", "VestaMap");
  return *path_;
}

std::string MapLog::corruption(const std::string& message) const {
  std::string text = "VestaMap::corruptionDetected() " + pathText() + " " + message;
  error(383, "corruptionDetected", text);
  return text;
}

void MapLog::detached() const { error(324, "detach", "VestaMap::detach() " + pathText()); }

void MapLog::ready(bool ready, bool notifying) const {
  if (!handler_ || !handler_->wants(Cairn::DebugHandler::kDebugFlag)) return;
  handler_->log(5, "VestaMap", 352, "collectionReadyIs",
                std::string("VestaMap::collectionReadyIs() ready:") + (ready ? "1" : "0") +
                    " notifying:" + (notifying ? "1" : "0"));
}

void MapLog::error(int line, const char* function, const std::string& text) const {
  if (!handler_ || !handler_->wants(Cairn::DebugHandler::kErrorFlag)) return;
  handler_->log(1, "VestaMap", line, function, text);
}

void MapLog::report(const std::string& message, const DamagedPlaces& places) const {
  try {
    writeCorruptionReport(*handler_, path(), message, places);
  } catch (const std::exception& failure) {
    error(0, "corruptionDetected", failure.what());
  }
}

}  // namespace Vesta
