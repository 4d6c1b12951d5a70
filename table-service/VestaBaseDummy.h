#pragma once

#include "cairn/Assert.h"
#include "vesta/VestaBase.h"

namespace Vesta {

/// Replaces the table object after its segment was found corrupt: reads as empty, refuses writes.
template <class Key, class Entry>
class VestaBaseDummy final : public VestaDebug, public VestaBase<Key, Entry> {
 public:
  using Base = VestaBase<Key, Entry>;
  using typename Base::Row;

  /// `owned`, the replaced table object, may be null; cleanup() is passed on to it.
  VestaBaseDummy(std::shared_ptr<const Cairn::DebugHandler> handler, const RootPath& rootPath,
                 std::unique_ptr<Base> owned)
      : VestaDebug(std::move(handler)),
        name_(rootPath.text()),
        rootPath_(rootPath),
        owned_(std::move(owned)) {}
  ~VestaBaseDummy() override { owned_.reset(); }

  bool initialize() override { return say("VestaBaseDummy::initialize() ", "initialize"), true; }
  void detach() override { say("VestaBaseDummy::detach() ", "detach"); }
  bool validate() override { return say("VestaBaseDummy::validate() ", "validate"), true; }
  bool validateFiles() override { return say("VestaBaseDummy::validateFiles() ", "validateFiles"), true; }
  void cleanup() override {
    say("VestaBaseDummy::cleanup() ", "cleanup");
    if (owned_) owned_->cleanup();
  }
  const Row& lookup(const Key&, bool& found, IterHint*) override {
    say("VestaBaseDummy::lookup() ", "lookup");
    found = false;
    return emptyValue_;
  }
  bool first(Row& value, IterHint&) override {
    say("VestaBaseDummy::first() ", "first");
    value = emptyValue_;
    return false;
  }
  bool next(const Key&, Row& value, IterHint& hint) override {
    say("VestaBaseDummy::next() ", "next");
    return this->first(value, hint);
  }
  std::size_t members() override { return say("VestaBaseDummy::members() ", "members"), 0; }
  std::size_t minSize() override { return say("VestaBaseDummy::minSize() ", "minSize"), 0; }
  std::size_t maxSize() override { return say("VestaBaseDummy::maxSize() ", "maxSize"), 0; }
  std::size_t capacity() override { return say("VestaBaseDummy::capacity() ", "capacity"), 0; }
  VestaType type() override { return say("VestaBaseDummy::type() ", "type"), VestaType::readOnlyPlaceholder; }
  ReaderCounters readerCounters() override {
    return say("VestaBaseDummy::readerCounters() ", "readerCounters"), ReaderCounters{};
  }
  RootPath rootPath() override { return rootPath_; }
  std::string vestaName() override { return rootPath_.vestaName(); }
  MountStatus mountStatus() override {
    return say("VestaBaseDummy::mountStatus() ", "mountStatus"), MountStatus::mounted;
  }
  bool validateVersionAnchor(const VersionAnchor&) override {
    Cairn::assertionFailed(
        "VestaBaseDummy::validateVersionAnchor() should never be called since it's impossible for a "
        "lookup to succeed",
        "validateVersionAnchor");
  }

 private:
  // The texts end in a blank, which separates them from the name.
  void say(const char* text, const char* operation) const {
    if (debugHandler()->wants(Cairn::DebugHandler::kDebugFlag)) {
      debugHandler()->log(5, "VestaBaseDummy", 0, operation, text + name_);
    }
  }

  Row emptyValue_{};
  std::string name_;
  RootPath rootPath_;
  std::unique_ptr<Base> owned_;
};

}  // namespace Vesta
