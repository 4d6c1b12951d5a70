// Agent and hardware agent in one process, so that each allocation of either can be counted and made to fail.
#pragma once

#include <algorithm>
#include <new>

#include "apps/agent/AgentProcess.h"
#include "apps/hw/Tables.h"
#include "cairn/Exception.h"
#include "tests/AllocationCount.h"
#include "tests/RuntimeFolder.h"

/// Whether `call` found the memory that it needed.
template <class Call>
bool succeeds(const Call& call) {
  try {
    call();
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  } catch (const Cairn::MemoryResourceException&) {
    return false;
  }
}

class BothPrograms {
 public:
  /// Lets the `nth` allocation fail of those that are made while an Armed lives; 0: none.
  explicit BothPrograms(std::size_t nth = 0) : failing_(nth) {}

  struct Armed {
    explicit Armed(BothPrograms& of) : programs(of), before(allocationCount()) {
      allocationFailureIs(programs.failing_);
    }
    ~Armed() {
      allocationFailureIs(0);
      programs.failing_ -= std::min(programs.failing_, allocationCount() - before);
    }
    BothPrograms& programs;
    std::size_t before;
  };
  /// Whether it has failed.
  bool failed() const { return failing_ == 0; }
  /// One step of the loop; without memory for it both recover, as the programs do.
  void step(std::chrono::milliseconds wait) {
    if (succeeds([&] { loop_.step(wait); })) return;
    agent_.recover();
    hardware_.recover();
  }

 protected:
  RuntimeFolder folder_{"/dev/shm"};
  Quill::EventLoop loop_;
  HwAgent::Tables hardware_{Quill::allocate<Orrery::EntityManager>(folder_.path(), loop_), {}};
  Agent::AgentProcess agent_{loop_, folder_.path(), PLUGIN, std::chrono::seconds(60)};

 private:
  std::size_t failing_;
};
