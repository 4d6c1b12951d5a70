// The counter files of the two programs, PROGRAM.counters in the runtime folder: a page that is never changed
// after the file has its name, then words that the program changes as it runs. All numbers are in the
// machine's byte order.
//
//   offset  bytes  what
//        0      8  magic "TOLCOUNT"
//        8      4  layout version, 1
//       12      4  program: 1 p4rt-agent, 2 hw-agent
//       16      4  pid of the program
//       20      4  tables
//       24      8  bytes of the file
//       32      8  start of the program, CLOCK_REALTIME in nanoseconds
//       40      8  the same, CLOCK_MONOTONIC
//       48     48  version of the program, filled up with zeros
//       96   3992  options as they were given, with blanks between them; filled up with zeros or cut
//     4088      4  CRC-32C of the 4088 bytes before it
//     4096      .  AgentWords or HardwareWords, as declared below; zeros up to the next page
//
// For as long as it runs, the program holds a lock (open file description, exclusive) on the file's first
// byte. Words are single 64-bit numbers, each changed by one thread, without a lock or any order among them.
// What counts events never falls while the program runs.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "P4RuntimeTolmar/OutputTables.h"
#include "apps/counters/AnswerTimes.h"
#include "apps/counters/Counter.h"

namespace Counters {

inline constexpr char kMagic[8] = {'T', 'O', 'L', 'C', 'O', 'U', 'N', 'T'};
inline constexpr std::uint32_t kLayoutVersion = 1;
inline constexpr std::size_t kPageBytes = 4096;

enum class ProgramId : std::uint32_t { agent = 1, hardwareAgent = 2 };

struct Header {
  char magic[8];
  std::uint32_t version;
  std::uint32_t program;
  std::uint32_t pid;
  std::uint32_t tables;
  std::uint64_t fileBytes;
  std::uint64_t startWall;
  std::uint64_t startMonotonic;
  char programVersion[48];
  char options[3992];
  std::uint32_t checksum;
  std::uint32_t unused;
};
static_assert(sizeof(Header) == kPageBytes && offsetof(Header, options) == 96 &&
              offsetof(Header, checksum) == 4088);

/// Answers by the hardware's code, 0 to 31; the last takes all others.
inline constexpr std::size_t kCodes = 33;
constexpr std::size_t codeIndex(std::uint16_t code) { return code < kCodes - 1 ? code : kCodes - 1; }

// `Word` is a Counter in the file, and a plain number in what was read from it.

/// Of a table's two segments, as this program's writer and reader of them count. Copied every 400 ms.
template <class Word>
struct SegmentWords {
  Word wakeups{};        ///< of the other program
  Word readerRetries{};  ///< rows read again because the other program was changing them
  Word logOverruns{};    ///< times the change log has overrun this program
  Word damageReports{};  ///< segments in which damage was detected
};

/// One table of the agent's.
template <class Word>
struct AgentTableWords {
  Word capacity{};
  Word used{};       ///< rows that count as used, those kept for an undo included. Copied every 400 ms
  Word highWater{};  ///< the most that were used since the start
  /// Insertions, modifications and removals written to the config table on behalf of a controller.
  std::array<Word, 3> writes{};
  Word capacityRefusals{};       ///< insertions that found the table full
  Word timeouts{};               ///< updates answered DEADLINE_EXCEEDED
  Word unexpectedCompletions{};  ///< for an entry whose answer no update was waiting for
  Word undos{};                  ///< rows written back or removed again
  Word undosRefused{};           ///< undos that the hardware has refused or not answered
  SegmentWords<Word> segments{};
  std::array<Word, kCodes> completions{};  ///< by the hardware's code
  AnswerTimes<Word> answerTimes{};         ///< from the write to the completion, in nanoseconds
};

template <class Word>
struct ServerWords {
  Word requests{};            ///< unary calls that have arrived
  Word requestBytes{};        ///< of these
  Word rejections{};          ///< of these, those that were answered with an error as a whole
  Word shortenedTexts{};      ///< of single updates' errors, cut to keep the details within their budget
  Word requestsInFlight{};    ///< without an answer now
  Word bytesInFlight{};       ///< of these, and of those whose memory is not free yet
  Word batchesInFlight{};     ///< without an answer now
  Word streams{};             ///< open now
  Word connections{};         ///< that were accepted
  Word connectionsRefused{};  ///< over the limit or of another user
};

/// An update that was not answered with success. The latest ones are kept, in places that take turns.
template <class Word>
struct FailureWords {
  Word number{};  ///< counts from 1
  Word time{};    ///< CLOCK_REALTIME in nanoseconds
  Word handle{};  ///< of the entry; 0 if it has none
  Word what{};    ///< table's number, from 1 (0: none) << 32 | status code << 16 | the hardware's code
  Word check{};   ///< failureCheck() of the four above; another value while they are being written
};
constexpr std::uint64_t failureCheck(std::uint64_t number, std::uint64_t time, std::uint64_t handle,
                                     std::uint64_t what) {
  return ~(number ^ time << 1 ^ handle << 2 ^ what << 3);
}
inline constexpr std::size_t kFailures = 32;
inline constexpr std::size_t kVrfs = 8192;

template <class Word>
struct AgentWords {
  static constexpr ProgramId kProgram = ProgramId::agent;

