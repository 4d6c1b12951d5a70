// Keys as values of the fast trace: their text, written into the record without an allocation.
#pragma once

#include "P4RuntimeTolmar/Schema.h"
#include "skein/Skein.h"

namespace TolmarHwLib {

template <KeyRecord Key>
void traceText(Skein::Message& message, const Key& key) noexcept {
  std::string_view separator;
  forEachColumn(RowSchema<Key>::columns, [&](const auto& column) {
    message.put(separator);
    traceText(message, key.*column.member);
    separator = " ";
  });
}

}  // namespace TolmarHwLib
