// The tracker's work for one status row, from the table's notification to the write that wakes the agent,
// beside the bare chain that it cannot do without: two lookups, one hash-map insert, one trace record, one
// eight-byte write. Both run over the same table in shared memory, with the fast trace on and handle traces
// off.
//
//   plugin_bench [--rounds N] [--tsv]
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "P4RuntimePlugin/PendingHwProgrammingSms.h"
#include "P4RuntimePlugin/Trace.h"
#include "benchmarks/rounds/Rounds.h"
#include "orrery/EntityManager.h"
#include "skein/Skein.h"

namespace {

bool writesOn = true;

}  // namespace

/// Stands in front of the system's call, so that both chains can be measured without it.
extern "C" ssize_t write(int descriptor, const void* bytes, size_t size) {
  if (!writesOn && size == sizeof(std::uint64_t)) return static_cast<ssize_t>(size);
  return ::syscall(SYS_write, descriptor, bytes, size);
}

namespace {

using TolmarHwLib::L3IifTH3Key;
using TolmarHwLib::L3IifTH3PendingHwProgrammingSm;
using TolmarHwLib::L3IifTH3Status;
using Clock = std::chrono::steady_clock;

constexpr std::uint32_t kRows = 8192;

/// One status table in shared memory with all its rows, as the tracker reads it.
class Table {
 public:
  Table() {
    std::string folder = (std::filesystem::temp_directory_path() / "tolmar-bench-XXXXXX").string();
    if (mkdtemp(folder.data()) == nullptr) throw Cairn::SystemException("mkdtemp", errno);
    folder_ = folder;
    Skein::ringIs(folder_ + "/ring", 1 << 20);
    const auto writer = mount(managers_.emplace_back(manager()), QuillVesta::QuillVestaType::writer);
    for (std::uint64_t i = 0; i < kRows; ++i) {
      TolmarHwLib::L3IifTH3StatusEntry row;
      row.l3Iif = i;
      row.entryHandle = 1000 + i;
      writer->tableIs(row);
    }
    status = mount(managers_.emplace_back(manager()), QuillVesta::QuillVestaType::reader);
  }
  ~Table() {
    status = nullptr;
    managers_.clear();
    std::filesystem::remove_all(folder_);
  }

  Quill::Ptr<L3IifTH3Status> status;

 private:
  Quill::Ptr<Orrery::EntityManager> manager() {
    return Quill::allocate<Orrery::EntityManager>(folder_, loop_);
  }
  static Quill::Ptr<L3IifTH3Status> mount(const Quill::Ptr<Orrery::EntityManager>& manager,
                                          QuillVesta::QuillVestaType type) {
    QuillVesta::MountDescription description(type);
    description.collectionIs("table", kRows);
    return Quill::ptrCast<L3IifTH3Status>(
        manager->mount("status", "TolmarHwLib::L3IifTH3Status", description));
  }

  std::string folder_;
  Quill::EventLoop loop_;
  std::vector<Quill::Ptr<Orrery::EntityManager>> managers_;
};

/// Nanoseconds for each row of one pass over the table.
template <class Row>
double pass(const Row& row) {
  const auto start = Clock::now();
  for (std::uint64_t i = 0; i < kRows; ++i) row(L3IifTH3Key{i});
  return std::chrono::duration<double, std::nano>(Clock::now() - start).count() / kRows;
}

void compare(const Rounds::Plan& plan, Rounds::Report& report, const char* name, const auto& bare,
             const auto& tracker) {
  Rounds::each(plan, [&](std::size_t) {
    report.add(0, name, "ns", bare());
    report.add(1, name, "ns", tracker());
  });
}

constinit const Skein::Site kSite{"PendingHwProgrammingSms", 16, "onStatusRow", "onStatusRow%s"};

void statusRows(const Rounds::Plan& plan, Rounds::Report& report) {
  const Table table;
  const auto bareBatch = Quill::allocate<P4Runtime::BatchStatus>();
  const auto batch = Quill::allocate<P4Runtime::BatchStatus>();
  const auto tracker = L3IifTH3PendingHwProgrammingSm::L3IifTH3PendingHwProgrammingSmIs(batch, table.status);
  const auto bare = [&] {
    bareBatch->completedTransactionStatusDelAll();
    return pass([&](const L3IifTH3Key& key) {
      Skein::message(kSite, key);
      bool found = false;
      const std::uint64_t handle = table.status->directLookup(key, found).entryHandle;
      table.status->directLookup(key, found);
      bareBatch->completedTransactionStatusIs({handle, 0, {}});
      const std::uint64_t one = 1;
      (void)!::write(bareBatch->notificationDescriptor(), &one, sizeof one);
    });
  };
  const auto tracked = [&] {
    batch->completedTransactionStatusDelAll();
    return pass([&](const L3IifTH3Key& key) {
      table.status->notify<L3IifTH3Status::NotifieeConst>([&key](auto& reactor) { reactor.onTable(key); });
    });
  };
  compare(plan, report, "status row", bare, tracked);
  writesOn = false;
  compare(plan, report, "status row without the write", bare, tracked);
  writesOn = true;
  if (batch->completedTransactionStatusCount() != kRows) throw Cairn::Exception("rows were lost");
}

/// A trace point whose handle is off, beside the fast trace's record alone.
void traceOff(const Rounds::Plan& plan, Rounds::Report& report) {
  static constinit const P4RuntimeTolmar::TracePoint point{9, "PendingHwProgrammingSms", 16, "onStatusRow",
                                                           "onStatusRow%s"};
  const Quill::TraceHandle handle("off");
  compare(
      plan, report, "trace point, handle off",
      [] { return pass([](const L3IifTH3Key& key) { Skein::message(kSite, key); }); },
      [&] { return pass([&](const L3IifTH3Key& key) { point(handle, key); }); });
}

}  // namespace

int main(int count, char** arguments) {
  try {
    Rounds::Plan usual;
    usual.rounds = 101;
    const Rounds::Plan plan = Rounds::planOf({arguments + 1, arguments + count}, {}, usual);
    Rounds::Report report({"bare", "tracker"}, plan);
    statusRows(plan, report);
    traceOff(plan, report);
    report.print();
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "plugin_bench: %s\n", error.what());
    return 1;
  }
}
