#include "orrery/EntityManager.h"

#include "quill/TypeNode.h"

namespace Orrery {

namespace {

Quill::Ptr<QuillVesta::TableEntity> tableEntityOfType(const Quill::String& path,
                                                      const Quill::String& typeName) {
  const Quill::TypeNode* type = Quill::typeNode(typeName);
  if (type == nullptr || type->newEntityForDir == nullptr) {
    throw Cairn::Exception("mount " + path + ": no entity type is registered under the name " + typeName);
  }
  auto entity = Quill::ptrCast<QuillVesta::TableEntity>(type->newEntityForDir(Quill::Name(path), nullptr));
  if (!entity) throw Cairn::Exception("mount " + path + ": " + typeName + " is not a type of table");
  return entity;
}

}  // namespace

constinit const Quill::TypeNode EntityManager::_quillType{.name = "Orrery::EntityManager", .members = {}};

EntityManager::EntityManager(std::string runtimeFolder, Quill::EventLoop& loop,
                             std::shared_ptr<const Cairn::DebugHandler> debugHandler,
                             std::chrono::milliseconds damagePatience)
    : runtimeFolder_(std::move(runtimeFolder)),
      loop_(loop),
      debugHandler_(std::move(debugHandler)),
      damagePatience_(damagePatience) {}

EntityManager::~EntityManager() {
  loop_.timerDel(timer_);
  for (const auto& [path, mounted] : mounts_) mounted.entity->detach();
}

Quill::Ptr<QuillVesta::TableEntity> EntityManager::mount(
    const Quill::String& path, const Quill::String& typeName,
    const QuillVesta::MountDescription& description) const {
  const auto found = mounts_.find(path);
  if (found != mounts_.end()) {
    const Mounted& mounted = found->second;
    if (mounted.description != description || mounted.entity->fwkType() != Quill::typeNode(typeName)) {
      throw Cairn::Exception("mount " + path + ": another table is mounted there");
    }
    if (!mounted.entity->attached()) attach(path, mounted);
    return mounted.entity;
  }
  const Mounted mounted{tableEntityOfType(path, typeName), description};
  attach(path, mounted);
  mounts_.emplace(path, mounted);
  if (timer_ == 0) monitorMounts();
  return mounted.entity;
}

// The timer alone repairs a table whose sleep bit was lost: its owner looks for changes at each wake.
void EntityManager::monitorMounts() const {
  timer_ = loop_.periodicTimerIs(std::chrono::milliseconds(500), [this] {
    for (const Quill::String& path : mountedPaths()) {  // a reactor may mount and unmount
      const auto found = mounts_.find(path);
      if (found == mounts_.end()) continue;
      const Quill::Ptr<QuillVesta::TableEntity> entity = found->second.entity;
      entity->monitor();
    }
  });
}

void EntityManager::attach(const Quill::String& path, const Mounted& mounted) const {
  const Vesta::AttachOptions options{
      .path = Vesta::RootPath(runtimeFolder_, path, mounted.description.collection()),
      .capacity = mounted.description.capacity(),
      .debugHandler = debugHandler_,
      .initialRows = Vesta::InitialRows::skip,
      .damagePatience = damagePatience_};
  mounted.entity->attach(mounted.description, options, loop_);
}

Quill::Ptr<Quill::Entity> EntityManager::entity(const Quill::String& path) const {
  const auto found = mounts_.find(path);
  return found == mounts_.end() ? nullptr : found->second.entity;
}

void EntityManager::cleanup(const Quill::String& path) const {
  const auto found = mounts_.find(path);
  if (found != mounts_.end()) found->second.entity->cleanup();
}

void EntityManager::unmount(const Quill::String& path) const {
  const auto found = mounts_.find(path);
  if (found == mounts_.end()) return;
  const Quill::Ptr<QuillVesta::TableEntity> entity = found->second.entity;
  mounts_.erase(found);
  entity->detach();
}

void EntityManager::mountFailed() const noexcept {
  if (openGroup_ != nullptr) openGroup_->status = MountStatus::failed;
}

MountGroup::MountGroup(Mounter& mounter, const Quill::Ptr<EntityManager>& entityManager)
    : entityManager_(entityManager),
      pending_(std::make_shared<PendingMounts>(PendingMounts{&mounter, entityManager})),
      outer_(entityManager->openGroup_) {
  entityManager_->eventLoop().timerIs(Quill::EventLoop::Clock::duration::zero(), [pending = pending_] {
    const PendingMounts done = std::exchange(*pending, {});
    if (done.mounter == nullptr) return;
    done.mounter->doMountsComplete(done.status, done.mountGroup);
  });
  if (mounter.pending_) *mounter.pending_ = {};
  mounter.pending_ = pending_;
  entityManager_->openGroup_ = pending_.get();
}

std::vector<Quill::String> EntityManager::mountedPaths() const {
  std::vector<Quill::String> paths;
  for (const auto& [path, mounted] : mounts_) paths.push_back(path);
  return paths;
}

}  // namespace Orrery
