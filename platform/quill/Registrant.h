#pragma once

#include <utility>

namespace Quill {

/// A library, or anything else that is loaded and unloaded as a whole, as the process-wide registries know
/// it. Each registry records the current registrant with what is registered, so that all of it can be removed
/// before its code is unmapped. One thread.
class Registrant {
 public:
  Registrant() = default;
  Registrant(const Registrant&) = delete;
  Registrant& operator=(const Registrant&) = delete;

  /// The registrant of the innermost scope, or null for the process's own registrations.
  static const Registrant* current() noexcept { return current_; }

  /// What is registered during its life is recorded under `registrant`.
  class Scope {
   public:
    explicit Scope(const Registrant& registrant) noexcept : outer_(std::exchange(current_, &registrant)) {}
    ~Scope() { current_ = outer_; }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

   private:
    const Registrant* outer_;  // not owned
  };

 private:
  inline static const Registrant* current_ = nullptr;  // not owned
};

}  // namespace Quill
