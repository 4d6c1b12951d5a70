#pragma once

#include <cstdint>
#include <string_view>

namespace Agent {

/// What an update does to its entry.
enum class UpdateType : std::uint8_t { insert, modify, remove };

/// "insert", "modify" or "delete".
constexpr std::string_view updateTypeName(UpdateType type) {
  return type == UpdateType::insert ? "insert" : type == UpdateType::modify ? "modify" : "delete";
}

}  // namespace Agent
