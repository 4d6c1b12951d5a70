#pragma once

#include <cstdint>

#include "quill/Entity.h"

namespace P4Runtime {

/// What the agent may know of one plugin; named after it.
class PluginStatus : public Quill::Entity {
 public:
  using Entity::Entity;
  ~PluginStatus() override;
  const Quill::TypeNode* fwkType() const override;

  class NotifieeConst : public Quill::NotifieeConst {
   public:
    using Quill::NotifieeConst::NotifieeConst;
    ~NotifieeConst() override;
    virtual void onCleanupsCompleted();
  };

  /// Number of cleanup requests that the plugin has completed.
  std::uint32_t cleanupsCompleted() const noexcept { return cleanupsCompleted_; }
  void cleanupsCompletedIs(std::uint32_t count);

  static const Quill::TypeNode _quillType;
  static Quill::AllocTrackTypeInfo quillAllocTrackTypeInfo_;
  static void operator delete(void* memory) noexcept;

 private:
  std::uint32_t cleanupsCompleted_ = 0;
};

}  // namespace P4Runtime
