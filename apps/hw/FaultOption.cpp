#include "apps/hw/FaultOption.h"

#include <charconv>

#include "cairn/Exception.h"

namespace HwAgent {

namespace {

template <class Number>
Number numberOf(std::string_view option, std::string_view name, std::string_view text) {
  Number number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error == std::errc{} && end == text.data() + text.size() && number > 0) return number;
  throw Cairn::Exception(std::string(option) + ": expected a " + std::string(name) + " above 0, got \"" +
                         std::string(text) + "\"");
}

[[noreturn]] void refuse(std::string_view expected, std::string_view text) {
  throw Cairn::Exception("--fail: expected " + std::string(expected) + ", got \"" + std::string(text) + "\"");
}

}  // namespace

FailOption readFail(std::string_view text) {
  // IPv6 addresses have colons of their own: the table ends at the first, the code begins at the last.
  const std::size_t first = text.find(':');
  const std::size_t last = text.rfind(':');
  if (first == last) refuse("TABLE:FIELD=VALUE[,FIELD=VALUE...]:CODE", text);
  FailOption option{std::string(text.substr(0, first)),
                    {},
                    numberOf<std::uint16_t>("--fail", "code", text.substr(last + 1))};
  std::string_view fields = text.substr(first + 1, last - first - 1);
  while (!fields.empty()) {
    const std::string_view field = fields.substr(0, fields.find(','));
    const std::size_t equals = field.find('=');
    if (equals == std::string_view::npos || equals == 0) refuse("FIELD=VALUE", field);
    option.fields.emplace_back(field.substr(0, equals), field.substr(equals + 1));
    fields.remove_prefix(std::min(fields.size(), field.size() + 1));
  }
  if (option.fields.empty()) refuse("at least one FIELD=VALUE", text);
  return option;
}

FailEveryOption readFailEvery(std::string_view text) {
  const std::size_t colon = text.find(':');
  if (colon == std::string_view::npos) {
    throw Cairn::Exception("--fail-every: expected N:CODE, got \"" + std::string(text) + "\"");
  }
  return {numberOf<std::uint64_t>("--fail-every", "number", text.substr(0, colon)),
          numberOf<std::uint16_t>("--fail-every", "code", text.substr(colon + 1))};
}

}  // namespace HwAgent
