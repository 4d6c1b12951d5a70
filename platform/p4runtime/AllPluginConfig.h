#pragma once

#include <cstdint>
#include <map>

#include "quill/Counted.h"
#include "quill/Entity.h"

namespace P4Runtime {

/// What the agent wants of its plugins, by plugin name.
class AllPluginConfig : public Quill::Typed<AllPluginConfig, Quill::Entity> {
 public:
  using Typed::Typed;
  ~AllPluginConfig() override;

  class NotifieeConst : public Quill::NotifieeConst {
   public:
    using Quill::NotifieeConst::NotifieeConst;
    ~NotifieeConst() override;
    const Quill::TypeNode* fwkType() const override;
    static const Quill::TypeNode _quillType;
    virtual void onCleanupsRequested(const Quill::Name& plugin);
  };

  /// Number of cleanups asked of that plugin so far; each change is one request.
  std::uint32_t cleanupsRequested(const Quill::Name& plugin) const;
  void cleanupsRequestedIs(const Quill::Name& plugin, std::uint32_t count);

  static const Quill::TypeNode _quillType;

 private:
  std::map<Quill::String, std::uint32_t> cleanupsRequested_;
};

}  // namespace P4Runtime
