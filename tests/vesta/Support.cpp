#include "Support.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <thread>

namespace VestaTest {

namespace {

constexpr std::uint64_t proofOf(std::uint64_t id, std::uint64_t stamp, std::uint64_t i) {
  return (id + 1) * 0x9e3779b97f4a7c15u ^ (stamp + i) * 0xd6e8feb86659fd93u;
}

}  // namespace

TestEntry TestEntry::make(std::uint64_t id, std::uint64_t stamp) {
  return {id, stamp, {proofOf(id, stamp, 0), proofOf(id, stamp, 1), proofOf(id, stamp, 2)}};
}

bool TestEntry::whole() const {
  const TestEntry expected = make(id, stamp);
  return std::memcmp(this, &expected, sizeof expected) == 0;
}

Log::Log() {
  handler->sinkIs([this](const Cairn::DebugHandler::Message& message) {
    lines.push_back(std::to_string(message.level) + " " + std::string(message.source) + ":" +
                    std::to_string(message.line) + " " + std::string(message.function) + " " +
                    std::string(message.text));
  });
}

TableTest::TableTest() {
  std::string name = "/dev/shm/tolmar-test-XXXXXX";
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("mkdtemp");
  folder_ = name;
}

TableTest::~TableTest() { std::filesystem::remove_all(folder_); }

Vesta::AttachOptions TableTest::options(std::uint32_t capacity) const {
  Vesta::AttachOptions options{.path = path(), .capacity = capacity};
  options.debugHandler = log_->handler;
  return options;
}

std::unique_ptr<Writer> TableTest::writer(std::uint32_t capacity) const {
  return std::make_unique<Writer>(options(capacity));
}

std::unique_ptr<Reader> TableTest::reader(std::uint32_t capacity) const {
  return std::make_unique<Reader>(options(capacity));
}

std::vector<std::string> TableTest::files() const {
  std::vector<std::string> names;
  for (const auto& file : std::filesystem::directory_iterator(path().folder())) {
    names.push_back(file.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

void put(Writer& table, std::uint64_t id, std::uint64_t stamp) {
  table.write(Row{{id}, TestEntry::make(id, stamp)}, false);
}

std::uint64_t stampOf(Vesta::VestaBase<TestKey, TestEntry>& table, std::uint64_t id) {
  bool found = false;
  const TestEntry& entry = table.directLookup(TestKey{id}, found, nullptr);
  EXPECT_TRUE(!found || (entry.whole() && entry.id == id));
  return found ? entry.stamp : 0;
}

std::map<std::uint64_t, std::uint64_t> contents(Vesta::VestaBase<TestKey, TestEntry>& table) {
  std::map<std::uint64_t, std::uint64_t> rows;
  Row row;
  Vesta::IterHint hint;
  for (bool more = table.first(row, hint); more; more = table.next(row.key, row, hint)) {
    EXPECT_TRUE(row.entry.whole() && row.key.id == row.entry.id);
    EXPECT_TRUE(rows.emplace(row.key.id, row.entry.stamp).second) << row.key.id;
  }
  return rows;
}

std::vector<std::uint64_t> told(Reader& reader) {
  std::vector<std::uint64_t> ids;
  reader.onChangeIs([&ids](const TestKey& key) { ids.push_back(key.id); });
  while (reader.poll(1000) != 0) {
  }
  reader.onChangeIs({});
  return ids;
}

Child::Child(const std::function<int()>& body) : pid_(fork()) {
  if (pid_ != 0) return;
  int code = 98;
  try {
    code = body();
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "child: %s\n", failure.what());
  }
  _exit(::testing::Test::HasFailure() ? 99 : code);
}

Child::~Child() {
  if (pid_ <= 0) return;
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
}

void Child::signal(int number) const { kill(pid_, number); }

int Child::wait(int seconds) {
  int status = 0;
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  while (waitpid(pid_, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() > end) {
      kill(pid_, SIGKILL);
      waitpid(pid_, &status, 0);
      ADD_FAILURE() << "child hung";
      break;
    }
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
  pid_ = -1;
  return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

Pipe::Pipe() {
  if (pipe2(ends_, O_CLOEXEC) != 0) throw std::runtime_error("pipe2");
}

Pipe::~Pipe() {
  close(ends_[0]);
  close(ends_[1]);
}

void Pipe::say() const { (void)!write(ends_[1], "s", 1); }

void Pipe::await() const {
  pollfd waiting{ends_[0], POLLIN, 0};
  char byte = 0;
  ASSERT_EQ(::poll(&waiting, 1, 30000), 1) << "the other side said nothing";
  (void)!read(ends_[0], &byte, 1);
}

std::uint64_t scaled(std::uint64_t work) {
  const char* factor = std::getenv("TOLMAR_LONG_TESTS");
  return factor != nullptr ? work * std::max(std::strtoull(factor, nullptr, 10), 1ull) : work;
}

}  // namespace VestaTest
