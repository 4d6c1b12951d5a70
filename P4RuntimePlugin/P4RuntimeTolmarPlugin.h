// The plugin object: four hardware tables, each mounted as a config and a status table and registered with
// the agent's row database, and the components that follow them.
#pragma once

#include "P4RuntimePlugin/PendingHwProgrammingSms.h"
#include "P4RuntimePlugin/PluginCleanupHelper.h"
#include "P4RuntimePlugin/VrfSm.h"
#include "P4RuntimeTolmar/OutputTables.h"
#include "p4runtime/P4RuntimePluginBase.h"

namespace P4Runtime {
class P4RuntimePluginHelper;
}

namespace P4RuntimeTolmar {

class TolmarP4RuntimePlugin final
    : public Quill::Typed<TolmarP4RuntimePlugin, P4Runtime::P4RuntimePluginBase> {
 public:
  using L3TunnelConfigPtr = Quill::Ptr<TolmarHwLib::L3TunnelTH3Config>;
  using L3TunnelStatusPtr = Quill::Ptr<TolmarHwLib::L3TunnelTH3Status>;
  using MyStationTcamConfigPtr = Quill::Ptr<TolmarHwLib::MyStationTcamTH3Config>;
  using MyStationTcamStatusPtr = Quill::Ptr<TolmarHwLib::MyStationTcamTH3Status>;
  using L3IifConfigPtr = Quill::Ptr<TolmarHwLib::L3IifTH3Config>;
  using L3IifStatusPtr = Quill::Ptr<TolmarHwLib::L3IifTH3Status>;
  using L3TunnelSmPtr = Quill::Ptr<TolmarHwLib::L3TunnelTH3PendingHwProgrammingSm>;
  using MyStationTcamSmPtr = Quill::Ptr<TolmarHwLib::MyStationTcamTH3PendingHwProgrammingSm>;
  using L3IifSmPtr = Quill::Ptr<TolmarHwLib::L3IifTH3PendingHwProgrammingSm>;

  /// Every attribute of its own is null until pluginInit.
  explicit TolmarP4RuntimePlugin(const Quill::Name& name);
  /// Switches the VRF tracker off and releases every component. Tables stay mounted and registered.
  ~TolmarP4RuntimePlugin() override;

  /// Changes nothing: the components are made by pluginInit, whatever becomes of the mounts.
  void doMountsComplete(Orrery::MountStatus mountStatus,
                        const Quill::Ptr<Orrery::EntityManager>& mountGroup) override;
  /// Mounts and registers the tables and makes the components, in one pass. What fails on the way passes on;
  /// what is done stays done. The process stops when pluginContext has no row database.
  void pluginInit(const Quill::Ptr<P4Runtime::PluginContext>& context) override;
  /// Unmounts the four config tables and nothing else; the rest goes with the plugin. What fails passes on.
  void doCleanup();

  class NotifieeConst : public P4Runtime::P4RuntimePluginBase::NotifieeConst {
   public:
    using P4Runtime::P4RuntimePluginBase::NotifieeConst::NotifieeConst;
    ~NotifieeConst() override;
    // One for each attribute, in slot order; each does nothing by default.
    virtual void onL3TunnelIpv4TH3Config();
    virtual void onL3TunnelIpv4TH3Status();
    virtual void onL3TunnelIpv6TH3Config();
    virtual void onL3TunnelIpv6TH3Status();
    virtual void onMyStationTcamTH3Config();
    virtual void onMyStationTcamTH3Status();
    virtual void onL3IifTH3Config();
    virtual void onL3IifTH3Status();
    virtual void onVrfSm();
    virtual void onL3TunnelIpv4TH3PhpSm();
    virtual void onL3TunnelIpv6TH3PhpSm();
    virtual void onL3IifTH3PhpSm();
    virtual void onMyStationTcamTH3PhpSm();
  };

  const L3TunnelConfigPtr& l3TunnelIpv4TH3Config() const noexcept { return l3TunnelIpv4TH3Config_; }
  void l3TunnelIpv4TH3ConfigIs(const L3TunnelConfigPtr& value);
  const L3TunnelStatusPtr& l3TunnelIpv4TH3Status() const noexcept { return l3TunnelIpv4TH3Status_; }
  void l3TunnelIpv4TH3StatusIs(const L3TunnelStatusPtr& value);
  const L3TunnelConfigPtr& l3TunnelIpv6TH3Config() const noexcept { return l3TunnelIpv6TH3Config_; }
  void l3TunnelIpv6TH3ConfigIs(const L3TunnelConfigPtr& value);
  const L3TunnelStatusPtr& l3TunnelIpv6TH3Status() const noexcept { return l3TunnelIpv6TH3Status_; }
  void l3TunnelIpv6TH3StatusIs(const L3TunnelStatusPtr& value);
  const MyStationTcamConfigPtr& myStationTcamTH3Config() const noexcept { return myStationTcamTH3Config_; }
  void myStationTcamTH3ConfigIs(const MyStationTcamConfigPtr& value);
  const MyStationTcamStatusPtr& myStationTcamTH3Status() const noexcept { return myStationTcamTH3Status_; }
  void myStationTcamTH3StatusIs(const MyStationTcamStatusPtr& value);
  const L3IifConfigPtr& l3IifTH3Config() const noexcept { return l3IifTH3Config_; }
  void l3IifTH3ConfigIs(const L3IifConfigPtr& value);
  const L3IifStatusPtr& l3IifTH3Status() const noexcept { return l3IifTH3Status_; }
  void l3IifTH3StatusIs(const L3IifStatusPtr& value);

  const Quill::Ptr<VrfSm>& vrfSm() const noexcept { return vrfSm_; }
  /// The tracker over this table and context: the present one when it is over both already, else a new one. A
  /// present one that is replaced is released but not switched off, on purpose.
  Quill::Ptr<VrfSm> vrfSmIs(const Quill::Ptr<const TolmarHwLib::L3IifTH3Config>& config,
                            const Quill::Ptr<P4Runtime::PluginContext>& context);
  /// Takes the tracker out and switches it off; returns it, or null when there is none.
  Quill::Ptr<VrfSm> vrfSmDel();

  const L3TunnelSmPtr& l3TunnelIpv4TH3PhpSm() const noexcept { return l3TunnelIpv4TH3PhpSm_; }
  void l3TunnelIpv4TH3PhpSmIs(const L3TunnelSmPtr& value);
  const L3TunnelSmPtr& l3TunnelIpv6TH3PhpSm() const noexcept { return l3TunnelIpv6TH3PhpSm_; }
  void l3TunnelIpv6TH3PhpSmIs(const L3TunnelSmPtr& value);
  const L3IifSmPtr& l3IifTH3PhpSm() const noexcept { return l3IifTH3PhpSm_; }
  void l3IifTH3PhpSmIs(const L3IifSmPtr& value);
  const MyStationTcamSmPtr& myStationTcamTH3PhpSm() const noexcept { return myStationTcamTH3PhpSm_; }
  void myStationTcamTH3PhpSmIs(const MyStationTcamSmPtr& value);

  static const Quill::TypeNode _quillType;

 private:
  void setUpTables(P4Runtime::P4RuntimePluginHelper& helper);
  void wireComponents(const Quill::Ptr<P4Runtime::PluginContext>& context);

  L3TunnelConfigPtr l3TunnelIpv4TH3Config_;
  L3TunnelStatusPtr l3TunnelIpv4TH3Status_;
  L3TunnelConfigPtr l3TunnelIpv6TH3Config_;
  L3TunnelStatusPtr l3TunnelIpv6TH3Status_;
  MyStationTcamConfigPtr myStationTcamTH3Config_;
  MyStationTcamStatusPtr myStationTcamTH3Status_;
  L3IifConfigPtr l3IifTH3Config_;
  L3IifStatusPtr l3IifTH3Status_;
  Quill::Ptr<VrfSm> vrfSm_;
  L3TunnelSmPtr l3TunnelIpv4TH3PhpSm_;
  L3TunnelSmPtr l3TunnelIpv6TH3PhpSm_;
  L3IifSmPtr l3IifTH3PhpSm_;
  MyStationTcamSmPtr myStationTcamTH3PhpSm_;
};

/// The factory that the generic interface uses.
Quill::Ptr<TolmarP4RuntimePlugin> tolmarP4RuntimePluginFactory(const Quill::Name& name);

}  // namespace P4RuntimeTolmar
