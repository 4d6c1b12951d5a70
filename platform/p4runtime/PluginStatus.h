#pragma once

#include <cstdint>

#include "quill/Counted.h"
#include "quill/Entity.h"

namespace P4Runtime {

/// What the agent may know of one plugin; named after it.
class PluginStatus : public Quill::Typed<PluginStatus, Quill::Entity> {
 public:
  using Typed::Typed;
  ~PluginStatus() override;

  class NotifieeConst : public Quill::NotifieeConst {
   public:
    using Quill::NotifieeConst::NotifieeConst;
    ~NotifieeConst() override;
    const Quill::TypeNode* fwkType() const override;
    static const Quill::TypeNode _quillType;
    virtual void onCleanupsCompleted();
  };

  /// Number of cleanup requests that the plugin has completed.
  std::uint32_t cleanupsCompleted() const noexcept { return cleanupsCompleted_; }
  void cleanupsCompletedIs(std::uint32_t count);

  static const Quill::TypeNode _quillType;

 private:
  std::uint32_t cleanupsCompleted_ = 0;
};

}  // namespace P4Runtime
