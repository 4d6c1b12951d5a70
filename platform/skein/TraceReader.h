// Decodes trace rings (RingFormat.h). Needs nothing but the file: the writer may be running, ended or killed.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace Skein {

/// Where messages come from: the texts of a Site.
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
  std::uint64_t monotonic;  ///< nanoseconds, by a clock that all processes since boot have in common
  std::uint64_t wall;  ///< nanoseconds since 1970, by the clock as it was set when the process last traced
  std::shared_ptr<const TraceProcess> process;
  std::shared_ptr<const TraceSite> site;  ///< with empty texts for a record whose site is not readable
  std::vector<std::string> values;

  /// The format with its values. Values that the format has no place for follow it; bytes that are no
  /// printable ASCII are written as "\xNN".
  std::string text() const;
};

/// The whole records of one ring file, oldest first. Nothing in the file is trusted: records that cannot have
/// been written are left out. Throws Cairn::SystemException for a file that cannot be read (a symbolic link
/// among them), Cairn::CorruptionDetectedException for one that is no trace ring.
std::vector<TraceRecord> readTrace(const std::string& path);

/// The records of several files merged by time. Records of one file keep their order.
std::vector<TraceRecord> readTraces(std::span<const std::string> paths);

}  // namespace Skein
