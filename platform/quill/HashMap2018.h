#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace Quill {

/// A hash map of nodes. `Node` is a movable aggregate of `Key key` and `Value value` that names both types
/// and offers `static std::uint32_t hash(const Key&)`; keys are compared with ==.
///
/// Nodes are stored in one array and chained by position, so that iterators stay valid when nodes are added
/// or removed, and the place of a removed node is reused without an allocation. References to values are
/// valid until the next addition.
template <class Node>
class HashMap2018 {
 public:
  using Key = typename Node::Key;
  using Value = typename Node::Value;

  class Iterator {
   public:
    /// False at the end, and after the current node has been removed.
    bool nonNull() const { return at_ < map_->slots_.size() && map_->slots_[at_].node.has_value(); }
    explicit operator bool() const { return nonNull(); }
    const Key& key() const { return map_->slots_[at_].node->key; }
    Value& value() const { return map_->slots_[at_].node->value; }
    void next() { at_ = map_->occupiedFrom(at_ + 1); }
    /// Removes the current node; next() continues with the one after it.
    void del() { map_->del(Key(key())); }

   private:
    friend class HashMap2018;
    Iterator(HashMap2018& map, std::size_t at) : map_(&map), at_(at) {}
    HashMap2018* map_;  // not owned
    std::size_t at_;
  };

  std::size_t size() const noexcept { return size_; }
  bool empty() const noexcept { return size_ == 0; }

  const Value* find(const Key& key) const {
    const std::uint32_t at = position(key);
    return at == kNone ? nullptr : &slots_[at].node->value;
  }
  Value* find(const Key& key) { return const_cast<Value*>(std::as_const(*this).find(key)); }

  /// Adds the node, or replaces the value of the node with the same key.
  void set(const Key& key, Value value) {
    if (Value* present = find(key)) {
      *present = std::move(value);
      return;
    }
    if (size_ >= buckets_.size()) grow();
    const std::uint32_t at = freePlace();
    slots_[at].node.emplace(Node{key, std::move(value)});
    chain(at);
    ++size_;
  }

  /// False if there is no such node.
  bool del(const Key& key) {
    if (buckets_.empty()) return false;
    for (std::uint32_t* link = &buckets_[bucketOf(key)]; *link != kNone; link = &slots_[*link].next) {
      const std::uint32_t at = *link;
      if (!(slots_[at].node->key == key)) continue;
      *link = slots_[at].next;
      slots_[at].node.reset();
      slots_[at].next = std::exchange(free_, at);
      --size_;
      return true;
    }
    return false;
  }

  void clear() {
    // A map that once was large has many buckets for few nodes: only those of its nodes are in use.
    if (slots_.size() < buckets_.size() / 16) {
      forEach([this](const Key& key, const Value&) { buckets_[bucketOf(key)] = kNone; });
    } else {
      buckets_.assign(buckets_.size(), kNone);
    }
    slots_.clear();
    free_ = kNone;
    size_ = 0;
  }

  Iterator first() { return Iterator(*this, occupiedFrom(0)); }

  /// Calls `visit(key, value)` for every node.
  template <class Visit>
  void forEach(const Visit& visit) const {
    for (const Slot& slot : slots_) {
      if (slot.node) visit(slot.node->key, slot.node->value);
    }
  }

 private:
  static constexpr std::uint32_t kNone = UINT32_MAX;
  static constexpr std::size_t kFirstBuckets = 16;

  struct Slot {
    std::optional<Node> node;
    std::uint32_t next = kNone;  // in the bucket's chain, or in the chain of free places
  };

  std::size_t bucketOf(const Key& key) const {
    // Fibonacci mixing: the number of buckets is a power of two, and hashes may differ in their upper bits
    // only.
    const std::uint64_t mixed = std::uint64_t{Node::hash(key)} * 0x9e3779b97f4a7c15u;
    return static_cast<std::size_t>(mixed >> 32) & (buckets_.size() - 1);
  }

  std::uint32_t position(const Key& key) const {
    if (buckets_.empty()) return kNone;
    std::uint32_t at = buckets_[bucketOf(key)];
    while (at != kNone && !(slots_[at].node->key == key)) at = slots_[at].next;
    return at;
  }

  std::uint32_t freePlace() {
    if (free_ != kNone) {
      const std::uint32_t at = free_;
      free_ = slots_[at].next;
      return at;
    }
    slots_.emplace_back();
    return static_cast<std::uint32_t>(slots_.size() - 1);
  }

  void chain(std::uint32_t at) {
    std::uint32_t& bucket = buckets_[bucketOf(slots_[at].node->key)];
    slots_[at].next = std::exchange(bucket, at);
  }

  void grow() {
    buckets_.assign(buckets_.empty() ? kFirstBuckets : buckets_.size() * 2, kNone);
    for (std::uint32_t at = 0; at < slots_.size(); ++at) {
      if (slots_[at].node) chain(at);
    }
  }

  std::size_t occupiedFrom(std::size_t at) const {
    while (at < slots_.size() && !slots_[at].node) ++at;
    return at;
  }

  std::vector<Slot> slots_;
  std::vector<std::uint32_t> buckets_;  // heads of the chains; a power of two
  std::uint32_t free_ = kNone;
  std::size_t size_ = 0;
};

}  // namespace Quill
