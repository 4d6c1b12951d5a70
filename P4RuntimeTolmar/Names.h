// The names of types, shared-memory tables and row tables. Each form is composed here and nowhere parsed
// back.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>

namespace TolmarHwLib {

/// Text composed at compile time, filled up with zeros.
class FixedText {
 public:
  /// A constant expression as long as the pieces have at most 63 characters.
  constexpr FixedText(std::initializer_list<std::string_view> pieces) {
    std::size_t length = 0;
    for (const std::string_view piece : pieces) {
      for (const char c : piece) text_[length++] = c;
    }
    if (length == sizeof text_) throw "text too long";
  }
  constexpr operator std::string_view() const { return text_; }

 private:
  char text_[64]{};
};

/// The name of a type of the hardware library; `kind` is the table kind's name.
constexpr FixedText typeName(std::string_view kind, std::string_view role) {
  return {"TolmarHwLib::", kind, role};
}

/// Where the output tables are mounted; the prefix of their paths.
inline constexpr std::string_view kOutputTablePrefix = "p4runtime/outputTables/tolmar/";

/// The paths of a table's two sides. `prefix` ends in "/", `table` is the short name, such as "l3IifTH3".
inline std::string configPath(std::string_view prefix, std::string_view table) {
  return std::string(prefix).append(table).append("Table/config");
}
inline std::string statusPath(std::string_view prefix, std::string_view table) {
  return std::string(prefix).append(table).append("Table/status");
}

/// The name under which a config table is registered with the row database.
inline std::string rowTableName(std::string_view table) {
  std::string name = std::string("Lumen").append(table).append("ConfigTable");
  char& first = name[5];
  if (first >= 'a' && first <= 'z') first = static_cast<char>(first - 'a' + 'A');  // ASCII in every locale
  return name;
}

}  // namespace TolmarHwLib
