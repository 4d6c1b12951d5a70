#include "quill/TypeNode.h"

#include <algorithm>

namespace Quill {

namespace {

// Never destroyed: libraries take their descriptors out while static objects end.
std::vector<const TypeNode*>& nodes() {
  static auto* const all = new std::vector<const TypeNode*>;
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

void typeNodeIs(const TypeNode* node) { nodes().push_back(node); }

void typeNodeDel(const TypeNode* node) { std::erase(nodes(), node); }

const TypeNode* typeNode(std::string_view name) {
  const auto found = std::find_if(nodes().begin(), nodes().end(),
                                  [name](const TypeNode* node) { return node->name == name; });
  return found == nodes().end() ? nullptr : *found;
}

std::vector<const TypeNode*> typeNodes() { return nodes(); }

}  // namespace Quill
