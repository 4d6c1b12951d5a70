#pragma once

#include "quill/PtrInterface.h"

namespace Quill {

/// Sets one attribute of `object`: no effect if the value is unchanged; otherwise stores the new value,
/// releases the old one and calls `onChange` on every reactor.
template <class Notifiee, class Value>
void attributeIs(const PtrInterface& object, Value& attribute, const Value& value,
                 void (Notifiee::*onChange)()) {
  if (attribute == value) return;
  const Ptr<const PtrInterface> keep(
      &object);  // the released value may hold the last reference to the object
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
