#pragma once

#include <cstddef>
#include <cstdint>

#include "quill/Counted.h"
#include "quill/HashMap2018.h"
#include "quill/TypeNode.h"

namespace P4Runtime {

class VrfId {
 public:
  explicit constexpr VrfId(std::uint16_t value) : value_(value) {}
  constexpr std::uint16_t value() const { return value_; }
  friend constexpr bool operator==(VrfId, VrfId) = default;

 private:
  std::uint16_t value_;
};

/// The VRF ids in use, each with the number of references to it.
class VrfIdCollection : public Quill::Typed<VrfIdCollection, Quill::PtrInterface> {
 public:
  ~VrfIdCollection() override;

  /// Adds `n` references and returns the new count.
  virtual std::uint32_t vrfIdRefCountInc(VrfId id, unsigned int n);
  /// Removes `n` references and returns the new count. A count does not fall below 0; an id whose count is 0
  /// is no longer in use.
  virtual std::uint32_t vrfIdRefCountDec(VrfId id, unsigned int n);

  std::uint32_t vrfIdRefCount(VrfId id) const;
  /// Number of ids with a count above 0.
  std::size_t vrfIds() const noexcept { return vrfIdRefCount_.size(); }
  /// Calls `visit(id, count)` for every id with a count above 0.
  template <class Visit>
  void forEachVrfId(const Visit& visit) const {
    vrfIdRefCount_.forEach(visit);
  }

  static const Quill::TypeNode _quillType;

 private:
  struct QuillVrfIdRefCount {
    using Key = VrfId;
    using Value = std::uint32_t;
    static std::uint32_t hash(VrfId id) { return id.value(); }
    Key key;
    Value value;
  };

  Quill::HashMap2018<QuillVrfIdRefCount> vrfIdRefCount_;
};

}  // namespace P4Runtime