  Word heartbeat{};           ///< CLOCK_MONOTONIC in nanoseconds, set every 400 ms
  Word hardwareProcess{};     ///< pid of the hardware agent; 0 when there is none
  Word unknownCompletions{};  ///< for handles of no entry
  ServerWords<Word> server{};
  Word failures{};  ///< updates not answered with success
  std::array<FailureWords<Word>, kFailures> lastFailures{};
  Word vrfs{};  ///< VRFs with references
  std::array<Word, kVrfs>
      vrfReferences{};  ///< of the first kVrfs: VRF << 32 | references. Copied every 400 ms
  std::array<AgentTableWords<Word>, TolmarHwLib::kOutputTableCount> tables{};
};

template <class Word>
struct HardwareTableWords {
  Word capacity{};
  Word used{};      ///< status rows. Copied every 400 ms
  Word blocked{};   ///< answers that wait for room in the status table. Copied every 400 ms
  Word seen{};      ///< changes of config rows
  Word removals{};  ///< answers to removals
  SegmentWords<Word> segments{};
  std::array<Word, kCodes> answers{};  ///< to rows, by the hardware's code
  AnswerTimes<Word> answerTimes{};     ///< from seen to answered, in nanoseconds
};

template <class Word>
struct HardwareWords {
  static constexpr ProgramId kProgram = ProgramId::hardwareAgent;

  Word heartbeat{};  ///< as the agent's
  std::array<HardwareTableWords<Word>, TolmarHwLib::kOutputTableCount> tables{};
};

using AgentCounters = AgentWords<Counter>;
using AgentCounts = AgentWords<std::uint64_t>;
using HardwareCounters = HardwareWords<Counter>;
using HardwareCounts = HardwareWords<std::uint64_t>;

template <class Words>
inline constexpr std::size_t kFileBytes = kPageBytes +
                                          (sizeof(Words) + kPageBytes - 1) / kPageBytes* kPageBytes;

// The figures of docs/counters.md.
static_assert(sizeof(SegmentWords<Counter>) == 4 * 8);
static_assert(sizeof(AgentTableWords<Counter>) == (11 + 4 + kCodes + kBuckets) * 8);
static_assert(sizeof(HardwareTableWords<Counter>) == (5 + 4 + kCodes + kBuckets) * 8);
static_assert(sizeof(AgentCounters) == sizeof(AgentCounts) &&
              sizeof(HardwareCounters) == sizeof(HardwareCounts));

}  // namespace Counters
