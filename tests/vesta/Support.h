// Tables for tests: a record whose fields all follow from key and stamp, so that a torn or foreign row shows.
#pragma once

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "tests/RuntimeFolder.h"
#include "vesta/VestaReader.h"
#include "vesta/VestaWriter.h"

namespace VestaTest {

struct TestKey {
  static constexpr std::string_view kText = "id:u64";
  std::uint64_t id = 0;
  bool operator==(const TestKey&) const = default;
};

/// Five words; every `proof` word follows from id and stamp.
struct TestEntry {
  static constexpr std::string_view kText = "id:u64,stamp:u64,proof:u64*3";
  std::uint64_t id = 0;
  std::uint64_t stamp = 0;
  std::uint64_t proof[3] = {};
  static TestEntry make(std::uint64_t id, std::uint64_t stamp) {
    TestEntry entry{id, stamp};
    for (auto& proof : entry.proof) proof = (id + 1) * 0x9e3779b97f4a7c15u ^ ++stamp * 0xd6e8feb86659fd93u;
    return entry;
  }
  bool operator==(const TestEntry&) const = default;
  bool whole() const { return *this == make(id, stamp); }
};

template <class T>
struct PlainCodec {
  static constexpr std::size_t size = sizeof(T);
  static constexpr std::string_view text = T::kText;
  static void encode(const T& value, std::uint8_t* bytes) { std::memcpy(bytes, &value, size); }
  static void decode(const std::uint8_t* bytes, T& value) { std::memcpy(&value, bytes, size); }
};

}  // namespace VestaTest

template <>
struct Vesta::Codec<VestaTest::TestKey> : VestaTest::PlainCodec<VestaTest::TestKey> {};
template <>
struct Vesta::Codec<VestaTest::TestEntry> : VestaTest::PlainCodec<VestaTest::TestEntry> {};

