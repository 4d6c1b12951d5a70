#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

/// One program started by a test, its standard output and error caught together. Killed, if it still runs,
/// when the object or the test goes: a wait that never ends is ended with the test, by CTest.
class Program {
 public:
  /// Starts arguments[0] with `input` on its standard input.
  explicit Program(const std::vector<std::string>& arguments, const std::string& input = "");
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  pid_t pid() const { return pid_; }
  /// Reads until the output holds `text`. False when the program ends before.
  bool says(const std::string& text);
  void signal(int number) const;
  /// Waits for the end and returns the exit code, 128 plus the signal's number for a program that was killed.
  int exitCode();
  /// What it has said, up to the last wait.
  const std::string& output() const { return output_; }

 private:
  bool readMore();

  pid_t pid_;
  int pipe_;
  std::string output_;
  int exitCode_ = -1;
};
