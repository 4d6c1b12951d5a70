#include "quill/TraceHandle.h"

#include <cstdio>
#include <map>

#include "cairn/Assert.h"

namespace Quill {

namespace {

struct Registry {
  std::map<std::string, std::uint32_t, std::less<>> levels;  // by handle name; "*" means all
  std::vector<std::pair<const std::string*, std::atomic<std::uint32_t>*>> handles;
  TraceHandle::Sink sink;

  std::uint32_t levelsOf(std::string_view name) const {
    const auto all = levels.find("*");
    const auto own = levels.find(name);
    return (all == levels.end() ? 0 : all->second) | (own == levels.end() ? 0 : own->second);
  }
};

// Never destroyed: handles of other libraries may be destroyed later.
Registry& registry() {
  static auto* const all = new Registry;
  return *all;
}

}  // namespace

TraceHandle::TraceHandle(std::string_view name) : name_(name) {
  levels_ = registry().levelsOf(name_);
  registry().handles.emplace_back(&name_, &levels_);
}

TraceHandle::~TraceHandle() {
  std::erase_if(registry().handles, [this](const auto& entry) { return entry.second == &levels_; });
}

void TraceHandle::trace(int level, std::string_view source, int line, std::string_view function,
                        std::string_view text) const {
  if (registry().sink) {
    registry().sink({name_, level, source, line, function, text});
    return;
  }
  const auto width = [](std::string_view s) { return static_cast<int>(s.size()); };
  std::fprintf(stderr, "%s/%d %.*s:%d %.*s: %.*s\n", name_.c_str(), level, width(source), source.data(), line,
               width(function), function.data(), width(text), text.data());
}

void TraceHandle::levelIs(std::string_view name, int level, bool on) {
  Cairn::require(level >= 0 && level < 32, "trace level is 0 to 31", "levelIs");
  auto& levels = registry().levels[std::string(name)];
  const std::uint32_t bit = 1u << level;
  levels = on ? levels | bit : levels & ~bit;
  for (const auto& [handleName, handleLevels] : registry().handles) {
    *handleLevels = registry().levelsOf(*handleName);
  }
}

std::vector<std::string> TraceHandle::names() {
  std::vector<std::string> names;
  for (const auto& [name, levels] : registry().handles) names.push_back(*name);
  return names;
}

void TraceHandle::sinkIs(Sink sink) { registry().sink = std::move(sink); }

}  // namespace Quill
