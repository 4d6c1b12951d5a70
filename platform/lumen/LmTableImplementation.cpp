#include "lumen/LmTableImplementation.h"

namespace Lumen {

LmTableInterface::~LmTableInterface() = default;
LmTableImplementation::~LmTableImplementation() = default;

}  // namespace Lumen
