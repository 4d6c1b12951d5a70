// What the plugin works with, real in all it does, with one log of all calls; and what it traces.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <sstream>

#include "RecordingPlatform.h"
#include "p4runtime/PluginContext.h"
#include "p4runtime/PluginStatus.h"
#include "quill/EventLoop.h"
#include "quill/TraceHandle.h"
#include "skein/Skein.h"
#include "skein/TraceReader.h"
#include "tests/NothingLeft.h"
#include "tests/RuntimeFolder.h"

/// All tests run a second time with atomic counting, asked for by the environment.
inline const bool threadSafePtrs = [] {
  const bool asked = std::getenv("TOLMAR_THREAD_SAFE_PTRS") != nullptr;
  Quill::PtrInterface::threadSafePtrsIs(asked);
  return asked;
}();

class RecordingBatchStatus final : public P4Runtime::BatchStatus {
 public:
  explicit RecordingBatchStatus(Log& log) : log_(log) {}

  std::function<void()> onCompleted;  ///< runs in the middle of a tracker's work; may be empty

  void completedTransactionStatusIs(const P4Runtime::BatchStatusEntry& entry) override {
    log_.push_back("completed " + std::to_string(entry.entryHandle) + " " + std::to_string(entry.errorCode));
    BatchStatus::completedTransactionStatusIs(entry);
    if (onCompleted) onCompleted();
  }

 private:
  Log& log_;
};

class PluginFixture : public ::testing::Test {
 protected:
  // A wrapper holds the database that holds it.
  ~PluginFixture() override {
    for (const auto& table : lumenDb_->tables()) lumenDb_->tableImplementationDel(table->name());
  }

  Log taken() { return std::exchange(log_, {}); }

  const NothingLeft nothingLeft_;
  const RuntimeFolder folder_;
  Log log_;
  Quill::EventLoop loop_;
  const Quill::Ptr<RecordingEntityManager> entityManager_ =
      Quill::allocate<RecordingEntityManager>(folder_.path(), loop_, log_);
  const std::shared_ptr<RecordingLumenDB> lumenDb_ = std::make_shared<RecordingLumenDB>(log_);
  const Quill::Ptr<RecordingBatchStatus> batch_ = Quill::allocate<RecordingBatchStatus>(log_);
  const Quill::Ptr<P4Runtime::VrfIdCollection> vrfs_ = Quill::allocate<P4Runtime::VrfIdCollection>();
  const Quill::Ptr<P4Runtime::PluginContext> context_ =
      Quill::allocate<P4Runtime::PluginContext>(entityManager_, lumenDb_, batch_, vrfs_);
};

/// Told when an object loses its last reference or, on a plugin status, when a cleanup is completed.
class Watcher final : public P4Runtime::PluginStatus::NotifieeConst {
 public:
  using Call = std::function<void()>;
  Watcher(Call ended, Call completed)
      : NotifieeConst(Hold::uncounted), ended_(std::move(ended)), completed_(std::move(completed)) {}
  static Quill::Ptr<Watcher> on(const Quill::Ptr<const Quill::PtrInterface>& object, const Call& ended,
                                const Call& completed = {}) {
    const auto watcher = Quill::allocate<Watcher>(ended, completed);
    watcher->hasNotificationActiveIs(static_cast<bool>(completed));
    watcher->notifierIs(object);
    watcher->isRegisteredNotifieeIs(true);
    return watcher;
  }
  void onZeroReferences() override {
    if (ended_) ended_();
  }
  void onCleanupsCompleted() override { completed_(); }

  inline static Quill::AllocTrackTypeInfo quillAllocTrackTypeInfo_;
  static void operator delete(void* memory) noexcept { Quill::deallocate(memory, quillAllocTrackTypeInfo_); }

 private:
  Call ended_;
  Call completed_;
};

/// What is traced from here on, by the one handle at the one level and on the fast trace, as
/// "source:line function: text"; on the fast trace with "|value" behind it for each value.
class Traces {
 public:
  Traces(const RuntimeFolder& folder, const char* handle, int level)
      : ring_(folder.path() + "/ring"), handle_(handle), level_(level) {
    Skein::ringIs(ring_, 64 * 1024);
    before_ = Skein::readTrace(ring_).size();
    Quill::TraceHandle::levelIs(handle_, level_, true);
    Quill::TraceHandle::sinkIs([this](const Quill::TraceHandle::Line& l) {
      EXPECT_EQ(l.handle, handle_);
      EXPECT_EQ(l.level, level_);
      std::ostringstream line;
      line << l.source << ":" << l.line << " " << l.function << ": " << l.text;
      ofHandle.push_back(line.str());
    });
  }
  ~Traces() {
    Quill::TraceHandle::levelIs(handle_, level_, false);
    Quill::TraceHandle::sinkIs(nullptr);
  }
  Traces(const Traces&) = delete;
  Traces& operator=(const Traces&) = delete;

  Log ofHandle;
  Log fast() const {
    Log lines;
    const auto records = Skein::readTrace(ring_);
    for (std::size_t i = before_; i < records.size(); ++i) {
      const Skein::TraceSite& site = *records[i].site;
      std::ostringstream line;
      line << site.source << ":" << site.line << " " << site.function << ": " << records[i].text();
      for (const std::string& value : records[i].values) line << "|" << value;
      lines.push_back(line.str());
    }
    return lines;
  }

 private:
  std::string ring_;
  const char* handle_;
  int level_;
  std::size_t before_ = 0;
};