namespace VestaTest {

using ::testing::Contains, ::testing::HasSubstr, ::testing::Not, ::testing::UnorderedElementsAre;
using Vesta::AttachOptions, Vesta::Layout, Vesta::Segment, Vesta::Word, Vesta::WriteStep;
using Table = Vesta::VestaBase<TestKey, TestEntry>;
using Writer = Vesta::VestaWriter<TestKey, TestEntry>;
using Reader = Vesta::VestaReader<TestKey, TestEntry>;
using Row = Vesta::Value<TestKey, TestEntry>;
using Buffer = Vesta::EncodedRow<TestKey, TestEntry>;
using Ids = std::vector<std::uint64_t>;
using Names = std::vector<std::string>;
using Model = std::map<std::uint64_t, std::uint64_t>;  // id -> stamp of each row

/// Writes a row; stamp 0 removes it.
inline void put(Writer& table, std::uint64_t id, std::uint64_t stamp) {
  stamp != 0 ? table.write(Row{{id}, TestEntry::make(id, stamp)}, false) : table.remove(TestKey{id}, nullptr);
}
inline void put(Model& model, std::uint64_t id, std::uint64_t stamp) {
  model[id] = stamp;
  if (stamp == 0) model.erase(id);
}
inline void put(Writer& table, Model& model, std::uint64_t id, std::uint64_t stamp) {
  put(table, id, stamp);
  put(model, id, stamp);
}
/// Writes `id` so often that the log of a table of 64 rows overruns every reader.
inline void overrun(Writer& table, std::uint64_t id) {
  for (std::uint64_t stamp = 1; stamp < 300; ++stamp) put(table, id, stamp);
}

inline Segment& segmentOf(Writer& table) { return *table.bytes().sharedSegment(); }

/// The stamp of the row of `id`, or 0; fails the test on a row that is not whole.
inline std::uint64_t stampOf(Table& table, std::uint64_t id) {
  bool found = false;
  const TestEntry& entry = table.directLookup(TestKey{id}, found, nullptr);
  EXPECT_TRUE(!found || (entry.whole() && entry.id == id));
  return found ? entry.stamp : 0;
}

/// By a walk.
inline Model contents(Table& table) {
  Model rows;
  Row row;
  Vesta::IterHint hint;
  for (bool more = table.first(row, hint); more; more = table.next(row.key, row, hint)) {
    EXPECT_TRUE(row.entry.whole() && row.key.id == row.entry.id);
    EXPECT_TRUE(rows.emplace(row.key.id, row.entry.stamp).second) << row.key.id;
  }
  return rows;
}

/// Polls until nothing is left; the ids notified, in order. The handlers' findings go to `known`.
/// With a limit, polls once.
inline Ids notified(Reader& reader, Model* known = nullptr, std::size_t limit = 0) {
  Ids ids;
  reader.onChangeIs([&](const TestKey& key) {
    ids.push_back(key.id);
    if (known != nullptr) put(*known, key.id, stampOf(reader, key.id));
  });
  while (reader.poll(limit != 0 ? limit : 1000) != 0 && limit == 0) {
  }
  reader.onChangeIs({});
  return ids;
}

/// Whether it goes to sleep once it has been notified of everything.
inline bool sleeps(Reader& reader) {
  notified(reader);
  return reader.maySleep();
}
inline bool readable(int descriptor) {
  pollfd waiting{descriptor, POLLIN, 0};
  return poll(&waiting, 1, 0) == 1;
}
/// Whether it has been woken; it takes note of that.
inline bool woken(Reader& reader) {
  const bool was = readable(reader.wakeDescriptor());
  reader.descriptorReadable();
  return was;
}

/// Leaves readers to the index alone.
inline void forgetShortcuts(Segment& segment) {
  std::fill(&segment.at(segment.layout().shortcutsAt), &segment.at(segment.layout().stagingAt), 0);
}

/// The text of the exception that `call` throws; "" when it throws none.
template <class Call>
std::string failure(const Call& call) {
  try {
    call();
  } catch (const Cairn::Exception& exception) {
    return exception.what();
  }
  return "";
}

/// Long variants of tests: TOLMAR_LONG_TESTS in the environment multiplies their work by its value.
inline std::uint64_t scaled(std::uint64_t work) {
  const char* factor = std::getenv("TOLMAR_LONG_TESTS");
  return factor != nullptr ? work * std::max(std::strtoull(factor, nullptr, 10), 1ull) : work;
}

/// Bounds what this process may use. Returns the bound before.
inline rlim_t limit(decltype(RLIMIT_NOFILE) resource, rlim_t bound) {
  rlimit limited{};
  getrlimit(resource, &limited);
  std::swap(limited.rlim_cur, bound);
  EXPECT_EQ(setrlimit(resource, &limited), 0);
  return bound;
}

/// A debug handler that keeps its messages.
struct Log {
  Log() {
    handler->sinkIs([this](const Cairn::DebugHandler::Message& message) {
      std::ostringstream line;
      line << message.level << " " << message.source << ":" << message.line << " " << message.function << " ";
      lines.push_back(line.str() + std::string(message.text));
    });
  }
  std::shared_ptr<Cairn::DebugHandler> handler = std::make_shared<Cairn::DebugHandler>();
  std::vector<std::string> lines;
};

/// Has a folder of its own in shared memory.
class TableTest : public ::testing::Test {
 protected:
  AttachOptions options(std::uint32_t capacity = 64, Word firstSequence = 1) const {
    return {.path = path(),
            .capacity = capacity,
            .debugHandler = std::make_shared<Cairn::DebugHandler>(0),
            .firstSequence = firstSequence,
            .stepHook = [this](WriteStep now) { onStep_ ? onStep_(now) : void(); }};
  }
  AttachOptions passive(std::uint32_t capacity) const {
    AttachOptions with = options(capacity);
    with.passive = true;
    return with;
  }
  std::unique_ptr<Writer> writer(std::uint32_t capacity = 64) const {
    return std::make_unique<Writer>(options(capacity));
  }
  std::unique_ptr<Reader> reader(std::uint32_t capacity = 64) const {
    return std::make_unique<Reader>(options(capacity));
  }
  Vesta::RootPath path() const { return Vesta::RootPath(folder_, "some/place", "table"); }
  std::string file() const { return path().text(); }
  Names files() const {
    Names names;
    std::error_code missing;
    for (const auto& file : std::filesystem::directory_iterator(path().folder(), missing)) {
      names.push_back(file.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
  }
  /// As if no table had ever been here.
  void startOver() const { std::filesystem::remove_all(folder_ + "/some"); }
  /// Makes the writer replace its segment: damage to its oldest log record is reported, and a write follows.
  /// Readers do not notice such damage when they attach.
  static void replaceSegment(Writer& table, std::uint64_t stamp = 1) {
    const auto damaged = table.bytes().sharedSegment();
    const Layout& layout = damaged->layout();
    const Word changes = Vesta::sequenceDistance(damaged->firstSequence(), table.sequence());
    const Word back = std::min(changes, Word{layout.records - 2});
    damaged->at(layout.recordAt(table.sequence() - back + 1) + 2) ^= 1;
    std::atomic_ref(damaged->at(Vesta::kSleepersAt)).fetch_or(Vesta::kDamageReported);
    put(table, 2, stamp);
    EXPECT_NE(table.bytes().sharedSegment(), damaged);
  }

  Vesta::StepHook onStep_;  // of every writer
  const RuntimeFolder root_{"/dev/shm"};
  const std::string folder_ = root_.path();
};

/// Runs `body` in a child process; its result is the exit code, 99 after a failed expectation. It reports its
/// progress by raise(SIGSTOP).
class Child {
 public:
  explicit Child(const std::function<int()>& body) : pid_(fork()) {
    if (pid_ != 0) return;
    alarm(static_cast<unsigned>(scaled(60)));
    int code = 98;
    try {
      code = body();
    } catch (const std::exception& failure) {
      std::fprintf(stderr, "child: %s\n", failure.what());
    }
    std::fflush(stdout);
    _exit(::testing::Test::HasFailure() ? 99 : code);
  }
  ~Child() {
    signal(SIGKILL);
    if (pid_ > 0) waitpid(pid_, nullptr, 0);
  }
  Child(const Child&) = delete;
  int pid() const { return pid_; }
  /// Nothing once it has ended.
  void signal(int number) const {
    if (pid_ > 0) kill(pid_, number);
  }
  /// Exit code, or minus the signal it died of or has stopped at. It has a minute to end in.
  int wait() {
    int status = 0;
    waitpid(pid_, &status, WUNTRACED);
    if (WIFSTOPPED(status)) return -WSTOPSIG(status);
    pid_ = -1;
    return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
  }
  /// Waits until it stops, then continues it.
  void pass() {
    EXPECT_EQ(wait(), -SIGSTOP);
    signal(SIGCONT);
  }

 private:
  int pid_;
};

/// A reader of bytes on a segment that threads share, or whose loads a test intercepts.
class ByteReader : public Vesta::SegmentReader {
 public:
  ByteReader(const AttachOptions& options, std::shared_ptr<Segment> mapping)
      : SegmentReader(Vesta::shapeOf<TestKey, TestEntry>(options.capacity), options, std::move(mapping)) {}
  std::uint64_t stampOf(std::uint64_t id) {
    std::uint32_t slot = 0;
    buffer_.encodeKey(TestKey{id});
    if (!lookup(Buffer::kSizes, buffer_.key(), row_.words(), slot)) return 0;
    TestEntry entry;
    row_.decodeEntry(entry);
    EXPECT_TRUE(entry.whole() && entry.id == id);
    return entry.stamp;
  }
  /// Polls once; the ids notified, in order.
  Ids pollOnce(
      std::size_t limit, const std::function<void(std::uint64_t)>& handled = [](std::uint64_t) {}) {
    Ids ids;
    poll(limit, [&](const Word* key) {
      ids.push_back(key[0]);
      handled(key[0]);
    });
    return ids;
  }

 private:
  Buffer buffer_;
  Buffer row_;
};

}  // namespace VestaTest
