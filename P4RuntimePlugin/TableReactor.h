// How the trackers follow one table: through a reactor that they own and that points back without a
// reference.
#pragma once

#include "quill/Counted.h"

namespace P4RuntimeTolmar {

/// Base of `Reactor`, the reactor of an `Owner` on a `Table`. It forwards nothing once it is marked for
/// deletion or detached from its owner.
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

  /// Sets or clears the deletion mark.
  virtual void quillDoZombieReactors(bool zombie) { this->quillMarkedForDeletionIs(zombie); }

  Quill::Ptr<const Table> table() const {
    return Quill::Ptr<const Table>(static_cast<const Table*>(this->notifierObject()));
  }
  void ownerDel() noexcept { owner_ = nullptr; }

 protected:
  /// The owner to forward to, held during the call; null if nothing is to be forwarded.
  Quill::Ptr<Owner> owner() const {
    return Quill::Ptr<Owner>(this->quillMarkedForDeletion() ? nullptr : owner_);
  }

 private:
  /// Called when the reactor becomes active or gets a table; notifies the whole table if both hold.
  void wholeTable() {
    if (this->hasNotificationActive() && this->notifierObject() != nullptr) this->onTablequillImmediate();
  }

  Owner* owner_;  // not owned; null once detached
};

/// Owns such a reactor; binds, re-binds and unbinds the table.
template <class Reactor, class Table>
class TableBinding {
 public:
  TableBinding() = default;
  TableBinding(const TableBinding&) = delete;
  TableBinding& operator=(const TableBinding&) = delete;
  ~TableBinding() { tableDel(); }

  /// The bound table; may be null.
  Quill::Ptr<const Table> table() const { return reactor_ ? reactor_->table() : nullptr; }

  /// Binds `table`. No effect if it is bound already; a null table unbinds; an existing reactor moves to the
  /// new table. The reactor gets the deletion mark of `owner`, a new one its notification flag too.
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

  /// Releases the reactor. If it is being called, it exists until the call returns but forwards nothing more.
  void tableDel() {
    if (!reactor_) return;
    const Quill::Ptr<Reactor> dropped = std::move(reactor_);
    dropped->quillDoZombieReactors(true);
    dropped->ownerDel();
  }

  void hasNotificationActiveIs(bool active) {
    if (reactor_) reactor_->hasNotificationActiveIs(active);
  }

  /// Sets the mark on the reactor, then on `owner`. No effect if `owner` has it already.
  void zombieIs(Quill::PtrInterface& owner, bool zombie) {
    if (zombie == owner.quillMarkedForDeletion()) return;
    if (reactor_) reactor_->quillDoZombieReactors(zombie);
    owner.quillMarkedForDeletionIs(zombie);
  }

 private:
  Quill::Ptr<Reactor> reactor_;
};

}  // namespace P4RuntimeTolmar
