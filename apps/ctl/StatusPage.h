#pragma once

namespace Ctl {

/// The status page: HTML that needs nothing but /data.json.
extern const char* const kStatusPage;

}  // namespace Ctl
