#include "lumen/LmTableImplementation.h"

namespace Lumen {

LmRowIteratorImpl::~LmRowIteratorImpl() = default;
LmChangeIteratorImpl::~LmChangeIteratorImpl() = default;
LmTableInterface::~LmTableInterface() = default;
LmTableImplementation::~LmTableImplementation() = default;

}  // namespace Lumen
