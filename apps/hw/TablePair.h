// The two tables of one kind as the hardware agent sees them: it reads the config table and writes the status
// table.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>

namespace HwAgent {

template <class KeyType, class ConfigType, class StatusType>
class TablePair {
 public:
  using Key = KeyType;
  using Config = ConfigType;
  using Status = StatusType;

  virtual ~TablePair() = default;

  /// False once one of the tables was found damaged: it then reads as empty, which says nothing of its rows,
  /// and writes are dropped.
  virtual bool readable() const = 0;
  virtual std::optional<Config> config(const Key& key) const = 0;
  virtual std::optional<Status> status(const Key& key) const = 0;
  virtual void eachConfig(const std::function<void(const Config&)>& visit) const = 0;
  virtual void eachStatus(const std::function<void(const Status&)>& visit) const = 0;

  /// Writes the status row of its key. Throws Cairn::ResourceExhaustedException, and stores nothing, when the
  /// key is new and the table full.
  virtual void statusIs(const Status& status) = 0;
  virtual void statusDel(const Key& key) = 0;
  /// The number of the status table's last change.
  virtual std::uint64_t statusSequence() const = 0;
  /// Whether every living reader has handled the status table's changes up to `sequence`.
  virtual bool readersHandled(std::uint64_t sequence) const = 0;
};

}  // namespace HwAgent
