#pragma once

#include <memory>
#include <vector>

#include "p4runtime/BatchStatus.h"
#include "p4runtime/PluginEntities.h"
#include "p4runtime/VrfIdCollection.h"
#include "quill/Counted.h"
#include "quill/TypeNode.h"

namespace Lumen {
class LumenDB;
}
namespace Orrery {
class EntityManager;
}

namespace P4Runtime {

class P4RuntimePluginBase;

/// The agent's services for its plugins, the same for all of them. Each part may be null.
class PluginContext : public Quill::Typed<PluginContext, Quill::PtrInterface> {
 public:
  PluginContext(const Quill::Ptr<Orrery::EntityManager>& entityManager,
                std::shared_ptr<Lumen::LumenDB> lumenDb, const Quill::Ptr<BatchStatus>& batchStatus,
                const Quill::Ptr<VrfIdCollection>& vrfIdCollection);
  ~PluginContext() override;

  const Quill::Ptr<Orrery::EntityManager>& entityManager() const noexcept { return entityManager_; }
  const std::shared_ptr<Lumen::LumenDB>& lumenDb() const noexcept { return lumenDb_; }
  const Quill::Ptr<BatchStatus>& batchStatus() const noexcept { return batchStatus_; }
  const Quill::Ptr<VrfIdCollection>& vrfIdCollection() const noexcept { return vrfIdCollection_; }

  /// The cleanup requests of all plugins; null until set.
  const Quill::Ptr<AllPluginConfig>& allPluginConfig() const noexcept { return allPluginConfig_; }
  void allPluginConfigIs(const Quill::Ptr<AllPluginConfig>& config) { allPluginConfig_ = config; }

  /// The plugins that hold this context, in order of their start. Not owned: each removes itself when it is
  /// destroyed.
  const std::vector<P4RuntimePluginBase*>& plugins() const noexcept { return plugins_; }
  void pluginIs(P4RuntimePluginBase* plugin);
  void pluginDel(const P4RuntimePluginBase* plugin);

  static const Quill::TypeNode _quillType;

 private:
  Quill::Ptr<Orrery::EntityManager> entityManager_;
  std::shared_ptr<Lumen::LumenDB> lumenDb_;
  Quill::Ptr<BatchStatus> batchStatus_;
  Quill::Ptr<VrfIdCollection> vrfIdCollection_;
  Quill::Ptr<AllPluginConfig> allPluginConfig_;
  std::vector<P4RuntimePluginBase*> plugins_;  // not owned
};

}  // namespace P4Runtime
