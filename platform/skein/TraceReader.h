// Decodes trace rings (RingFormat.h). Needs only the file: the writer may be running, ended or killed.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Skein {

/// The texts of a Site.
struct TraceSite {
  std::string source;
  std::uint32_t line = 0;
  std::string function;
  std::string format;
};

struct TraceProcess {
  std::uint32_t pid = 0;
  std::string name;
};

struct TraceRecord {
  std::uint64_t monotonic;  ///< nanoseconds of a clock that all processes since boot share
  std::uint64_t wall;       ///< nanoseconds since 1970, by the wall clock at the time of the last anchor
  std::shared_ptr<const TraceProcess> process;
  std::shared_ptr<const TraceSite> site;  ///< with empty texts for a record whose site is not readable
  std::vector<std::string> values;

  /// The format with its values. Values for which the format has no place follow it; bytes other than
  /// printable ASCII are written as "\xNN".
  std::string text() const;
};

/// The complete records of one ring file, oldest first. Nothing in the file is trusted: records that no
/// writer can have written are skipped. Throws Cairn::SystemException for a file that cannot be read (or is a
/// symbolic link), Cairn::CorruptionDetectedException for a file that is not an intact trace ring.
std::vector<TraceRecord> readTrace(const std::string& path);

/// How far rings have been read, whatever their files are called by now.
class TraceProgress {
 public:
  /// The position after the last record read of the ring with this pid and first anchor.
  std::uint64_t& of(std::uint32_t pid, std::uint64_t ticks) { return positions_[{pid, ticks}]; }

 private:
  std::map<std::pair<std::uint32_t, std::uint64_t>, std::uint64_t> positions_;
};

/// The same, without the records that an earlier call with this `progress` has returned.
std::vector<TraceRecord> readTrace(const std::string& path, TraceProgress& progress);

/// Orders records of several files by time. Those of one file keep their order.
void sortByTime(std::vector<TraceRecord>& records);

}  // namespace Skein
