#pragma once

#include <string>

#include "apps/ctl/Programs.h"

namespace Ctl {

/// All counters in Prometheus's text format.
std::string metricsText(const Programs& programs);
/// What the status page shows, as JSON.
std::string pageData(const Programs& programs);

}  // namespace Ctl
