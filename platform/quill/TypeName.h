#pragma once

#include <string>
#include <typeinfo>

namespace Quill {

/// The type's name as it stands in the source.
std::string typeName(const std::type_info& type);

}  // namespace Quill
