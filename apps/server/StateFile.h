// A small file that outlives the agent, like its tables not a power failure, and is replaced as a whole:
//
//   offset  size  field
//   0       8     "TolState"
//   8       4     version of the contents' layout
//   12      4     CRC-32C of file name, version, length and contents
//   16      8     length of the contents
//   24      n     the contents
//
// All numbers are little-endian. The name is in the checksum so that a file does not pass for another one.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "cairn/Descriptor.h"

namespace Server {

/// One of the agent's state files.
struct StateFileKind {
  const char* name;
  std::uint32_t version;
  const char* loss;  ///< what starting without the file costs, for messages
};
inline constexpr StateFileKind kElectionIdsFile{"p4rt-agent.election", 1,
                                                "the highest election ids seen so far"};
inline constexpr StateFileKind kPipelineConfigFile{"p4rt-agent.pipeline", 1,
                                                   "the pipeline config that a controller has set"};

class StateFile {
 public:
  /// Throws as below.
  StateFile(const std::string& folder, const StateFileKind& kind)
      : StateFile(folder, kind.name, kind.version, kind.loss) {}
  /// `loss` is what starting without the file costs, for messages: "the pipeline config". Throws
  /// Cairn::SystemException when there is no such folder.
  StateFile(const std::string& folder, std::string name, std::uint32_t version, std::string loss);

  /// The contents; nothing when there is no file. Throws Cairn::Exception that says how to continue for a
  /// file that is damaged, of another version or not this user's own.
  std::optional<std::string> read() const;
  /// Puts the contents in the file's place: if the agent is killed, it is the old one or the new one. Throws
  /// Cairn::SystemException and leaves the old file.
  void replace(std::string_view contents) {
    stage(contents);
    publish();
  }
  /// The two halves of replace(). What can fail for want of room fails in the first.
  void stage(std::string_view contents);
  void publish();

  /// Throws the exception of read(), for a reader who finds the contents to be none that it has written.
  [[noreturn]] void refuse(const std::string& problem) const;

 private:
  std::uint32_t checksumOf(std::string_view contents) const;

  std::string name_;
  std::string path_;
  std::uint32_t version_;
  std::string loss_;
  Cairn::Descriptor folder_;
};

}  // namespace Server
