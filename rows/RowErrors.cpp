#include "rows/RowErrors.h"

namespace Lumen {

LmNullRow::LmNullRow() : Exception("null row") {}
LmNullRow::~LmNullRow() = default;

LmPermissionViolation::LmPermissionViolation() : Exception("Attempting to modify read-only row") {}
LmPermissionViolation::~LmPermissionViolation() = default;

LmNotSupported::~LmNotSupported() = default;

LmBadCast::LmBadCast(std::uint16_t rowType, std::uint16_t expected, std::uint16_t contentOffset)
    : Exception("row type " + std::to_string(rowType) + " does not match row type " +
                std::to_string(expected) + " " + std::to_string(contentOffset)) {}
LmBadCast::~LmBadCast() = default;

void throwNullRow() { throw LmNullRow(); }

}  // namespace Lumen
