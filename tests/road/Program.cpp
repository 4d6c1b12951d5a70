#include "Program.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>

#include "cairn/Exception.h"

namespace {

/// A file in memory holding `text`, to be read from the start.
int inputOf(const std::string& text) {
  const int file = ::memfd_create("input", MFD_CLOEXEC);
  if (file < 0 || ::write(file, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    throw Cairn::SystemException("input", errno);
  }
  ::lseek(file, 0, SEEK_SET);
  return file;
}

}  // namespace

Program::Program(const std::vector<std::string>& arguments, const std::string& input) {
  std::vector<char*> pointers;
  for (const std::string& argument : arguments) pointers.push_back(const_cast<char*>(argument.c_str()));
  pointers.push_back(nullptr);
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) throw Cairn::SystemException("pipe", errno);
  const int in = inputOf(input);
  pid_ = ::fork();
  if (pid_ == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);  // a test that is killed leaves no program behind
    ::dup2(in, STDIN_FILENO);
    ::dup2(ends[1], STDOUT_FILENO);
    ::dup2(ends[1], STDERR_FILENO);
    ::execv(pointers[0], pointers.data());
    ::_exit(127);
  }
  ::close(in);
  ::close(ends[1]);
  pipe_ = ends[0];
  if (pid_ < 0) throw Cairn::SystemException("fork", errno);
}

Program::~Program() {
  if (exitCode_ < 0) {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
  ::close(pipe_);
}

bool Program::readMore(std::chrono::steady_clock::time_point until) {
  const auto left =
      std::chrono::duration_cast<std::chrono::milliseconds>(until - std::chrono::steady_clock::now());
  pollfd waited{pipe_, POLLIN, 0};
  if (left.count() <= 0 || ::poll(&waited, 1, static_cast<int>(left.count())) <= 0) return false;
  std::array<char, 65536> bytes;
  const ssize_t length = ::read(pipe_, bytes.data(), bytes.size());
  if (length <= 0) return false;
  output_.append(bytes.data(), static_cast<std::size_t>(length));
  return true;
}

bool Program::says(const std::string& text) {
  const auto until = std::chrono::steady_clock::now() + kPatience;
  while (output_.find(text) == std::string::npos) {
    if (!readMore(until)) return false;
  }
  return true;
}

void Program::signal(int number) const { ::kill(pid_, number); }

int Program::exitCode() {
  if (exitCode_ >= 0) return exitCode_;
  const auto until = std::chrono::steady_clock::now() + kPatience;
  while (readMore(until)) {
  }
  if (std::chrono::steady_clock::now() >= until) ::kill(pid_, SIGKILL);
  int status = 0;
  ::waitpid(pid_, &status, 0);
  exitCode_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return exitCode_;
}
