#include "vesta/files/CorruptionReport.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <vector>

#include "cairn/Exception.h"
#include "vesta/files/PrivateFile.h"
#include "vesta/segment/Layout.h"
#include "vesta/segment/Segment.h"

namespace Vesta {

namespace {

constexpr unsigned kKept = 8;  // first reports, and as many last ones

std::string timeText() {
  const time_t now = time(nullptr);
  struct tm utc {};
  char text[32];
  strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", gmtime_r(&now, &utc));
  return text;
}

std::string headerText(const std::array<Word, kHeaderWords>& header) {
  static constexpr const char* kNames[kHeaderWords] = {"magic",      "layout version", "fingerprint",
                                                       "sizes",      "capacity",       "first sequence",
                                                       "segment id", "file size",      "header check"};
  std::string text;
  for (std::size_t i = 0; i < kHeaderWords; ++i) {
    text += std::string("header ") + kNames[i] + ": " + hexText(header[i]) + "\n";
  }
  return text;
}

// The writer's page.
std::string writerText(int file) {
  static constexpr struct {
    const char* name;
    std::size_t at;
  } kWords[] = {{"sequence", kSequenceAt},
                {"member count", kMembersAt},
                {"index word", kIndexAt},
                {"state", kStateAt},
                {"writer pid", kWriterProcessAt}};
  std::string text;
  for (const auto& [name, at] : kWords) {
    Word word = 0;
    const bool got = pread(file, &word, sizeof word, static_cast<off_t>(at * sizeof word)) == sizeof word;
    text += std::string(name) + ": " + (got ? hexText(word) : "cannot be read") + "\n";
  }
  return text;
}

std::string dumpText(int file, std::size_t word, std::size_t words) {
  std::vector<unsigned char> bytes(words * sizeof(Word));
  const std::size_t position = word * sizeof(Word);
  const ssize_t got = pread(file, bytes.data(), bytes.size(), static_cast<off_t>(position));
  if (got <= 0) return "cannot be read\n";
  std::string text;
  char piece[24];
  for (std::size_t i = 0; i < static_cast<std::size_t>(got); ++i) {
    if (i % 16 == 0) {
      std::snprintf(piece, sizeof piece, "%s%08zx ", i == 0 ? "" : "\n", position + i);
      text += piece;
    }
    std::snprintf(piece, sizeof piece, " %02x", bytes[i]);
    text += piece;
  }
  return text + "\n";
}

// The place of the slot follows from the header's sizes, which may be damaged, too.
std::string slotText(int file, const std::array<Word, kHeaderWords>& header, std::size_t slot) {
  const Shape shape{static_cast<std::uint32_t>(header[kSizesAt]),
                    static_cast<std::uint32_t>(header[kSizesAt] >> 32),
                    static_cast<std::uint32_t>(header[kCapacityAt]), 0};
  const bool plausible = shape.capacity >= 1 && header[kCapacityAt] <= kMaxCapacity && shape.keySize >= 1 &&
                         shape.keySize <= 4096 && shape.entrySize >= 1 && shape.entrySize <= 4096;
  if (!plausible || slot >= shape.capacity) return "slot " + std::to_string(slot) + ": not in this segment\n";
  const Layout layout(shape);
  const auto number = static_cast<std::uint32_t>(slot);
  return "slot " + std::to_string(slot) + " as read:\n" +
         dumpText(file, layout.slotAt(number), layout.sizes().slot()) + "staging row:\n" +
         dumpText(file, layout.stagingAt, 1 + layout.rowWords);
}

// With its neighbours: two cache lines.
std::string wordText(int file, std::size_t word) {
  return "around word " + std::to_string(word) + ":\n" +
         dumpText(file, word / kLineWords * kLineWords, std::size_t{2} * kLineWords);
}

std::string segmentText(const std::string& name, const DamagedPlaces& places) {
  const Cairn::Descriptor file(open(name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
  if (!file) return std::string("segment cannot be opened: ") + std::strerror(errno) + "\n";
  struct stat status {};
  std::array<Word, kHeaderWords> header{};
  if (fstat(file.get(), &status) != 0 ||
      pread(file.get(), header.data(), sizeof header, 0) != static_cast<ssize_t>(sizeof header)) {
    return "segment is shorter than its header: " + std::to_string(status.st_size) + " bytes\n";
  }
  std::string text =
      "file size: " + std::to_string(status.st_size) + "\n" + headerText(header) + writerText(file.get());
  for (const DamagedPlace& place : places) {
    text += place.kind == DamagedPlace::Kind::slot ? slotText(file.get(), header, place.number)
                                                   : wordText(file.get(), place.number);
  }
  return text;
}

// The newest retired segment, or "". A living writer may have replaced the damaged one by now.
std::string newestRetired(const RootPath& path) {
  std::string newest;
  for (unsigned number = 1;; ++number) {
    const std::string name = path.text() + ".retired." + std::to_string(number);
    if (access(name.c_str(), F_OK) != 0) return newest;
    newest = name;
  }
}

// The highest number of a report in the folder, or 0.
unsigned long highestReport(const RootPath& path) {
  const std::string prefix = path.collection() + ".report.";
  unsigned long highest = 0;
  std::error_code failed;
  for (std::filesystem::directory_iterator file(path.folder(), failed), end; file != end && !failed;
       file.increment(failed)) {
    const std::string name = file->path().filename();
    if (!name.starts_with(prefix)) continue;
    highest = std::max(highest, std::strtoul(name.c_str() + prefix.size(), nullptr, 10));
  }
  return highest;
}

}  // namespace

std::string writeCorruptionReport(const Cairn::DebugHandler& handler, const RootPath& path,
                                  const std::string& message, const DamagedPlaces& places) {
  std::string text = "corruption report\ntable: " + path.text() + "\nmessage: " + message +
                     "\ntime: " + timeText() + "\npid: " + std::to_string(getpid()) + "\n" +
                     segmentText(path.text(), places);
  if (const std::string retired = newestRetired(path); !retired.empty()) {
    text += "retired: " + retired + "\n" + segmentText(retired, places);
  }
  const std::string reports = path.text() + ".report.";
  for (unsigned long number = highestReport(path) + 1;; ++number) {
    const std::string name = reports + std::to_string(number);
    const Cairn::Descriptor file(
        open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file && errno == EEXIST) continue;
    if (!file) throw Cairn::SystemException("create corruption report " + name, errno);
    const ssize_t put = write(file.get(), text.data(), text.size());
    if (put != static_cast<ssize_t>(text.size())) {
      throw Cairn::SystemException("write corruption report " + name, put < 0 ? errno : ENOSPC);
    }
    if (number > 2 * kKept) unlink((reports + std::to_string(number - kKept)).c_str());
    if (handler.wants(Cairn::DebugHandler::kErrorFlag)) {
      handler.log(1, "VestaReport", 0, "writeCorruptionReport", "corruption report written: " + name);
    }
    return name;
  }
}

}  // namespace Vesta
