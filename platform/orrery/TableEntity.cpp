#include "orrery/TableEntity.h"

#include "quill/TypeNode.h"
#include "vesta/DeferredWakeups.h"

namespace QuillVesta {

namespace {

// Changes delivered before other tables and descriptors get their turn.
constexpr std::size_t kPortion = 256;

}  // namespace

constinit const Quill::TypeNode TableEntity::_quillType{
    .name = "QuillVesta::TableEntity", .members = {}, .base = &Quill::Entity::_quillType};

TableEntity::~TableEntity() = default;

const Quill::TypeNode* TableEntity::fwkType() const { return &_quillType; }

// The callbacks use the source and the loop alone: a handler may destroy the pump while one of them runs.
TablePump::TablePump(Vesta::EventSource& source, Quill::EventLoop& loop)
    : loop_(loop), descriptor_(source.wakeDescriptor()) {
  loop_.descriptorIs(descriptor_, [&source] { source.descriptorReadable(); });
  sleepHook_ = loop_.sleepHookIs([&source] { return source.maySleep(); });
  wakeHook_ = loop_.wakeHookIs([&source, &loop] {
    const Vesta::DeferredWakeups wakeups;  // handlers write to other tables
    source.awake();
    if (source.poll(kPortion) != 0) loop.worked();
  });
}

TablePump::~TablePump() {
  loop_.descriptorDel(descriptor_);
  loop_.sleepHookDel(sleepHook_);
  loop_.wakeHookDel(wakeHook_);
}

}  // namespace QuillVesta
