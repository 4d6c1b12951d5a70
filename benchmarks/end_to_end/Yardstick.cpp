#include "Yardstick.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "cairn/Exception.h"

Contestant::~Contestant() = default;

namespace Yardstick {

namespace {

using ConfigRow = BareTable<kConfigBytes>::Row;
using StatusRow = BareTable<kStatusBytes>::Row;

constexpr int kAnswerMilliseconds = 10'000;

int openFifo(const std::string& path) {
  if (mkfifo(path.c_str(), 0600) != 0) throw Cairn::SystemException("mkfifo " + path, errno);
  const int fifo = open(path.c_str(), O_RDWR | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
  unlink(path.c_str());
  if (fifo < 0) throw Cairn::SystemException("open " + path, errno);
  return fifo;
}

void wake(int fifo) {
  if (write(fifo, "w", 1) < 0 && errno != EAGAIN) throw Cairn::SystemException("write to a FIFO", errno);
}

/// False when nobody woke this process in time.
bool sleepOn(int fifo) {
  pollfd waiting{fifo, POLLIN, 0};
  if (poll(&waiting, 1, kAnswerMilliseconds) <= 0) return false;
  char wakes[64];
  return read(fifo, wakes, sizeof wakes) > 0 || errno == EAGAIN;
}

}  // namespace

TwoTables::TwoTables(std::chrono::microseconds busyPoll) : busyPoll_(busyPoll) {
  std::string folder = "/tmp/yardstick_XXXXXX";
  if (mkdtemp(folder.data()) == nullptr) throw Cairn::SystemException("mkdtemp " + folder, errno);
  configWake_ = openFifo(folder + "/config");
  statusWake_ = openFifo(folder + "/status");
  rmdir(folder.c_str());
  completions_ = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  void* const memory =
      mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
  if (memory == MAP_FAILED || completions_ < 0) throw Cairn::SystemException("yardstick memory", errno);
  shared_ = ::new (memory) Shared;
  peer_ = fork();
  if (peer_ < 0) throw Cairn::SystemException("fork", errno);
  if (peer_ == 0) answer();
}

TwoTables::~TwoTables() {
  shared_->stop.store(true);
  wake(configWake_);
  waitpid(peer_, nullptr, 0);
  for (const int descriptor : {configWake_, statusWake_, completions_}) close(descriptor);
  munmap(shared_, sizeof(Shared));
}

/// Returns when `arrived` is true, or after the time of busy polling.
template <class Arrived>
void TwoTables::pollFor(const Arrived& arrived) const {
  if (busyPoll_.count() == 0) return;
  using Clock = std::chrono::steady_clock;
  for (const auto end = Clock::now() + busyPoll_; !arrived() && Clock::now() < end;) {
  }
}

/// The other process: a status row with the number of each config row, until it is to stop.
void TwoTables::answer() const {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  std::uint64_t seen = 0;
  while (!shared_->stop.load()) {
    shared_->config.follow(seen, [this](std::uint32_t number) {
      ConfigRow config;
      if (!shared_->config.read(number, config)) _exit(1);
      StatusRow status{};
      std::memcpy(status.data(), config.data(), sizeof(std::uint64_t));
      if (shared_->status.write(number, status)) wake(statusWake_);
    });
    pollFor([&] { return shared_->config.written() != seen; });
    if (shared_->config.fallAsleep(seen)) sleepOn(configWake_);
  }
  _exit(0);
}

void TwoTables::prepare(std::size_t rows) {
  ++generation_;
  rows_.assign(rows, {});
  for (ConfigRow& row : rows_) std::memcpy(row.data(), &generation_, sizeof generation_);
}

void TwoTables::batch() {
  const std::size_t rows = rows_.size();
  for (std::uint32_t number = 0; number < rows; ++number) {
    if (shared_->config.write(number, rows_[number])) wake(configWake_);
  }
  for (std::size_t answered = 0; answered < rows;) {
    shared_->status.follow(seen_, [&](std::uint32_t number) {
      complete(number);
      ++answered;
    });
    if (answered == rows) break;
    pollFor([&] { return shared_->status.written() != seen_; });
    if (!shared_->status.fallAsleep(seen_)) continue;
    if (!sleepOn(statusWake_)) throw Cairn::Exception("yardstick: no answer within 10 s");
  }
  std::uint64_t completions = 0;
  if (read(completions_, &completions, sizeof completions) != sizeof completions || completions != rows) {
    throw Cairn::Exception("yardstick: " + std::to_string(completions) + " completions for " +
                           std::to_string(rows) + " rows");
  }
}

void TwoTables::complete(std::uint32_t number) const {
  constexpr std::uint64_t kOne = 1;
  StatusRow status;
  if (!shared_->status.read(number, status) ||
      std::memcmp(status.data(), &generation_, sizeof generation_) != 0) {
    throw Cairn::Exception("yardstick: wrong answer for row " + std::to_string(number));
  }
  if (write(completions_, &kOne, sizeof kOne) != sizeof kOne) throw Cairn::SystemException("eventfd", errno);
}

}  // namespace Yardstick
