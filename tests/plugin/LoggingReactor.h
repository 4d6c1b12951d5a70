// Reactors that write into a log what they are told.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "P4RuntimePlugin/P4RuntimeTolmarPlugin.h"

/// Every notification of the plugin by name.
class LoggingReactor final : public P4RuntimeTolmar::TolmarP4RuntimePlugin::NotifieeConst {
 public:
  LoggingReactor(std::vector<std::string>& log, Hold hold) : NotifieeConst(hold), log_(log) {}

  static Quill::Ptr<LoggingReactor> on(const Quill::Ptr<P4RuntimeTolmar::TolmarP4RuntimePlugin>& plugin,
                                       std::vector<std::string>& log, Hold hold = Hold::counted) {
    const auto reactor = Quill::allocate<LoggingReactor>(log, hold);
    reactor->notifierIs(plugin);
    reactor->isRegisteredNotifieeIs(true);
    return reactor;
  }

  void onCliConfig() override { log_.emplace_back("onCliConfig"); }
  void onCliStatus() override { log_.emplace_back("onCliStatus"); }
  void onPluginContext() override { log_.emplace_back("onPluginContext"); }
  void onPluginConfigDir() override { log_.emplace_back("onPluginConfigDir"); }
  void onPluginStatusDir() override { log_.emplace_back("onPluginStatusDir"); }
  void onAllPluginConfig() override { log_.emplace_back("onAllPluginConfig"); }
  void onPluginStatus() override { log_.emplace_back("onPluginStatus"); }
  void onPluginCleanupSm() override { log_.emplace_back("onPluginCleanupSm"); }
  void onPluginCleanupHelper() override { log_.emplace_back("onPluginCleanupHelper"); }
  void onDefaultPluginCleanupHelper() override { log_.emplace_back("onDefaultPluginCleanupHelper"); }
  void onL3TunnelIpv4TH3Config() override { log_.emplace_back("onL3TunnelIpv4TH3Config"); }
  void onL3TunnelIpv4TH3Status() override { log_.emplace_back("onL3TunnelIpv4TH3Status"); }
  void onL3TunnelIpv6TH3Config() override { log_.emplace_back("onL3TunnelIpv6TH3Config"); }
  void onL3TunnelIpv6TH3Status() override { log_.emplace_back("onL3TunnelIpv6TH3Status"); }
  void onMyStationTcamTH3Config() override { log_.emplace_back("onMyStationTcamTH3Config"); }
  void onMyStationTcamTH3Status() override { log_.emplace_back("onMyStationTcamTH3Status"); }
  void onL3IifTH3Config() override { log_.emplace_back("onL3IifTH3Config"); }
  void onL3IifTH3Status() override { log_.emplace_back("onL3IifTH3Status"); }
  void onVrfSm() override { log_.emplace_back("onVrfSm"); }
  void onL3TunnelIpv4TH3PhpSm() override { log_.emplace_back("onL3TunnelIpv4TH3PhpSm"); }
  void onL3TunnelIpv6TH3PhpSm() override { log_.emplace_back("onL3TunnelIpv6TH3PhpSm"); }
  void onL3IifTH3PhpSm() override { log_.emplace_back("onL3IifTH3PhpSm"); }
  void onMyStationTcamTH3PhpSm() override { log_.emplace_back("onMyStationTcamTH3PhpSm"); }

  inline static Quill::AllocTrackTypeInfo quillAllocTrackTypeInfo_;
  static void operator delete(void* memory) noexcept { Quill::deallocate(memory, quillAllocTrackTypeInfo_); }

 private:
  std::vector<std::string>& log_;
};

/// The completion of cleanups; may do something in it.
class StatusReactor final : public P4Runtime::PluginStatus::NotifieeConst {
 public:
  StatusReactor(std::vector<std::string>& log, std::function<void()> then)
      : log_(log), then_(std::move(then)) {}

  static Quill::Ptr<StatusReactor> on(const Quill::Ptr<P4Runtime::PluginStatus>& status,
                                      std::vector<std::string>& log, std::function<void()> then = nullptr) {
    const auto reactor = Quill::allocate<StatusReactor>(log, std::move(then));
    reactor->notifierIs(status);
    reactor->isRegisteredNotifieeIs(true);
    return reactor;
  }

  void onCleanupsCompleted() override {
    log_.emplace_back("onCleanupsCompleted");
    if (then_) then_();
  }

  inline static Quill::AllocTrackTypeInfo quillAllocTrackTypeInfo_;
  static void operator delete(void* memory) noexcept { Quill::deallocate(memory, quillAllocTrackTypeInfo_); }

 private:
  std::vector<std::string>& log_;
  std::function<void()> then_;
};

/// The loss of an object's last reference.
class ReleaseWatcher final : public Quill::NotifieeConst {
 public:
  ReleaseWatcher(const char* name, std::vector<std::string>& log)
      : NotifieeConst(Hold::uncounted), name_(name), log_(log) {}

  static Quill::Ptr<ReleaseWatcher> on(const Quill::Ptr<const Quill::PtrInterface>& object, const char* name,
                                       std::vector<std::string>& log) {
    const auto watcher = Quill::allocate<ReleaseWatcher>(name, log);
    watcher->hasNotificationActiveIs(false);
    watcher->notifierIs(object);
    watcher->isRegisteredNotifieeIs(true);
    return watcher;
  }

  void onZeroReferences() override { log_.emplace_back(name_); }

  inline static Quill::AllocTrackTypeInfo quillAllocTrackTypeInfo_;
  static void operator delete(void* memory) noexcept { Quill::deallocate(memory, quillAllocTrackTypeInfo_); }

 private:
  const char* name_;
  std::vector<std::string>& log_;
};
