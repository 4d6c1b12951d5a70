#pragma once

#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <vector>

#include "P4RuntimeTolmar/Schema.h"
#include "apps/hw/Options.h"
#include "cairn/Exception.h"
#include "lumen/LmErrors.h"
#include "lumen/LumenDB.h"
#include "lumen/RowText.h"

namespace HwAgent {

/// Which entries of one table fail to be programmed, and with what code.
template <class Config>
class Faults {
 public:
  using Key = typename TolmarHwLib::RowSchema<Config>::Key;

  Faults() = default;
  /// Takes the options that name `table`. Throws Cairn::Exception for a field that is not part of the key and
  /// a value that does not fit.
  Faults(std::string_view table, const std::vector<FailOption>& fails, const FailEveryOption& every)
      : every_(every) {
    for (const FailOption& fail : fails) {
      if (fail.table == table) patterns_.push_back(patternOf(fail));
    }
  }

  /// The code of the next answer, which is for `key`: 0 when it is to be programmed.
  std::uint16_t codeFor(const Key& key) const {
    for (const Pattern& pattern : patterns_) {
      if (matches(pattern, key)) return pattern.code;
    }
    return every_.every != 0 && (answers_ + 1) % every_.every == 0 ? every_.code : std::uint16_t{0};
  }
  /// An answer has been given.
  void answered() { ++answers_; }

 private:
  static constexpr auto& kColumns = TolmarHwLib::RowSchema<Key>::columns;

  struct Pattern {
    Key key{};
    unsigned fields = 0;  // one bit for each key column that counts
    std::uint16_t code = 0;
  };

  /// Calls `visit(column, bit)` for each key column.
  template <class Visit>
  static void eachColumn(const Visit& visit) {
    std::apply(
        [&visit](const auto&... column) {
          unsigned bit = 1;
          ((visit(column, bit), bit <<= 1u), ...);
        },
        kColumns);
  }

  static Pattern patternOf(const FailOption& fail) {
    constexpr std::string_view kRowType = TolmarHwLib::RowSchema<Config>::rowTypeName;
    Lumen::LumenDB::metadataIs(kRowType);
    Pattern pattern{.code = fail.code};
    for (const auto& [name, text] : fail.fields) {
      const Lumen::LmColumn* const field = Lumen::LumenDB::lmClass(kRowType)->column(name);
      if (field == nullptr || !field->isKey) {
        throw Cairn::Exception("--fail: expected a key field of " + fail.table + ", got \"" + name + "\"");
      }
      try {
        const Lumen::ColumnValue value = Lumen::parseColumn(*field, text);
        eachColumn([&, &name = name](const auto& column, unsigned bit) {
          using Value = std::remove_cvref_t<decltype(pattern.key.*column.member)>;
          if (column.name != name) return;
          pattern.key.*column.member = std::get<Value>(value);
          pattern.fields |= bit;
        });
      } catch (const Lumen::LmTextError& error) {
        throw Cairn::Exception("--fail: " + error.message());
      }
    }
    return pattern;
  }

  static bool matches(const Pattern& pattern, const Key& key) {
    bool equal = true;
    eachColumn([&](const auto& column, unsigned bit) {
      if ((pattern.fields & bit) != 0 && !(pattern.key.*column.member == key.*column.member)) equal = false;
    });
    return equal;
  }

  std::vector<Pattern> patterns_;
  FailEveryOption every_;
  std::uint64_t answers_ = 0;
};

}  // namespace HwAgent
