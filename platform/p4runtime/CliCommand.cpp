#include "p4runtime/CliCommand.h"

namespace P4Runtime {

constinit const Quill::TypeNode CliCommandConfig::_quillType{.name = "P4Runtime::CliCommandConfig",
                                                             .members = {}};
CliCommandConfig::~CliCommandConfig() = default;
constinit const Quill::TypeNode CliCommandStatus::_quillType{.name = "P4Runtime::CliCommandStatus",
                                                             .members = {}};
CliCommandStatus::~CliCommandStatus() = default;
}  // namespace P4Runtime
