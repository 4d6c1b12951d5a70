#include "lumen/LmIterator.h"

namespace Lumen {

LmRowIteratorImpl::~LmRowIteratorImpl() = default;
LmChangeIteratorImpl::~LmChangeIteratorImpl() = default;

}  // namespace Lumen
