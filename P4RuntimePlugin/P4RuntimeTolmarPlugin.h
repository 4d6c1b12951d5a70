// The plugin object, which mounts the output tables, registers them with the agent's row database and owns
// the components that follow them; and the loader that makes it.
#pragma once

#include "P4RuntimePlugin/PendingHwProgrammingSms.h"
#include "P4RuntimePlugin/PluginCleanupHelper.h"
#include "P4RuntimePlugin/VrfSm.h"
#include "P4RuntimeTolmar/OutputTables.h"
#include "p4runtime/Loader.h"
#include "p4runtime/P4RuntimePluginBase.h"
#include "quill/Attribute.h"

namespace P4Runtime {
class P4RuntimePluginHelper;
}

namespace P4RuntimeTolmar {

using TolmarHwLib::L3IifTH3;
using TolmarHwLib::L3TunnelTH3;
using TolmarHwLib::MyStationTcamTH3;

class TolmarP4RuntimePlugin final
    : public Quill::Typed<TolmarP4RuntimePlugin, P4Runtime::P4RuntimePluginBase> {
 public:
  template <class Kind>
  using ConfigPtr = Quill::Ptr<typename Kind::Config>;
  template <class Kind>
  using StatusPtr = Quill::Ptr<typename Kind::Status>;
  template <class Kind>
  using TrackerPtr = Quill::Ptr<typename TolmarHwLib::TrackerOf<Kind>::type>;

  /// Its own attributes are null until pluginInit.
  explicit TolmarP4RuntimePlugin(const Quill::Name& name);
  /// Switches the VRF tracker off and releases every component. Tables stay mounted and registered.
  ~TolmarP4RuntimePlugin() override;

  /// Traces only: pluginInit makes the components before the mounts have completed.
  void doMountsComplete(Orrery::MountStatus mountStatus,
                        const Quill::Ptr<Orrery::EntityManager>& mountGroup) override;
  /// Mounts and registers the tables, then makes the components. Exceptions pass through; what was done
  /// before remains. Stops the process if pluginContext has no row database.
  void pluginInit(const Quill::Ptr<P4Runtime::PluginContext>& context) override;
  /// Unmounts the config tables; everything else is released with the plugin. Exceptions pass through.
  void doCleanup();

  class NotifieeConst : public Quill::Typed<NotifieeConst, P4Runtime::P4RuntimePluginBase::NotifieeConst> {
   public:
    using Typed::Typed;
    ~NotifieeConst() override;
    static const Quill::TypeNode _quillType;
    // One for each attribute, in slot order.
    virtual void onL3TunnelIpv4TH3Config() { observe("l3TunnelIpv4TH3Config"); }
    virtual void onL3TunnelIpv4TH3Status() { observe("l3TunnelIpv4TH3Status"); }
    virtual void onL3TunnelIpv6TH3Config() { observe("l3TunnelIpv6TH3Config"); }
    virtual void onL3TunnelIpv6TH3Status() { observe("l3TunnelIpv6TH3Status"); }
    virtual void onMyStationTcamTH3Config() { observe("myStationTcamTH3Config"); }
    virtual void onMyStationTcamTH3Status() { observe("myStationTcamTH3Status"); }
    virtual void onL3IifTH3Config() { observe("l3IifTH3Config"); }
    virtual void onL3IifTH3Status() { observe("l3IifTH3Status"); }
    virtual void onVrfSm() { observe("vrfSm"); }
    virtual void onL3TunnelIpv4TH3PhpSm() { observe("l3TunnelIpv4TH3PhpSm"); }
    virtual void onL3TunnelIpv6TH3PhpSm() { observe("l3TunnelIpv6TH3PhpSm"); }
    virtual void onL3IifTH3PhpSm() { observe("l3IifTH3PhpSm"); }
    virtual void onMyStationTcamTH3PhpSm() { observe("myStationTcamTH3PhpSm"); }
  };

  const ConfigPtr<L3TunnelTH3>& l3TunnelIpv4TH3Config() const noexcept {
    return l3TunnelIpv4TH3Config_.value;
  }
  void l3TunnelIpv4TH3ConfigIs(const ConfigPtr<L3TunnelTH3>& value) {
    l3TunnelIpv4TH3Config_.set(*this, value);
  }
  const StatusPtr<L3TunnelTH3>& l3TunnelIpv4TH3Status() const noexcept {
    return l3TunnelIpv4TH3Status_.value;
  }
  void l3TunnelIpv4TH3StatusIs(const StatusPtr<L3TunnelTH3>& value) {
    l3TunnelIpv4TH3Status_.set(*this, value);
  }
  const ConfigPtr<L3TunnelTH3>& l3TunnelIpv6TH3Config() const noexcept {
    return l3TunnelIpv6TH3Config_.value;
  }
  void l3TunnelIpv6TH3ConfigIs(const ConfigPtr<L3TunnelTH3>& value) {
    l3TunnelIpv6TH3Config_.set(*this, value);
  }
  const StatusPtr<L3TunnelTH3>& l3TunnelIpv6TH3Status() const noexcept {
    return l3TunnelIpv6TH3Status_.value;
  }
  void l3TunnelIpv6TH3StatusIs(const StatusPtr<L3TunnelTH3>& value) {
    l3TunnelIpv6TH3Status_.set(*this, value);
  }
  const ConfigPtr<MyStationTcamTH3>& myStationTcamTH3Config() const noexcept {
    return myStationTcamTH3Config_.value;
  }
  void myStationTcamTH3ConfigIs(const ConfigPtr<MyStationTcamTH3>& value) {
    myStationTcamTH3Config_.set(*this, value);
  }
  const StatusPtr<MyStationTcamTH3>& myStationTcamTH3Status() const noexcept {
    return myStationTcamTH3Status_.value;
  }
  void myStationTcamTH3StatusIs(const StatusPtr<MyStationTcamTH3>& value) {
    myStationTcamTH3Status_.set(*this, value);
  }
  const ConfigPtr<L3IifTH3>& l3IifTH3Config() const noexcept { return l3IifTH3Config_.value; }
  void l3IifTH3ConfigIs(const ConfigPtr<L3IifTH3>& value) { l3IifTH3Config_.set(*this, value); }
  const StatusPtr<L3IifTH3>& l3IifTH3Status() const noexcept { return l3IifTH3Status_.value; }
  void l3IifTH3StatusIs(const StatusPtr<L3IifTH3>& value) { l3IifTH3Status_.set(*this, value); }

  const Quill::Ptr<VrfSm>& vrfSm() const noexcept { return vrfSm_; }
  /// Returns the current tracker if it has this table and context; otherwise replaces it by a new one. The
  /// replaced tracker is released but not switched off, on purpose.
  Quill::Ptr<VrfSm> vrfSmIs(const Quill::Ptr<const TolmarHwLib::L3IifTH3Config>& config,
                            const Quill::Ptr<P4Runtime::PluginContext>& context);
  /// Removes the tracker, switches it off and returns it; null if there is none.
  Quill::Ptr<VrfSm> vrfSmDel();

  const TrackerPtr<L3TunnelTH3>& l3TunnelIpv4TH3PhpSm() const noexcept { return l3TunnelIpv4TH3PhpSm_.value; }
  void l3TunnelIpv4TH3PhpSmIs(const TrackerPtr<L3TunnelTH3>& value) {
    l3TunnelIpv4TH3PhpSm_.set(*this, value);
  }
  const TrackerPtr<L3TunnelTH3>& l3TunnelIpv6TH3PhpSm() const noexcept { return l3TunnelIpv6TH3PhpSm_.value; }
  void l3TunnelIpv6TH3PhpSmIs(const TrackerPtr<L3TunnelTH3>& value) {
    l3TunnelIpv6TH3PhpSm_.set(*this, value);
  }
  const TrackerPtr<L3IifTH3>& l3IifTH3PhpSm() const noexcept { return l3IifTH3PhpSm_.value; }
  void l3IifTH3PhpSmIs(const TrackerPtr<L3IifTH3>& value) { l3IifTH3PhpSm_.set(*this, value); }
  const TrackerPtr<MyStationTcamTH3>& myStationTcamTH3PhpSm() const noexcept {
    return myStationTcamTH3PhpSm_.value;
  }
  void myStationTcamTH3PhpSmIs(const TrackerPtr<MyStationTcamTH3>& value) {
    myStationTcamTH3PhpSm_.set(*this, value);
  }

  static const Quill::TypeNode _quillType;

 private:
  struct Attributes;

  void setUpTables(P4Runtime::P4RuntimePluginHelper& helper);
  void wireComponents(const Quill::Ptr<P4Runtime::PluginContext>& context);

  // Released in reverse order.
  Quill::Attribute<ConfigPtr<L3TunnelTH3>, &NotifieeConst::onL3TunnelIpv4TH3Config> l3TunnelIpv4TH3Config_;
  Quill::Attribute<StatusPtr<L3TunnelTH3>, &NotifieeConst::onL3TunnelIpv4TH3Status> l3TunnelIpv4TH3Status_;
  Quill::Attribute<ConfigPtr<L3TunnelTH3>, &NotifieeConst::onL3TunnelIpv6TH3Config> l3TunnelIpv6TH3Config_;
  Quill::Attribute<StatusPtr<L3TunnelTH3>, &NotifieeConst::onL3TunnelIpv6TH3Status> l3TunnelIpv6TH3Status_;
  Quill::Attribute<ConfigPtr<MyStationTcamTH3>, &NotifieeConst::onMyStationTcamTH3Config>
      myStationTcamTH3Config_;
  Quill::Attribute<StatusPtr<MyStationTcamTH3>, &NotifieeConst::onMyStationTcamTH3Status>
      myStationTcamTH3Status_;
  Quill::Attribute<ConfigPtr<L3IifTH3>, &NotifieeConst::onL3IifTH3Config> l3IifTH3Config_;
  Quill::Attribute<StatusPtr<L3IifTH3>, &NotifieeConst::onL3IifTH3Status> l3IifTH3Status_;
  Quill::Ptr<VrfSm> vrfSm_;
  Quill::Attribute<TrackerPtr<L3TunnelTH3>, &NotifieeConst::onL3TunnelIpv4TH3PhpSm> l3TunnelIpv4TH3PhpSm_;
  Quill::Attribute<TrackerPtr<L3TunnelTH3>, &NotifieeConst::onL3TunnelIpv6TH3PhpSm> l3TunnelIpv6TH3PhpSm_;
  Quill::Attribute<TrackerPtr<L3IifTH3>, &NotifieeConst::onL3IifTH3PhpSm> l3IifTH3PhpSm_;
  Quill::Attribute<TrackerPtr<MyStationTcamTH3>, &NotifieeConst::onMyStationTcamTH3PhpSm>
      myStationTcamTH3PhpSm_;
};

/// The factory of the generic interface.
Quill::Ptr<TolmarP4RuntimePlugin> tolmarP4RuntimePluginFactory(const Quill::Name& name);

/// Registers the plugin with the agent's default loader and makes the plugin object when the agent runs its
/// callers. One static object.
class TolmarP4RuntimePluginLoader final : private PluginBase<P4Runtime::PluginContext> {
 public:
  TolmarP4RuntimePluginLoader();
  ~TolmarP4RuntimePluginLoader() override;

  /// A second call makes a second plugin and releases the first.
  void init(P4Runtime::PluginContext* context) override;

  /// Null until init.
  const Quill::Ptr<TolmarP4RuntimePlugin>& plugin() const noexcept { return plugin_; }

 private:
  Quill::Ptr<TolmarP4RuntimePlugin> plugin_;
};

}  // namespace P4RuntimeTolmar
