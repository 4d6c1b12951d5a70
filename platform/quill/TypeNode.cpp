#include "quill/TypeNode.h"

#include <algorithm>

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
