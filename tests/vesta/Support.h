// Tables for tests: a record whose fields all follow from key and stamp, so that a torn or foreign row shows.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "vesta/VestaReader.h"
#include "vesta/VestaWriter.h"

namespace VestaTest {

struct TestKey {
  std::uint64_t id = 0;
  friend bool operator==(const TestKey&, const TestKey&) = default;
  friend auto operator<=>(const TestKey&, const TestKey&) = default;
};

/// Five words; every `proof` word follows from id and stamp.
struct TestEntry {
  std::uint64_t id = 0;
  std::uint64_t stamp = 0;
  std::uint64_t proof[3] = {};
  static TestEntry make(std::uint64_t id, std::uint64_t stamp);
  bool whole() const;
};

}  // namespace VestaTest

template <>
struct Vesta::Codec<VestaTest::TestKey> {
  static constexpr std::size_t size = 8;
  static constexpr std::string_view text = "id:u64";
  static void encode(const VestaTest::TestKey& key, std::uint8_t* bytes) { std::memcpy(bytes, &key.id, 8); }
  static void decode(const std::uint8_t* bytes, VestaTest::TestKey& key) { std::memcpy(&key.id, bytes, 8); }
};

template <>
struct Vesta::Codec<VestaTest::TestEntry> {
  static constexpr std::size_t size = 40;
  static constexpr std::string_view text = "id:u64,stamp:u64,proof:u64*3";
  static void encode(const VestaTest::TestEntry& entry, std::uint8_t* bytes) {
    std::memcpy(bytes, &entry, 40);
  }
  static void decode(const std::uint8_t* bytes, VestaTest::TestEntry& entry) {
    std::memcpy(&entry, bytes, 40);
  }
};

namespace VestaTest {

using Writer = Vesta::VestaWriter<TestKey, TestEntry>;
using Reader = Vesta::VestaReader<TestKey, TestEntry>;
using Row = Vesta::Value<TestKey, TestEntry>;
using Buffer = Vesta::RowBuffer<TestKey, TestEntry>;

/// A debug handler that keeps what it is told.
struct Log {
  std::shared_ptr<Cairn::DebugHandler> handler = std::make_shared<Cairn::DebugHandler>();
  std::vector<std::string> lines;
  Log();
};

/// A folder of its own in shared memory for each test, gone afterwards.
class TableTest : public ::testing::Test {
 protected:
  TableTest();
  ~TableTest() override;

  Vesta::AttachOptions options(std::uint32_t capacity = 64) const;
  std::unique_ptr<Writer> writer(std::uint32_t capacity = 64) const;
  std::unique_ptr<Reader> reader(std::uint32_t capacity = 64) const;
  Vesta::RootPath path() const { return Vesta::RootPath(folder_, "some/place", "table"); }
  std::vector<std::string> files() const;

  std::string folder_;
  std::shared_ptr<Log> log_ = std::make_shared<Log>();
};

void put(Writer& table, std::uint64_t id, std::uint64_t stamp);
/// The stamp of the row of `id`, or 0; fails the test on a row that is not whole.
std::uint64_t stampOf(Vesta::VestaBase<TestKey, TestEntry>& table, std::uint64_t id);
/// id -> stamp of every row, by a walk.
std::map<std::uint64_t, std::uint64_t> contents(Vesta::VestaBase<TestKey, TestEntry>& table);
/// Polls until nothing is left; the ids told, in order.
std::vector<std::uint64_t> told(Reader& reader);

/// Runs `body` in a child process; its result is the exit code. Any failed expectation makes it 99.
class Child {
 public:
  explicit Child(const std::function<int()>& body);
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  int pid() const { return pid_; }
  void signal(int number) const;
  /// Exit code, or minus the signal it died of. Kills it after `seconds`.
  int wait(int seconds = 30);

 private:
  int pid_;
};

/// Steps between processes: each side says a byte or waits for one.
class Pipe {
 public:
  Pipe();
  ~Pipe();
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  void say() const;
  void await() const;

 private:
  int ends_[2];
};

/// Long variants of tests: TOLMAR_LONG_TESTS in the environment multiplies their work by its value.
std::uint64_t scaled(std::uint64_t work);

}  // namespace VestaTest
