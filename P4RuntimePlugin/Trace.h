// One call for both traces: the fast trace, which always gets a record, and a named trace handle, for which
// the text is built only if the level is enabled.
#pragma once

#include <locale>
#include <sstream>
#include <string>
#include <string_view>

#include "P4RuntimeTolmar/Schema.h"
#include "quill/TraceHandle.h"
#include "skein/Skein.h"

namespace P4RuntimeTolmar {

/// One tracing place in the code; a static constant. Every value in the format is a "%s".
class TracePoint {
 public:
  constexpr TracePoint(int level, std::string_view source, int line, std::string_view function,
                       std::string_view format)
      : site_(source, static_cast<std::uint32_t>(line), function, format),
        source_(source),
        function_(function),
        format_(format),
        line_(line),
        level_(level) {}

  /// Traces `values` on both; on `handle` only if the level of this point is enabled.
  template <class... Values>
  void operator()(const Quill::TraceHandle& handle, const Values&... values) const {
    Skein::message(site_, values...);
    if (handle.enabled(level_)) [[unlikely]]
      toHandle(handle, values...);
  }

 private:
  template <class... Values>
  [[gnu::noinline, gnu::cold]] void toHandle(const Quill::TraceHandle& handle,
                                             const Values&... values) const {
    std::ostringstream text;
    text.imbue(std::locale::classic());  // filters expect plain digits in every locale
    std::string_view rest = format_;
    (writeNext(text, rest, values), ...);
    text << rest;
    handle.trace(level_, source_, line_, function_, text.str());
  }

  /// The format up to its next "%s", then the value.
  template <class Value>
  static void writeNext(std::ostream& out, std::string_view& rest, const Value& value) {
    const std::size_t at = rest.find("%s");
    out << rest.substr(0, at) << value;
    rest.remove_prefix(at == rest.npos ? rest.size() : at + 2);
  }

  Skein::Site site_;
  std::string_view source_;
  std::string_view function_;
  std::string_view format_;
  int line_;
  int level_;
};

}  // namespace P4RuntimeTolmar

namespace TolmarHwLib {

/// Keys as values of the fast trace: their text, written into the record without an allocation.
template <KeyRecord Key>
void traceText(Skein::Message& message, const Key& key) noexcept {
  std::string_view separator;
  forEachColumn(RowSchema<Key>::columns, [&](const auto& column) {
    message.put(separator);
    traceText(message, key.*column.member);
    separator = " ";
  });
}

}  // namespace TolmarHwLib
