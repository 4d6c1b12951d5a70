#pragma once

#include "quill/Entity.h"

namespace P4Runtime {

/// The command-line settings of one plugin. This platform has none, so both are plain entities.
class CliCommandConfig : public Quill::Entity {
 public:
  using Entity::Entity;
  ~CliCommandConfig() override;
  const Quill::TypeNode* fwkType() const override;

  static const Quill::TypeNode _quillType;
  static Quill::AllocTrackTypeInfo quillAllocTrackTypeInfo_;
  static void operator delete(void* memory) noexcept;
};

class CliCommandStatus : public Quill::Entity {
 public:
  using Entity::Entity;
  ~CliCommandStatus() override;
  const Quill::TypeNode* fwkType() const override;

  static const Quill::TypeNode _quillType;
  static Quill::AllocTrackTypeInfo quillAllocTrackTypeInfo_;
  static void operator delete(void* memory) noexcept;
};

}  // namespace P4Runtime
