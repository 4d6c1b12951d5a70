#include "apps/p4/P4InfoDifference.h"

#include <fmt/format.h>
#include <google/protobuf/repeated_field.h>
#include <google/protobuf/util/message_differencer.h>

#include <algorithm>

namespace Wire {

namespace {

namespace Config = p4::config::v1;
using google::protobuf::RepeatedPtrField;

constexpr std::size_t kMaxText = 1000;

std::uint32_t idOf(const Config::Table& table) { return table.preamble().id(); }
std::uint32_t idOf(const Config::Action& action) { return action.preamble().id(); }
std::uint32_t idOf(const Config::MatchField& field) { return field.id(); }
std::uint32_t idOf(const Config::Action::Param& param) { return param.id(); }
std::uint32_t idOf(const Config::ActionRef& action) { return action.id(); }

template <class Element>
void sortById(RepeatedPtrField<Element>& elements) {
  std::stable_sort(elements.pointer_begin(), elements.pointer_end(),
                   [](const Element* a, const Element* b) { return idOf(*a) < idOf(*b); });
}

void normalise(Config::Table& table) {
  table.mutable_preamble()->clear_doc();
  for (Config::MatchField& field : *table.mutable_match_fields()) field.clear_doc();
  sortById(*table.mutable_match_fields());
  sortById(*table.mutable_action_refs());
}

void normalise(Config::Action& action) {
  action.mutable_preamble()->clear_doc();
  for (Config::Action::Param& param : *action.mutable_params()) param.clear_doc();
  sortById(*action.mutable_params());
}

/// Without documentation and with everything in the order of ids.
Config::P4Info normalised(Config::P4Info info) {
  if (info.has_pkg_info()) info.mutable_pkg_info()->clear_doc();
  for (Config::Table& table : *info.mutable_tables()) normalise(table);
  for (Config::Action& action : *info.mutable_actions()) normalise(action);
  sortById(*info.mutable_tables());
  sortById(*info.mutable_actions());
  return info;
}

/// The differences of two messages of one type as the library words them, "modified: size: 8 -> 9"; empty
/// when they are equal. Fields that this agent does not know count.
std::string differences(const google::protobuf::Message& ours, const google::protobuf::Message& theirs) {
  google::protobuf::util::MessageDifferencer differencer;
  std::string text;
  differencer.ReportDifferencesToString(&text);
  if (differencer.Compare(ours, theirs)) return {};
  std::replace(text.begin(), text.end(), '\n', ';');
  if (text.size() > kMaxText) text = text.substr(0, kMaxText) + "...";
  return text;
}

template <class Element>
const Element* withId(const RepeatedPtrField<Element>& elements, std::uint32_t id) {
  const auto found = std::find_if(elements.begin(), elements.end(),
                                  [id](const Element& element) { return idOf(element) == id; });
  return found == elements.end() ? nullptr : &*found;
}

/// What is wrong with the elements of one kind; empty when each is one of ours and occurs once.
template <class Element>
std::string differenceIn(const char* kind, const RepeatedPtrField<Element>& ours,
                         const RepeatedPtrField<Element>& theirs) {
  const Element* before = nullptr;
  for (const Element& element : theirs) {
    const std::uint32_t id = idOf(element);
    const Element* const own = withId(ours, id);
    if (own == nullptr) return fmt::format("{} {:#010x}: this pipeline has none with that id", kind, id);
    if (before != nullptr && idOf(*before) == id) {
      return fmt::format("{} {:#010x} ({}): expected once, got it twice", kind, id, own->preamble().name());
    }
    const std::string text = differences(*own, element);
    if (!text.empty()) return fmt::format("{} {:#010x} ({}): {}", kind, id, own->preamble().name(), text);
    before = &element;
  }
  return {};
}

/// Actions go with the tables that refer to them.
std::string differenceInUse(const Config::P4Info& ours, const Config::P4Info& theirs) {
  for (const Config::Table& table : ours.tables()) {
    const bool isThere = withId(theirs.tables(), idOf(table)) != nullptr;
    for (const Config::ActionRef& action : table.action_refs()) {
      if ((withId(theirs.actions(), action.id()) != nullptr) == isThere) continue;
      return fmt::format("action {:#010x}: expected {} table {}, got it {}", action.id(),
                         isThere ? "with" : "left out like", table.preamble().name(),
                         isThere ? "left out" : "without the table");
    }
  }
  return {};
}

/// Everything but tables and actions.
std::string differenceInRest(Config::P4Info ours, Config::P4Info theirs) {
  for (Config::P4Info* const info : {&ours, &theirs}) {
    info->clear_tables();
    info->clear_actions();
  }
  return differences(ours, theirs);
}

}  // namespace

std::optional<std::string> differenceBetween(const Config::P4Info& ours, const Config::P4Info& theirs,
                                             std::vector<bool>& tables) {
  const Config::P4Info own = normalised(ours);
  const Config::P4Info other = normalised(theirs);
  std::string text = differenceIn("table", own.tables(), other.tables());
  if (text.empty()) text = differenceIn("action", own.actions(), other.actions());
  if (text.empty()) text = differenceInUse(own, other);
  if (text.empty()) text = differenceInRest(own, other);
  if (!text.empty()) return text;
  tables.clear();
  for (const Config::Table& table : ours.tables())
    tables.push_back(withId(other.tables(), idOf(table)) != nullptr);
  return std::nullopt;
}

}  // namespace Wire
