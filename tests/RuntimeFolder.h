#pragma once

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "cairn/Exception.h"

/// A private folder for the tables of one test, removed with everything in it at the end.
class RuntimeFolder {
 public:
  explicit RuntimeFolder(const std::filesystem::path& parent = std::filesystem::temp_directory_path()) {
    std::string pattern = (parent / "tolmar-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw Cairn::SystemException("mkdtemp " + pattern, errno);
    path_ = pattern;
  }
  ~RuntimeFolder() { std::filesystem::remove_all(path_); }
  RuntimeFolder(const RuntimeFolder&) = delete;
  RuntimeFolder& operator=(const RuntimeFolder&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
};
