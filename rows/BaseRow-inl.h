#pragma once

#include "rows/BaseRow.h"

namespace Lumen {

template <class T>
void BaseRow::setColumn(len_t offset, const T& value, len_t fixedLength) {
  prepareWrite(fixedLength, std::size_t{offset} + Encoding<T>::kWidth);
  if constexpr (Encoding<T>::kVariable) {
    storeVariable(offset, std::as_bytes(std::span(value.bytes(), value.size())), fixedLength);
  } else {
    Encoding<T>::store(writableBytes() + offset, value);
  }
}

template <NestedRow Row>
void BaseRow::getColumnStruct(len_t offset, Row& out) const {
  const VarSlot slot = nestedSlot(offset);
  if (slot.length() == 0) {
    out = Row(BaseRow());
  } else {
    out = Row(SubRow(*this, slot));
  }
}

template <class T>
std::uint32_t BaseRow::columnHash(len_t offset) const {
  if constexpr (NestedRow<T>) {
    T nested{BaseRow()};
    getColumnStruct(offset, nested);
    return nested.rowHash();
  } else {
    return Encoding<T>::hash(bytes(), offset);
  }
}

template <class T>
bool BaseRow::columnEqual(len_t offset, const BaseRow& other, len_t otherOffset) const {
  if constexpr (NestedRow<T>) {
    T nested{BaseRow()};
    T otherNested{BaseRow()};
    getColumnStruct(offset, nested);
    other.getColumnStruct(otherOffset, otherNested);
    return nested.rowEqual(otherNested);
  } else {
    return Encoding<T>::equal(bytes(), offset, other.bytes(), otherOffset);
  }
}

template <class T>
bool BaseRow::columnLess(len_t offset, const BaseRow& other, len_t otherOffset) const {
  if constexpr (NestedRow<T>) {
    T nested{BaseRow()};
    T otherNested{BaseRow()};
    getColumnStruct(offset, nested);
    other.getColumnStruct(otherOffset, otherNested);
    return nested.rowLess(otherNested);
  } else {
    return Encoding<T>::compare(bytes(), offset, other.bytes(), otherOffset) < 0;
  }
}

}  // namespace Lumen
