// What the agent keeps for each plugin, and for all of them.
#pragma once

#include <cstdint>
#include <map>

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

/// What the agent requests of its plugins, by plugin name.
class AllPluginConfig : public Quill::Typed<AllPluginConfig, Quill::Entity> {
 public:
  using Typed::Typed;
  ~AllPluginConfig() override;

  class NotifieeConst : public Quill::Typed<NotifieeConst, Quill::NotifieeConst> {
   public:
    using Typed::Typed;
    ~NotifieeConst() override;
    virtual void onCleanupsRequested(const Quill::Name& plugin);

    static const Quill::TypeNode _quillType;
  };

  /// Number of cleanups requested of that plugin so far; each change is one request.
  std::uint32_t cleanupsRequested(const Quill::Name& plugin) const;
  void cleanupsRequestedIs(const Quill::Name& plugin, std::uint32_t count);

  static const Quill::TypeNode _quillType;

 private:
  std::map<Quill::String, std::uint32_t> cleanupsRequested_;
};

/// What one plugin reports to the agent; named after the plugin.
class PluginStatus : public Quill::Typed<PluginStatus, Quill::Entity> {
 public:
  using Typed::Typed;
  ~PluginStatus() override;

  class NotifieeConst : public Quill::Typed<NotifieeConst, Quill::NotifieeConst> {
   public:
    using Typed::Typed;
    ~NotifieeConst() override;
    virtual void onCleanupsCompleted();

    static const Quill::TypeNode _quillType;
  };

  /// Number of cleanup requests that the plugin has completed.
  std::uint32_t cleanupsCompleted() const noexcept { return cleanupsCompleted_; }
  void cleanupsCompletedIs(std::uint32_t count);

  static const Quill::TypeNode _quillType;

 private:
  std::uint32_t cleanupsCompleted_ = 0;
};

}  // namespace P4Runtime
