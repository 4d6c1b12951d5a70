#pragma once

#include <cstdint>

#include "P4RuntimePlugin/TableReactor.h"
#include "P4RuntimeTolmar/kinds/L3IifTH3.h"
#include "p4runtime/PluginContext.h"
#include "quill/HashMap2018.h"
#include "quill/PtrInterface.h"
#include "quill/TypeNode.h"

namespace P4RuntimeTolmar {

/// The VRF tracker: updates the reference counts of the agent's VRF id collection from the L3 IIF config
/// table. Every notification of a present entry with a VRF adds one reference, also if the entry was counted
/// before, on purpose: counts follow the number of notifications, not of entries. The removal of an entry
/// releases one reference on the VRF counted last for it. Destruction releases none.
class VrfSm final : public Quill::Typed<VrfSm, Quill::PtrInterface> {
  struct QuillVrfId {
    using Key = TolmarHwLib::L3IifTH3Key;
    using Value = unsigned short;
    static std::uint32_t hash(const Key& key) { return key.hash(); }
    Key key;
    Value value;
  };

 public:
  class QuillL3IifTH3Config;
  using L3IifTH3ConfigPtr = Quill::Ptr<const TolmarHwLib::L3IifTH3Config>;
  using VrfIdMap = Quill::HashMap2018<QuillVrfId>;

  /// Counts the rows in `l3IifTH3Config`, which may be null. `pluginContext` must not be null.
  VrfSm(const L3IifTH3ConfigPtr& l3IifTH3Config, const Quill::Ptr<P4Runtime::PluginContext>& pluginContext);
  ~VrfSm() override;
  /// A tracker with its notifications on.
  static Quill::Ptr<VrfSm> VrfSmIs(const L3IifTH3ConfigPtr& l3IifTH3Config,
                                   const Quill::Ptr<P4Runtime::PluginContext>& pluginContext);

  void hasNotificationActiveIs(bool active) override;

  // Virtual operation, in slot order after those of PtrInterface.
  virtual void quillDoZombieReactors(bool zombie);

  /// The followed table; may be null. Binding another table counts nothing.
  L3IifTH3ConfigPtr l3IifTH3Config() const;
  void l3IifTH3ConfigIs(const L3IifTH3ConfigPtr& config);
  void l3IifTH3ConfigDel();

  const Quill::Ptr<P4Runtime::PluginContext>& pluginContext() const noexcept { return pluginContext_; }

  // The VRF counted last for each key. These operations change no count.
  const VrfIdMap& vrfId() const noexcept { return vrfId_; }
  VrfIdMap::Iterator vrfIdIterator() { return vrfId_.first(); }
  void vrfIdIs(const TolmarHwLib::L3IifTH3Key& key, unsigned short vrf);
  void vrfIdDel(const TolmarHwLib::L3IifTH3Key& key);
  void vrfIdDelAll();
  /// Called for a changed line; no effect.
  void vrfIdNotify(const TolmarHwLib::L3IifTH3Key&) {}

  const Quill::Ptr<P4Runtime::VrfIdCollection>& vrfIdCollection() const noexcept { return vrfIdCollection_; }
  void vrfIdCollectionIs(const Quill::Ptr<P4Runtime::VrfIdCollection>& collection) {
    vrfIdCollection_ = collection;
  }
  bool initialized() const noexcept { return initialized_; }
  void initializedIs(bool initialized) { initialized_ = initialized; }

  /// Takes the VRF id collection from the context and counts every row of the table; a second call counts
  /// them again.
  void handleInitialized();
  /// Counts a present row or releases the reference of a removed one. No effect until initialized.
  void handleL3IifTH3ConfigEntry(const TolmarHwLib::L3IifTH3Key& key);

  static const Quill::TypeNode _quillType;

 private:
  void add(const TolmarHwLib::L3IifTH3Config& config, const TolmarHwLib::L3IifTH3Key& key);
  void del(const TolmarHwLib::L3IifTH3Key& key);

  TableBinding<QuillL3IifTH3Config, TolmarHwLib::L3IifTH3Config> l3IifTH3Config_;
  Quill::Ptr<P4Runtime::PluginContext> pluginContext_;
  VrfIdMap vrfId_;
  Quill::Ptr<P4Runtime::VrfIdCollection> vrfIdCollection_;
  bool initialized_ = false;
};

/// The tracker's reactor on the config table.
class VrfSm::QuillL3IifTH3Config final
    : public TableReactor<VrfSm::QuillL3IifTH3Config, VrfSm, TolmarHwLib::L3IifTH3Config> {
 public:
  using TableReactor::TableReactor;
  ~QuillL3IifTH3Config() override;

  void onTable(const TolmarHwLib::L3IifTH3Key& key) override;
  void onTablequillImmediate() override;
};

/// Entry point for creators other than the plugin.
Quill::Ptr<VrfSm> vrfSmFactory(const Quill::Ptr<const TolmarHwLib::L3IifTH3Config>& l3IifTH3Config,
                               const Quill::Ptr<P4Runtime::PluginContext>& pluginContext);

}  // namespace P4RuntimeTolmar
