// Entries as words of scripts, FIELD=VALUE each, and as messages. In the words
//
// - the value of a ternary field is VALUE/MASK; without a mask all bits count, and a field that is left out
//   matches anything;
// - priority=N is the priority of the entry;
// - metadata=TEXT is its metadata, hexadecimal after 0x;
// - parameters that are left out are 0. Of the key nothing is filled in.
#pragma once

#include <span>
#include <string>
#include <utility>
#include <vector>

#include "apps/client/Catalogue.h"
#include "p4/v1/p4runtime.pb.h"

namespace Client {

struct FieldText {
  std::string name;
  std::string value;
};

/// Splits "FIELD=VALUE" words. Throws Cairn::Exception for a word of another form.
std::vector<FieldText> fieldsOf(std::span<const std::string> words);
/// "FIELD=VALUE FIELD=VALUE"
std::string joined(std::span<const FieldText> fields);

enum class Part { key, whole };
/// The entry with these fields; of the key alone, parameters are checked and left out. Throws
/// Cairn::Exception for a field that the table does not have, one that comes twice and a value that cannot be
/// read.
p4::v1::TableEntry entryOf(const Table& table, std::span<const FieldText> fields, Part part);

/// The fields from which entryOf makes the same entry.
std::vector<FieldText> fieldsOf(const Table& table, const p4::v1::TableEntry& entry, Part part);

/// The fields of entry `number`, the same each time: every field holds the number, cut to its width, and the
/// priority is one more. `given` replaces some of them.
std::vector<FieldText> generatedFields(const Table& table, std::uint64_t number,
                                       std::span<const FieldText> given, Part part);

}  // namespace Client
