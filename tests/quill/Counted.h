// An object and a reactor that say what happens to them.
#pragma once

#include <functional>
#include <string>
#include <utility>

#include "quill/Counted.h"

struct Counted : Quill::Counted<Counted, Quill::PtrInterface> {
  /// Told when the object ends; may be null.
  explicit Counted(int* ended = nullptr) : ended_(ended) {}
  ~Counted() override {
    if (ended_ != nullptr) ++*ended_;
  }

  struct NotifieeConst : Quill::NotifieeConst {
    using Quill::NotifieeConst::NotifieeConst;
    virtual void onChange() = 0;
  };
  void change() const {
    notify<NotifieeConst>([](NotifieeConst& reactor) { reactor.onChange(); });
  }

 private:
  int* ended_;  // not owned
};

struct Reactor final : Quill::Counted<Reactor, Counted::NotifieeConst> {
  explicit Reactor(std::function<void()> react) : Counted(Hold::uncounted), react_(std::move(react)) {}

  void onChange() override { react_(); }
  void onZeroReferences() override { ++notifierEnds; }
  void onNotificationException(const std::exception& exception) override { complaints += exception.what(); }

  int notifierEnds = 0;
  std::string complaints;

 private:
  std::function<void()> react_;
};
