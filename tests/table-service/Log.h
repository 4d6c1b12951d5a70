#pragma once

#include <memory>
#include <string>
#include <vector>

#include "cairn/DebugHandler.h"

namespace VestaTest {

/// A debug handler that keeps what it is told.
struct Log {
  Log() {
    handler->sinkIs([this](const Cairn::DebugHandler::Message& message) {
      const auto source = std::string(message.source) + ":" + std::to_string(message.line);
      lines.push_back(std::to_string(message.level) + " " + source + " " + std::string(message.function) +
                      " " + std::string(message.text));
    });
  }
  std::shared_ptr<Cairn::DebugHandler> handler = std::make_shared<Cairn::DebugHandler>();
  std::vector<std::string> lines;
};

}  // namespace VestaTest
