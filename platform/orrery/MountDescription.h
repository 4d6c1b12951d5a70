#pragma once

#include "quill/String.h"

namespace QuillVesta {

/// Which side of a shared-memory table this process is on.
enum class QuillVestaType : int {
  writer = 0,  ///< the table that this process writes; rows that are there are kept
  reader = 1,  ///< a table that another process writes
};

/// What is mounted: the side, and the one keyed collection with its greatest number of entries.
class MountDescription {
 public:
  explicit MountDescription(QuillVestaType type) : type_(type) {}

  void collectionIs(Quill::String name, unsigned capacity) {
    collection_ = std::move(name);
    capacity_ = capacity;
  }

  QuillVestaType type() const noexcept { return type_; }
  const Quill::String& collection() const noexcept { return collection_; }
  unsigned capacity() const noexcept { return capacity_; }

  friend bool operator==(const MountDescription&, const MountDescription&) = default;

 private:
  QuillVestaType type_;
  Quill::String collection_;
  unsigned capacity_ = 0;
};

}  // namespace QuillVesta
