#pragma once

#include "cairn/Descriptor.h"

namespace Vesta {

using Cairn::Descriptor;

}  // namespace Vesta
