// Tables for tests: a record whose fields all follow from key and stamp, so that a torn or foreign row shows.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/RuntimeFolder.h"
#include "vesta/VestaReader.h"
#include "vesta/VestaWriter.h"

namespace VestaTest {

struct TestKey {
  static constexpr std::string_view kText = "id:u64";
  std::uint64_t id = 0;
};

/// Five words; every `proof` word follows from id and stamp.
struct TestEntry {
  static constexpr std::string_view kText = "id:u64,stamp:u64,proof:u64*3";
  std::uint64_t id = 0;
  std::uint64_t stamp = 0;
  std::uint64_t proof[3] = {};
  static TestEntry make(std::uint64_t id, std::uint64_t stamp);
  bool whole() const;
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

using Table = Vesta::VestaBase<TestKey, TestEntry>;
using Writer = Vesta::VestaWriter<TestKey, TestEntry>;
using Reader = Vesta::VestaReader<TestKey, TestEntry>;
using Row = Vesta::Value<TestKey, TestEntry>;
using Buffer = Vesta::RowBuffer<TestKey, TestEntry>;
using Ids = std::vector<std::uint64_t>;
using Model = std::map<std::uint64_t, std::uint64_t>;  // id -> stamp of each row

/// Has a folder of its own in shared memory.
class TableTest : public ::testing::Test {
 protected:
  Vesta::AttachOptions options(std::uint32_t capacity = 64) const;
  Vesta::AttachOptions observer(std::uint32_t capacity = 64) const;
  std::unique_ptr<Writer> writer(std::uint32_t capacity = 64) const;
  std::unique_ptr<Reader> reader(std::uint32_t capacity = 64) const;
  Vesta::RootPath path() const { return Vesta::RootPath(folder_, "some/place", "table"); }
  std::string file() const { return path().text(); }
  std::vector<std::string> files() const;
  /// As if no table had ever been here.
  void startOver() const;
  /// Has the table go on in a new segment: a reader meets damage, and a write follows.
  void replaceSegment(Writer& table) const;

  const RuntimeFolder root_{"/dev/shm"};
  const std::string folder_ = root_.path();
};

/// Writes a row; stamp 0 removes it.
void put(Writer& table, std::uint64_t id, std::uint64_t stamp);
void put(Model& model, std::uint64_t id, std::uint64_t stamp);
/// The stamp of the row of `id`, or 0; fails the test on a row that is not whole.
std::uint64_t stampOf(Table& table, std::uint64_t id);
/// By a walk.
Model contents(Table& table);
/// Polls until nothing is left; the ids told, in order. What the handlers find of each goes to `known`.
Ids told(Reader& reader, Model* known = nullptr);
bool readable(int descriptor);
/// What the exception that `call` must throw says; "" when it throws none.
std::string failure(const std::function<void()>& call);

/// Runs `body` in a child process; its result is the exit code. Any failed expectation makes it 99. It says
/// how far it is by raise(SIGSTOP).
class Child {
 public:
  explicit Child(const std::function<int()>& body);
  ~Child();
  Child(const Child&) = delete;
  int pid() const { return pid_; }
  /// Nothing once it has ended.
  void signal(int number) const {
    if (pid_ > 0) kill(pid_, number);
  }
  /// Exit code, or minus the signal it died of or has stopped at. It has a minute to end in.
  int wait();
  /// Until it stops; then lets it go on.
  void pass() {
    EXPECT_EQ(wait(), -SIGSTOP);
    signal(SIGCONT);
  }

 private:
  int pid_;
};

/// A number that children share with their parent.
std::atomic<std::uint64_t>& sharedCount(std::uint64_t value);

/// Bounds what this process may use. Returns the bound before.
rlim_t limit(decltype(RLIMIT_NOFILE) resource, rlim_t bound);

/// A reader of bytes on a mapping that threads share, or whose loads are waited for.
class ByteReader : public Vesta::SegmentReader {
 public:
  ByteReader(const Vesta::AttachOptions& options, std::shared_ptr<Vesta::Segment> mapping);
  std::uint64_t stampOf(std::uint64_t id);
  /// Polls once; the ids told, in order.
  Ids tell(
      std::size_t limit, const std::function<void(std::uint64_t)>& handled = [](std::uint64_t) {});

 private:
  Buffer buffer_;
  Buffer row_;
};

/// Calls `then` between two loads of a reader in this process: when it first touches the page of `word` in
/// its mapping, before it gets the word. `then` may set the next trap.
void onTouch(const Vesta::Word& word, std::function<void()> then);

/// Long variants of tests: TOLMAR_LONG_TESTS in the environment multiplies their work by its value.
std::uint64_t scaled(std::uint64_t work);

}  // namespace VestaTest
