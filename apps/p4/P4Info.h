// The description of the pipeline that controllers get.
#pragma once

#include <string>

#include "apps/p4/Pipeline.h"
#include "p4/config/v1/p4info.pb.h"

namespace Wire {

/// Tables, actions and pkg_info of the pipeline and nothing else.
p4::config::v1::P4Info p4InfoOf(const Pipeline& pipeline);

enum class P4InfoFormat { text, binary, json };

/// In protobuf's own text, binary and JSON forms.
std::string formatted(const p4::config::v1::P4Info& info, P4InfoFormat format);

}  // namespace Wire
