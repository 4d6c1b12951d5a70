// Rows of any bytes, handed to everything that takes a row from outside. The first byte of the input chooses
// the row class, the rest are the row's bytes; the type in the header is made the class's. Refusals are
// right, and what is accepted must hold together.
#include <cstdint>
#include <vector>

#include "Fuzz.h"
#include "P4RuntimeTolmar/P4RuntimeTolmarTypes.h"
#include "lumen/RowText.h"

namespace {

using Lumen::BaseRow, Lumen::len_t;

IpGenAddr readAddress(const BaseRow& row, len_t column) {
  IpGenAddr address;
  row.getColumn(column, address);
  return address;
}

/// Writes the column; the others must stay. Slots that refer to the fixed data may see it change.
void writeAddress(BaseRow& row, len_t column) {
  const BaseRow before = row.clone();
  for (const auto& address : {IpGenAddr::ipv4({9, 8, 7, 6}), IpGenAddr::ipv6({1, 2, 3})}) {
    row.setColumn(column, address, row.baseRowLength());
    mustHold(readAddress(row, column) == address);
    for (const len_t each : row.vcd()) {
      const auto slot = Lumen::loadBytes<Lumen::VarSlot>(before.bytes().data + each);
      const bool free = each == column || slot.offset < row.baseRowLength();
      mustHold(free || readAddress(row, each) == readAddress(before, each));
    }
  }
}

template <class Row>
void useTypedRow(const BaseRow& generic) {
  Row row(generic);
  const auto entry = row.entry();
  const Row copy = Row::fromEntry(entry);
  mustHold(copy.entry() == entry && copy.hash() == entry.key().hash() && row.keyRecord() == entry.key());
  mustHold(row == row.clone() && row.rowEqual(row.clone()) && !row.rowLess(row));
  mustHold(row.toString() == Lumen::rowText(generic) && row.toJson().front() == '{');
  attempt([&] {
    Row written = row.clone();
    for (const len_t column : row.vcd()) writeAddress(written, column);
  });
  Row scratch = row;
  scratch.fill(entry);
  mustHold(scratch.entry() == entry);
}

template <class Row>
void useGenericRow(const BaseRow& generic) {
  const auto ops = Lumen::rowOps(Row::rowTypeName());
  attempt([&] { ops->keyHash(generic); });
  attempt([&] { ops->rowHash(generic); });
  attempt([&] { mustHold(ops->keyEquals(generic, generic)); });
  attempt([&] { mustHold(!ops->rowLess(generic, generic)); });
  attempt([&] { Lumen::rowText(generic); });
  attempt([&] { mustHold(generic.rowEqual(generic.clone())); });
  attempt([&] { Row().rowEqual(generic); });
  attempt([&] { Row().rowLess(generic); });
  attempt([&] { Row().shareContents(generic); });
  attempt([&] { BaseRow(generic).rowTypeIs(1); });
  attempt([&] { BaseRow(generic).clear(64); });
  if (generic.bytes().available < 8) return;
  attempt([&] { generic.columnHash<IpGenAddr>(4); });
  attempt([&] { BaseRow(generic).setColumn(4, IpGenAddr::ipv4({1, 2, 3, 4}), 8); });
  attempt([&] {
    Row nested{BaseRow()};
    generic.getColumnStruct(4, nested);
    if (!nested.isNull()) useTypedRow<Row>(nested);
  });
  attempt([&] { mustHold(generic.columnEqual<Row>(4, generic, 4)); });
}

template <class Row>
void useRow(std::vector<std::byte> bytes) {
  Lumen::storeBytes(bytes.data() + Lumen::kRowTypeOffset, Row::protRowType());
  // A nested row at 12 gets the type too.
  if (bytes.size() >= 16) Lumen::storeBytes(bytes.data() + 14, Row::protRowType());
  const BaseRow generic = BaseRow::fromBytes(bytes);
  useGenericRow<Row>(generic);
  attempt([&] { useTypedRow<Row>(generic); });
}

/// One for each row class.
const auto kUses = [] {
  std::vector<void (*)(std::vector<std::byte>)> made;
  TolmarHwLib::Kinds::forEach([&]<class Kind>() {
    made.push_back(&useRow<TolmarHwLib::ConfigEntryRowOf<Kind>>);
    made.push_back(&useRow<TolmarHwLib::StatusEntryRowOf<Kind>>);
  });
  return made;
}();

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1 + Lumen::lm_contentOffset || size > 1 + Lumen::kMaxRowLength) return 0;
  const auto* const first = reinterpret_cast<const std::byte*>(data) + 1;
  kUses[data[0] % kUses.size()]({first, first + size - 1});
  return 0;
}
