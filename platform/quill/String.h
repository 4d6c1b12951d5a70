#pragma once

#include <string>
#include <string_view>

namespace Quill {

using String = std::string;

/// The name of an entity: a type of its own, so that it is not confused with other strings.
class Name {
 public:
  Name() = default;
  explicit Name(std::string_view text) : text_(text) {}
  const String& stringValue() const { return text_; }
  friend bool operator==(const Name&, const Name&) = default;

 private:
  String text_;
};

}  // namespace Quill
