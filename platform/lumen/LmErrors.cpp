#include "lumen/LmErrors.h"

namespace Lumen {

LmMetadataError::~LmMetadataError() = default;
LmTextError::~LmTextError() = default;

}  // namespace Lumen
