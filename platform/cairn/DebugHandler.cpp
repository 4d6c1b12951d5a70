#include "cairn/DebugHandler.h"

#include <cstdio>

namespace Cairn {

void DebugHandler::log(int level, std::string_view source, int line, std::string_view function,
                       const std::string& text) const {
  if (sink_) {
    sink_({level, source, line, function, text});
    return;
  }
  std::fprintf(stderr, "%d %.*s:%d %.*s: %s\n", level, static_cast<int>(source.size()), source.data(), line,
               static_cast<int>(function.size()), function.data(), text.c_str());
}

}  // namespace Cairn
