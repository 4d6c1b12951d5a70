#include "p4runtime/PluginContext.h"

#include <algorithm>
#include <utility>

#include "lumen/LumenDB.h"
#include "orrery/EntityManager.h"

namespace P4Runtime {

constinit const Quill::TypeNode PluginContext::_quillType{.name = "P4Runtime::PluginContext", .members = {}};

PluginContext::PluginContext(const Quill::Ptr<Orrery::EntityManager>& entityManager,
                             std::shared_ptr<Lumen::LumenDB> lumenDb,
                             const Quill::Ptr<BatchStatus>& batchStatus,
                             const Quill::Ptr<VrfIdCollection>& vrfIdCollection)
    : entityManager_(entityManager),
      lumenDb_(std::move(lumenDb)),
      batchStatus_(batchStatus),
      vrfIdCollection_(vrfIdCollection) {}

PluginContext::~PluginContext() = default;

void PluginContext::pluginIs(P4RuntimePluginBase* plugin) {
  if (std::find(plugins_.begin(), plugins_.end(), plugin) == plugins_.end()) plugins_.push_back(plugin);
}

void PluginContext::pluginDel(const P4RuntimePluginBase* plugin) { std::erase(plugins_, plugin); }

}  // namespace P4Runtime
