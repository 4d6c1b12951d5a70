#include "apps/hw/FaultOption.h"

#include "apps/process/CommandLine.h"
#include "cairn/Exception.h"

namespace HwAgent {

namespace {

[[noreturn]] void refuse(const char* option, const std::string& expected, std::string_view got) {
  throw Cairn::Exception(std::string(option) + ": expected " + expected + ", got \"" + std::string(got) +
                         "\"");
}

std::uint16_t codeOf(const char* option, std::string_view text) {
  const auto code = Process::numberIn<std::uint16_t>(text, 1, 65535);
  if (!code) refuse(option, "a code from 1 to 65535", text);
  return *code;
}

}  // namespace

FailOption readFail(std::string_view text) {
  // IPv6 addresses have colons of their own: the table ends at the first, the code begins at the last.
  const std::size_t first = text.find(':');
  const std::size_t last = text.rfind(':');
  if (first == last) refuse("--fail", "TABLE:FIELD=VALUE[,FIELD=VALUE...]:CODE", text);
  FailOption option{std::string(text.substr(0, first)), {}, codeOf("--fail", text.substr(last + 1))};
  std::string_view fields = text.substr(first + 1, last - first - 1);
  if (fields.empty()) refuse("--fail", "at least one FIELD=VALUE", text);
  for (bool more = true; more;) {
    const std::size_t comma = fields.find(',');
    const std::string_view field = fields.substr(0, comma);
    const std::size_t equals = field.find('=');
    if (equals == std::string_view::npos || equals == 0) refuse("--fail", "FIELD=VALUE", field);
    option.fields.emplace_back(field.substr(0, equals), field.substr(equals + 1));
    more = comma != std::string_view::npos;
    if (more) fields.remove_prefix(comma + 1);
  }
  return option;
}

FailEveryOption readFailEvery(std::string_view text) {
  const std::size_t colon = text.find(':');
  if (colon == std::string_view::npos) refuse("--fail-every", "N:CODE", text);
  const auto every = Process::numberIn<std::uint64_t>(text.substr(0, colon), 1, ~std::uint64_t{0});
  if (!every) refuse("--fail-every", "a number above 0", text.substr(0, colon));
  return {*every, codeOf("--fail-every", text.substr(colon + 1))};
}

}  // namespace HwAgent
