#pragma once

#include "quill/PtrInterface.h"

namespace Quill {

/// Sets one attribute of `object`: nothing when the value is unchanged; otherwise the new value is stored,
/// the old one released, and `onChange` called on every reactor.
template <class Notifiee, class Value>
void attributeIs(const PtrInterface& object, Value& attribute, const Value& value,
                 void (Notifiee::*onChange)()) {
  if (attribute == value) return;
  const Ptr<const PtrInterface> keep(&object);  // what is released may hold the object's last reference
  attribute = value;
  object.notify<Notifiee>([onChange](Notifiee& reactor) { (reactor.*onChange)(); });
}

/// One attribute of an object: its value, and the notification of a change as a member of the notifiee class.
template <class Value, auto onChange>
struct Attribute {
  void set(const PtrInterface& object, const Value& newValue) {
    attributeIs(object, value, newValue, onChange);
  }
  Value value{};
};

}  // namespace Quill
