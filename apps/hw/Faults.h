#pragma once

#include <span>
#include <string_view>
#include <variant>
#include <vector>

#include "P4RuntimeTolmar/Schema.h"
#include "apps/hw/Fault.h"

namespace HwAgent {

/// Which entries of one table fail to be programmed, and with what code.
template <class Config>
class Faults {
 public:
  Faults() = default;
  /// Takes the faults of `table`.
  Faults(std::string_view table, std::span<const Fault> faults, const FailEvery& every) : every_(every) {
    replace(table, faults);
  }

  /// From now on those of `table` in `faults` alone; every N-th entry fails as before.
  void replace(std::string_view table, std::span<const Fault> faults) {
    std::vector<Pattern> patterns;
    for (const Fault& fault : faults) {
      if (fault.table == table) patterns.push_back(patternOf(fault));
    }
    patterns_ = std::move(patterns);
  }

  /// The code of the next answer, which is for `config`: 0 when it is to be programmed.
  std::uint16_t codeFor(const Config& config) const {
    for (const Pattern& pattern : patterns_) {
      if (matches(pattern, config)) return pattern.code;
    }
    return every_.every != 0 && (answers_ + 1) % every_.every == 0 ? every_.code : std::uint16_t{0};
  }
  /// An answer has been given.
  void answered() { ++answers_; }

 private:
  struct Pattern {
    Config config{};
    unsigned columns = 0;  // one bit for each column that counts
    std::uint16_t code = 0;
  };

  /// Calls `visit(column, bit)` for each column.
  template <class Visit>
  static void eachColumn(const Visit& visit) {
    unsigned bit = 1;
    TolmarHwLib::forEachColumn(TolmarHwLib::RowSchema<Config>::columns, [&](const auto& column) {
      visit(column, bit);
      bit <<= 1u;
    });
  }

  static Pattern patternOf(const Fault& fault) {
    Pattern pattern{.code = fault.code};
    for (const auto& named : fault.columns) {
      eachColumn([&](const auto& column, unsigned bit) {
        if (column.name != named.first) return;
        using Value = typename std::remove_cvref_t<decltype(column)>::Type;
        pattern.config.*column.member = std::get<Value>(named.second);
        pattern.columns |= bit;
      });
    }
    return pattern;
  }

  static bool matches(const Pattern& pattern, const Config& config) {
    bool equal = true;
    eachColumn([&](const auto& column, unsigned bit) {
      if ((pattern.columns & bit) != 0 && !(pattern.config.*column.member == config.*column.member)) {
        equal = false;
      }
    });
    return equal;
  }

  std::vector<Pattern> patterns_;
  FailEvery every_;
  std::uint64_t answers_ = 0;
};

}  // namespace HwAgent
