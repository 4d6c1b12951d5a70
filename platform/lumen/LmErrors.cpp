#include "lumen/LmErrors.h"

namespace Lumen {

LmMetadataError::~LmMetadataError() = default;
LmTextError::~LmTextError() = default;
LmOutOfRange::~LmOutOfRange() = default;
LmTableError::~LmTableError() = default;

}  // namespace Lumen
