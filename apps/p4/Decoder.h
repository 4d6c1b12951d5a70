// From P4Runtime's entities to rows.
#pragma once

#include <cstddef>
#include <string_view>

#include "apps/core/Batch.h"
#include "apps/core/Status.h"
#include "apps/p4/Pipeline.h"
#include "p4/v1/p4runtime.pb.h"
#include "rows/BaseRow.h"

namespace Wire {

struct DecodedUpdate {
  Agent::UpdateType type = Agent::UpdateType::insert;
  /// Not owned. Set as soon as it is known, so also for an update refused for what follows.
  const Table* table = nullptr;
  /// Key columns and, except for a removal, data columns; all others are zero.
  Lumen::BaseRow row;
  /// The controller's own bytes; they are the message's. Empty for a removal.
  std::string_view metadata;
};

/// What one element of a Read asks for.
struct ReadFilter {
  const Table* table = nullptr;  ///< not owned; null for all tables
  Lumen::BaseRow key;            ///< a null row for all entries
};

/// Codes: OUT_OF_RANGE for an empty value and for one wider than its field, UNIMPLEMENTED for an entity other
/// than a table entry, INVALID_ARGUMENT for everything else that is malformed. A removal is decoded by its
/// key alone.
///
/// Thread safety: any thread, since nothing changes. Each call allocates the row and, on failure, the text.
class Decoder {
 public:
  static constexpr std::size_t kDefaultMaxMetadata = 1024;

  /// `pipeline` is not owned.
  explicit Decoder(const Pipeline& pipeline, std::size_t maxMetadata = kDefaultMaxMetadata)
      : pipeline_(pipeline), maxMetadata_(maxMetadata) {}

  /// Unless the result is OK, type and row of `decoded` mean nothing.
  Agent::Status decode(const p4::v1::Update& update, DecodedUpdate& decoded) const;
  /// An entry's key is its match fields and priority; its action and metadata do not count.
  Agent::Status decode(const p4::v1::Entity& entity, ReadFilter& filter) const;

  /// The status of everything that names a table which the pipeline does not have.
  Agent::Status unknownTable(std::uint32_t id) const;

 private:
  const Pipeline& pipeline_;
  std::size_t maxMetadata_;
};

}  // namespace Wire
