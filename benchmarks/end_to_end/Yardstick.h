// The yardstick: what the end-to-end path does, with nothing but two bare tables between two processes.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <vector>

#include "BareTable.h"
#include "Contestant.h"

namespace Yardstick {

/// Bytes of the config and status rows that the end-to-end path moves (L3 ingress interface).
inline constexpr std::size_t kConfigBytes = 39;
inline constexpr std::size_t kStatusBytes = 27;

class TwoTables final : public Contestant {
 public:
  /// Starts the answering process. Both sides poll for so long after work before they sleep.
  explicit TwoTables(std::chrono::microseconds busyPoll);
  /// Stops it.
  ~TwoTables() override;
  TwoTables(const TwoTables&) = delete;
  TwoTables& operator=(const TwoTables&) = delete;

  void prepare(std::size_t rows) override;
  /// Writes an eight-byte number to a descriptor for each answer, as that path does.
  void batch() override;

 private:
  struct Shared {
    BareTable<kConfigBytes> config;
    BareTable<kStatusBytes> status;
    std::atomic<bool> stop{false};
  };

  [[noreturn]] void answer() const;
  template <class Arrived>
  void pollFor(const Arrived& arrived) const;
  void complete(std::uint32_t number) const;

  std::chrono::microseconds busyPoll_;
  Shared* shared_;
  int configWake_ = -1;  // FIFOs, opened for reading and writing by both
  int statusWake_ = -1;
  int completions_ = -1;
  pid_t peer_ = -1;
  std::uint64_t seen_ = 0;
  std::uint64_t generation_ = 0;
  std::vector<BareTable<kConfigBytes>::Row> rows_;
};

}  // namespace Yardstick
