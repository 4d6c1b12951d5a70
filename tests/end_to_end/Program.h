#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <string>
#include <vector>

#include "cairn/Exception.h"

/// One program started by a test, its standard output and error caught together. Killed, if it still runs,
/// when the object or the test goes: a wait that never ends is ended with the test, by CTest.
class Program {
 public:
  /// Starts arguments[0] with `input` on its standard input.
  explicit Program(const std::vector<std::string>& arguments, const std::string& input = "") {
    std::vector<char*> pointers;
    for (const std::string& argument : arguments) pointers.push_back(const_cast<char*>(argument.c_str()));
    pointers.push_back(nullptr);
    int ends[2];
    const int in = ::memfd_create("input", MFD_CLOEXEC);
    const bool ready = ::pipe2(ends, O_CLOEXEC) == 0 &&
                       ::pwrite(in, input.data(), input.size(), 0) == static_cast<ssize_t>(input.size());
    if (!ready || (pid_ = ::fork()) < 0) throw Cairn::SystemException("program", errno);
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
  }
  ~Program() {
    if (exitCode_ < 0) {
      ::kill(pid_, SIGKILL);
      ::waitpid(pid_, nullptr, 0);
    }
    ::close(pipe_);
  }
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  pid_t pid() const { return pid_; }
  void signal(int number) const { ::kill(pid_, number); }
  /// Reads until the output holds `text`. False when the program ends before.
  bool says(const std::string& text) {
    bool more = true;
    while (output_.find(text) == std::string::npos && more) more = readMore();
    return more;
  }
  /// The same for output behind what was found by the last call.
  bool saysNext(const std::string& text) {
    bool more = true;
    while (output_.find(text, found_) == std::string::npos && more) more = readMore();
    if (more) found_ = output_.find(text, found_) + text.size();
    return more;
  }
  /// Waits for the end and returns the exit code, 128 plus the signal's number for a program that was killed.
  int exitCode() {
    if (exitCode_ >= 0) return exitCode_;
    while (readMore()) {
    }
    int status = 0;
    ::waitpid(pid_, &status, 0);
    return exitCode_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  /// What it has said, up to the last wait.
  const std::string& output() const { return output_; }

 private:
  bool readMore() {
    std::array<char, 65536> bytes;
    const ssize_t length = ::read(pipe_, bytes.data(), bytes.size());
    if (length > 0) output_.append(bytes.data(), static_cast<std::size_t>(length));
    return length > 0;
  }

  pid_t pid_;
  int pipe_;
  std::string output_;
  std::size_t found_ = 0;  // where saysNext() continues
  int exitCode_ = -1;
};
