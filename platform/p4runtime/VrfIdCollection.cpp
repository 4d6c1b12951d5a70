#include "p4runtime/VrfIdCollection.h"

namespace P4Runtime {

constinit const Quill::TypeNode VrfIdCollection::_quillType{.name = "P4Runtime::VrfIdCollection",
                                                            .members = {}};

VrfIdCollection::~VrfIdCollection() = default;

std::uint32_t VrfIdCollection::vrfIdRefCountInc(VrfId id, unsigned int n) {
  const std::uint32_t count = vrfIdRefCount(id) + n;
  if (count != 0) vrfIdRefCount_.set(id, count);
  return count;
}

std::uint32_t VrfIdCollection::vrfIdRefCountDec(VrfId id, unsigned int n) {
  const std::uint32_t before = vrfIdRefCount(id);
  if (before <= n) {
    vrfIdRefCount_.del(id);
    return 0;
  }
  vrfIdRefCount_.set(id, before - n);
  return before - n;
}

std::uint32_t VrfIdCollection::vrfIdRefCount(VrfId id) const {
  const std::uint32_t* const count = vrfIdRefCount_.find(id);
  return count == nullptr ? 0 : *count;
}

}  // namespace P4Runtime
