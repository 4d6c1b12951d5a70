#include "Support.h"

#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

namespace VestaTest {

namespace {

constexpr std::size_t kPage = 4096;
void* trapped = nullptr;  // the page of the trap that is set
std::function<void()> onTrap;

void touched(int, siginfo_t* info, void*) {
  const auto page = reinterpret_cast<std::uintptr_t>(info->si_addr) / kPage * kPage;
  if (trapped == nullptr || page != reinterpret_cast<std::uintptr_t>(trapped)) {
    ::signal(SIGSEGV, SIG_DFL);  // a fault that is none of ours happens again, and ends the process
    return;
  }
  mprotect(std::exchange(trapped, nullptr), kPage, PROT_READ);
  std::exchange(onTrap, {})();
}

}  // namespace

void onTouch(const Vesta::Word& word, std::function<void()> then) {
  struct sigaction action {};
  action.sa_sigaction = touched;
  action.sa_flags = SA_SIGINFO | SA_NODEFER;
  sigaction(SIGSEGV, &action, nullptr);
  onTrap = std::move(then);
  trapped = reinterpret_cast<void*>(reinterpret_cast<std::uintptr_t>(&word) / kPage * kPage);
  mprotect(trapped, kPage, PROT_NONE);
}

TestEntry TestEntry::make(std::uint64_t id, std::uint64_t stamp) {
  TestEntry entry{id, stamp};
  for (std::uint64_t& proof : entry.proof)
    proof = (id + 1) * 0x9e3779b97f4a7c15u ^ ++stamp * 0xd6e8feb86659fd93u;
  return entry;
}

bool TestEntry::whole() const {
  const TestEntry expected = make(id, stamp);
  return std::memcmp(this, &expected, sizeof expected) == 0;
}

Vesta::AttachOptions TableTest::options(std::uint32_t capacity) const {
  Vesta::AttachOptions options{.path = path(), .capacity = capacity};
  options.debugHandler = std::make_shared<Cairn::DebugHandler>(0);
  return options;
}

Vesta::AttachOptions TableTest::observer(std::uint32_t capacity) const {
  Vesta::AttachOptions with = options(capacity);
  with.observer = true;
  return with;
}

std::unique_ptr<Writer> TableTest::writer(std::uint32_t capacity) const {
  return std::make_unique<Writer>(options(capacity));
}

std::unique_ptr<Reader> TableTest::reader(std::uint32_t capacity) const {
  return std::make_unique<Reader>(options(capacity));
}

std::vector<std::string> TableTest::files() const {
  std::vector<std::string> names;
  if (!std::filesystem::exists(path().folder())) return names;
  for (const auto& file : std::filesystem::directory_iterator(path().folder())) {
    names.push_back(file.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

void TableTest::startOver() const { std::filesystem::remove_all(folder_ + "/some"); }

void TableTest::replaceSegment(Writer& table) const {
  const auto damaged = table.segment().mapping();
  damaged->at(Vesta::kIndexAt) ^= 1;
  EXPECT_NE(failure([&] { reader(static_cast<std::uint32_t>(table.capacity())); }), "");
  put(table, 2, 1);
  EXPECT_NE(table.segment().mapping(), damaged);
}

void put(Writer& table, std::uint64_t id, std::uint64_t stamp) {
  if (stamp != 0) {
    table.write(Row{{id}, TestEntry::make(id, stamp)}, false);
  } else {
    table.remove(TestKey{id}, nullptr);
  }
}

void put(Model& model, std::uint64_t id, std::uint64_t stamp) {
  model[id] = stamp;
  if (stamp == 0) model.erase(id);
}

std::uint64_t stampOf(Table& table, std::uint64_t id) {
  bool found = false;
  const TestEntry& entry = table.directLookup(TestKey{id}, found, nullptr);
  EXPECT_TRUE(!found || (entry.whole() && entry.id == id));
  return found ? entry.stamp : 0;
}

Model contents(Table& table) {
  Model rows;
  Row row;
  Vesta::IterHint hint;
  for (bool more = table.first(row, hint); more; more = table.next(row.key, row, hint)) {
    EXPECT_TRUE(row.entry.whole() && row.key.id == row.entry.id);
    EXPECT_TRUE(rows.emplace(row.key.id, row.entry.stamp).second) << row.key.id;
  }
  return rows;
}

Ids told(Reader& reader, Model* known) {
  Ids ids;
  reader.onChangeIs([&](const TestKey& key) {
    ids.push_back(key.id);
    if (known != nullptr) put(*known, key.id, stampOf(reader, key.id));
  });
  while (reader.poll(1000) != 0) {
  }
  reader.onChangeIs({});
  return ids;
}

bool readable(int descriptor) {
  pollfd waiting{descriptor, POLLIN, 0};
  return poll(&waiting, 1, 0) == 1;
}

std::string failure(const std::function<void()>& call) {
  try {
    call();
  } catch (const Cairn::Exception& exception) {
    return exception.what();
  }
  return "";
}

Child::Child(const std::function<int()>& body) : pid_(fork()) {
  if (pid_ != 0) return;
  alarm(static_cast<unsigned>(scaled(60)));
  int code = 98;
  try {
    code = body();
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "child: %s\n", failure.what());
  }
  _exit(::testing::Test::HasFailure() ? 99 : code);
}

Child::~Child() {
  signal(SIGKILL);
  if (pid_ > 0) waitpid(pid_, nullptr, 0);
}

int Child::wait() {
  int status = 0;
  waitpid(pid_, &status, WUNTRACED);
  if (WIFSTOPPED(status)) return -WSTOPSIG(status);
  pid_ = -1;
  return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

std::atomic<std::uint64_t>& sharedCount(std::uint64_t value) {
  void* page = mmap(nullptr, kPage, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  return *new (page) std::atomic<std::uint64_t>(value);
}

rlim_t limit(decltype(RLIMIT_NOFILE) resource, rlim_t bound) {
  rlimit limited{};
  getrlimit(resource, &limited);
  std::swap(limited.rlim_cur, bound);
  EXPECT_EQ(setrlimit(resource, &limited), 0);
  return bound;
}

ByteReader::ByteReader(const Vesta::AttachOptions& options, std::shared_ptr<Vesta::Segment> mapping)
    : SegmentReader(Vesta::shapeOf<TestKey, TestEntry>(options.capacity), options, std::move(mapping)) {}

std::uint64_t ByteReader::stampOf(std::uint64_t id) {
  std::uint32_t slot = 0;
  buffer_.encodeKey(TestKey{id});
  if (!lookup(Buffer::kSizes, buffer_.key(), row_.words(), slot)) return 0;
  TestEntry entry;
  row_.decodeEntry(entry);
  EXPECT_TRUE(entry.whole() && entry.id == id);
  return entry.stamp;
}

Ids ByteReader::tell(std::size_t limit, const std::function<void(std::uint64_t)>& handled) {
  Ids ids;
  poll(limit, [&](const Vesta::Word* key) {
    ids.push_back(key[0]);
    handled(key[0]);
  });
  return ids;
}

std::uint64_t scaled(std::uint64_t work) {
  const char* factor = std::getenv("TOLMAR_LONG_TESTS");
  return factor != nullptr ? work * std::max(std::strtoull(factor, nullptr, 10), 1ull) : work;
}

}  // namespace VestaTest
