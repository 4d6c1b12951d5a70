#include "lumen/LmClass.h"

#include <algorithm>
#include <array>

#include "lumen/LmErrors.h"
#include "rows/Encoding.h"

namespace Lumen {

namespace {

struct TypeInfo {
  std::string_view word;
  len_t width;
  bool variable;
};

template <class T>
constexpr TypeInfo typeInfoOf() {
  return {Encoding<T>::kTypeWord, Encoding<T>::kWidth, Encoding<T>::kVariable};
}

// In the order of ColumnType.
constexpr std::array kTypes{typeInfoOf<bool>(),          typeInfoOf<std::uint8_t>(),
                            typeInfoOf<std::uint16_t>(), typeInfoOf<std::uint32_t>(),
                            typeInfoOf<std::uint64_t>(), typeInfoOf<EthAddr>(),
                            typeInfoOf<IpGenAddr>()};

/// Parses a descriptor piece by piece; a missing piece is an error.
class DescriptorReader {
 public:
  DescriptorReader(std::string_view className, std::string_view text) : className_(className), text_(text) {}

  void expect(std::string_view piece) {
    if (!accept(piece)) fail(piece);
  }
  void expectEnd() const {
    if (position_ != text_.size()) fail("the end");
  }
  bool accept(std::string_view piece) {
    if (!text_.substr(position_).starts_with(piece)) return false;
    position_ += piece.size();
    return true;
  }
  std::string_view quoted() {
    expect("\"");
    const std::size_t end = text_.find('"', position_);
    if (end == std::string_view::npos) fail("\"");
    const std::string_view word = text_.substr(position_, end - position_);
    position_ = end + 1;
    return word;
  }

 private:
  [[noreturn]] void fail(std::string_view piece) const {
    throw LmMetadataError("descriptor of \"" + std::string(className_) + "\": expected " +
                          std::string(piece) + " at position " + std::to_string(position_) +
                          ", got: " + std::string(text_.substr(position_, 20)));
  }

  std::string_view className_;
  std::string_view text_;
  std::size_t position_ = 0;
};

}  // namespace

LmClass::LmClass(std::string_view name, std::uint16_t oid, const LmClassMetadata& metadata)
    : name_(name), oid_(oid), descriptor_(metadata.descriptor) {
  DescriptorReader reader(name_, descriptor_);
  reader.expect("{");
  do {
    const std::string_view columnName = reader.quoted();
    reader.expect(":");
    const std::size_t number = columns_.size();
    const bool isKey = number >= metadata.keyFirst && number - metadata.keyFirst < metadata.keyCount;
    addColumn(columnName, reader.quoted(), isKey);
  } while (reader.accept(", "));
  reader.expect("}");
  reader.expectEnd();
  if (metadata.keyFirst > columns_.size() || metadata.keyCount > columns_.size() - metadata.keyFirst) {
    throw LmMetadataError("key of \"" + name_ + "\": expected columns up to " +
                          std::to_string(columns_.size()) + ", got " + std::to_string(metadata.keyCount) +
                          " from number " + std::to_string(metadata.keyFirst) + " on");
  }
}

void LmClass::addColumn(std::string_view columnName, std::string_view typeWord, bool isKey) {
  if (column(columnName) != nullptr) {
    throw LmMetadataError("descriptor of \"" + name_ + "\": a second column \"" + std::string(columnName) +
                          "\"");
  }
  const auto type = std::find_if(kTypes.begin(), kTypes.end(),
                                 [&](const TypeInfo& known) { return known.word == typeWord; });
  if (type == kTypes.end()) {
    throw LmMetadataError("descriptor of \"" + name_ + "\": column \"" + std::string(columnName) +
                          "\" has the unknown type \"" + std::string(typeWord) + "\"");
  }
  if (fixedLength_ + std::size_t{type->width} > kMaxRowLength) {
    throw LmMetadataError("descriptor of \"" + name_ + "\": more than 65535 bytes of columns");
  }
  if (type->variable) variableColumns_.push_back(fixedLength_);
  columns_.push_back(
      {std::string(columnName), static_cast<ColumnType>(type - kTypes.begin()), fixedLength_, isKey});
  fixedLength_ = static_cast<len_t>(fixedLength_ + type->width);
}

const LmColumn* LmClass::column(std::string_view columnName) const noexcept {
  const auto found = std::find_if(columns_.begin(), columns_.end(),
                                  [&](const LmColumn& known) { return known.name == columnName; });
  return found != columns_.end() ? &*found : nullptr;
}

}  // namespace Lumen
