// What the trackers have in common: following one table through a reactor that they own and that points back
// to them without a count.
#pragma once

#include "quill/Counted.h"

namespace P4RuntimeTolmar {

/// `Reactor`, the reactor of an `Owner` on a `Table`. Silent once it is marked for deletion or has lost its
/// owner.
template <class Reactor, class Owner, class Table>
class TableReactor : public Quill::Counted<Reactor, typename Table::NotifieeConst> {
 public:
  TableReactor(Owner* owner, const Quill::Ptr<const Table>& table) : owner_(owner) {
    TableReactor::notifierIs(table);
    this->isRegisteredNotifieeIs(true);
  }
  ~TableReactor() override = default;

  void hasNotificationActiveIs(bool active) override {
    const bool before = this->hasNotificationActive();
    Table::NotifieeConst::hasNotificationActiveIs(active);
    if (!before) wholeTable();
  }
  void notifierIs(const Quill::Ptr<const Quill::PtrInterface>& table) override {
    if (table.get() == this->notifierObject()) return;
    Table::NotifieeConst::notifierIs(table);
    wholeTable();
  }

  // Virtual operation, in slot order after those of the table's notifiee.

  /// Marks the reactor for deletion, or takes the mark back.
  virtual void quillDoZombieReactors(bool zombie) { this->quillMarkedForDeletionIs(zombie); }

  Quill::Ptr<const Table> table() const {
    return Quill::Ptr<const Table>(static_cast<const Table*>(this->notifierObject()));
  }
  void ownerDel() noexcept { owner_ = nullptr; }

 protected:
  /// The owner to forward to, held for the time of the call; null when the reactor is silent.
  Quill::Ptr<Owner> owner() const {
    return Quill::Ptr<Owner>(this->quillMarkedForDeletion() ? nullptr : owner_);
  }

 private:
  /// A reactor that is live and has a table, because either has just come, is due the whole of it.
  void wholeTable() {
    if (this->hasNotificationActive() && this->notifierObject() != nullptr) this->onTablequillImmediate();
  }

  Owner* owner_;  // not owned; null once detached
};

/// The counted pointer to such a reactor, with the rules for binding, re-binding and unbinding the table.
template <class Reactor, class Table>
class TableBinding {
 public:
  TableBinding() = default;
  TableBinding(const TableBinding&) = delete;
  TableBinding& operator=(const TableBinding&) = delete;
  ~TableBinding() { tableDel(); }

  /// The bound table, or null.
  Quill::Ptr<const Table> table() const { return reactor_ ? reactor_->table() : nullptr; }

  /// Binds `table`: nothing when it is the bound one already; a null table unbinds; an existing reactor moves
  /// to the new table. The reactor takes over the deletion mark of `owner`, a new one its flag too.
  template <class Owner>
  void tableIs(Owner& owner, const Quill::Ptr<const Table>& table) {
    if (table == this->table()) return;
    if (!table) return tableDel();
    if (reactor_) {
      reactor_->notifierIs(table);
    } else {
      reactor_ = Quill::allocate<Reactor>(&owner, table);
      reactor_->hasNotificationActiveIs(owner.hasNotificationActive());
    }
    reactor_->quillDoZombieReactors(owner.quillMarkedForDeletion());
  }

  /// Drops the reactor. One that is being called at this moment lives on, silent, until the call returns.
  void tableDel() {
    if (!reactor_) return;
    const Quill::Ptr<Reactor> dropped = std::move(reactor_);
    dropped->quillDoZombieReactors(true);
    dropped->ownerDel();
  }

  void hasNotificationActiveIs(bool active) {
    if (reactor_) reactor_->hasNotificationActiveIs(active);
  }

  /// Sets the mark on the reactor and then on `owner`, unless `owner` has it already.
  void zombieIs(Quill::PtrInterface& owner, bool zombie) {
    if (zombie == owner.quillMarkedForDeletion()) return;
    if (reactor_) reactor_->quillDoZombieReactors(zombie);
    owner.quillMarkedForDeletionIs(zombie);
  }

 private:
  Quill::Ptr<Reactor> reactor_;
};

}  // namespace P4RuntimeTolmar
