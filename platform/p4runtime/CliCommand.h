#pragma once

#include "quill/Counted.h"
#include "quill/Entity.h"

namespace P4Runtime {

/// The command-line settings of one plugin. This platform has none, so both are plain entities.
class CliCommandConfig : public Quill::Typed<CliCommandConfig, Quill::Entity> {
 public:
  using Typed::Typed;
  ~CliCommandConfig() override;

  static const Quill::TypeNode _quillType;
};

class CliCommandStatus : public Quill::Typed<CliCommandStatus, Quill::Entity> {
 public:
  using Typed::Typed;
  ~CliCommandStatus() override;

  static const Quill::TypeNode _quillType;
};

}  // namespace P4Runtime
