#include "quill/TypeNode.h"

#include <cxxabi.h>

#include <algorithm>
#include <cstdlib>

namespace Quill {

namespace {

struct Registered {
  const TypeNode* node;          // not owned
  const Registrant* registrant;  // not owned; may be null
};

// Never destroyed: it may be used while static objects are destroyed.
std::vector<Registered>& registered() {
  static auto* const all = new std::vector<Registered>;
  return *all;
}

}  // namespace

std::string typeName(const std::type_info& type) {
  int status = 0;
  const std::unique_ptr<char, void (*)(void*)> name(
      abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), &std::free);
  return status == 0 ? name.get() : type.name();
}

GenericIterator::~GenericIterator() = default;

const Member* TypeNode::member(std::string_view memberName) const {
  const auto found = std::find_if(members.begin(), members.end(),
                                  [memberName](const Member& member) { return member.name == memberName; });
  if (found != members.end()) return &*found;
  return base == nullptr ? nullptr : base->member(memberName);
}

std::vector<const Member*> TypeNode::allMembers() const {
  std::vector<const Member*> all = base == nullptr ? std::vector<const Member*>() : base->allMembers();
  for (const Member& member : members) all.push_back(&member);
  return all;
}

void typeNodeIs(const TypeNode* node) { registered().push_back({node, Registrant::current()}); }

void typeNodeDelAll(const Registrant& registrant) {
  std::erase_if(registered(), [&](const Registered& entry) { return entry.registrant == &registrant; });
}

const TypeNode* typeNode(std::string_view name) {
  const auto found =
      std::ranges::find(registered(), name, [](const Registered& entry) { return entry.node->name; });
  return found == registered().end() ? nullptr : found->node;
}

std::vector<const TypeNode*> typeNodes() {
  std::vector<const TypeNode*> nodes;
  for (const Registered& entry : registered()) nodes.push_back(entry.node);
  return nodes;
}

const Registrant* typeNodeRegistrant(const TypeNode* node) {
  const auto found = std::ranges::find(registered(), node, &Registered::node);
  return found == registered().end() ? nullptr : found->registrant;
}

}  // namespace Quill
