#pragma once

namespace Lumen {

/// Keeps a flag true for the time of a scope.
class Raised {
 public:
  explicit Raised(bool& flag) noexcept : flag_(flag) { flag_ = true; }
  ~Raised() { flag_ = false; }
  Raised(const Raised&) = delete;
  Raised& operator=(const Raised&) = delete;

 private:
  bool& flag_;
};

}  // namespace Lumen
