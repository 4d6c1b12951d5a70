#include "skein/TraceReader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <map>
#include <string_view>
#include <utility>

#include "cairn/Descriptor.h"
#include "cairn/Exception.h"
#include "cairn/Hash.h"
#include "skein/RingFormat.h"

namespace Skein {

namespace {

using Braid::Header;
using Braid::RecordHeader;
using Braid::SiteHeader;

// Bytes that the writer may have overwritten beyond the head that it has published: the record in progress,
// and as much again for processors that may make the stores of the next record visible before the published
// head.
constexpr std::uint64_t kInProgress = 2 * Braid::kMaxRecordBytes;
constexpr std::uint64_t kMaxHead = std::uint64_t{1} << 62;  // beyond any writer's life

class RingFile {
 public:
  explicit RingFile(const std::string& path)
      : path_(path), file_(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)) {
    if (!file_) throw Cairn::SystemException("open trace ring " + path, errno);
  }

  std::uint64_t size() const {
    struct stat status {};
    if (fstat(file_.get(), &status) != 0) throw Cairn::SystemException("stat trace ring " + path_, errno);
    return S_ISREG(status.st_mode) ? static_cast<std::uint64_t>(status.st_size) : 0;
  }

  void read(void* to, std::size_t bytes, std::size_t offset) const {
    for (std::size_t done = 0; done < bytes;) {
      const ssize_t got =
          pread(file_.get(), static_cast<char*>(to) + done, bytes - done, static_cast<off_t>(offset + done));
      if (got == 0) damaged("ends early");
      if (got < 0 && errno != EINTR) throw Cairn::SystemException("read trace ring " + path_, errno);
      if (got > 0) done += static_cast<std::size_t>(got);
    }
  }

  [[noreturn]] void damaged(const char* what) const {
    throw Cairn::CorruptionDetectedException("trace ring " + path_ + ": " + what);
  }

  Header header() const {
    Header header;
    read(&header, sizeof header, 0);
    return header;
  }

  void check(const Header& header) const {
    if (std::memcmp(header.magic, Braid::kMagic, sizeof header.magic) != 0) damaged("not a trace ring");
    if (header.version != Braid::kLayoutVersion) damaged("unknown layout version");
    if (header.checksum != Cairn::checksum(&header, offsetof(Header, checksum))) damaged("damaged header");
    if (!std::has_single_bit(header.ringBytes) || header.ringBytes < Braid::kMinRingBytes ||
        header.ringBytes > Braid::kMaxRingBytes || header.siteBytes != Braid::kSiteAreaBytes ||
        size() != Braid::kPageBytes + header.siteBytes + header.ringBytes) {
      damaged("sizes do not agree");
    }
  }

 private:
  std::string path_;
  Cairn::Descriptor file_;
};

/// Turns ticks into nanoseconds by two anchors.
class Clock {
 public:
  explicit Clock(const Header& header) : last_(header.first) {
    for (const Braid::Anchor& anchor : header.later) {
      if (anchor.check == anchor.expectedCheck() && anchor.ticks > last_.ticks) last_ = anchor;
    }
    const auto ticks = static_cast<double>(last_.ticks - header.first.ticks);
    const auto nanoseconds = static_cast<double>(last_.monotonic - header.first.monotonic);
    if (ticks > 0) rate_ = std::clamp(nanoseconds / ticks, 0.0, kMaxRate);
  }
  /// Nanoseconds from the last anchor to `ticks`, negative before it.
  std::int64_t fromLast(std::uint64_t ticks) const {
    const auto distance = static_cast<double>(static_cast<std::int64_t>(ticks - last_.ticks));
    return static_cast<std::int64_t>(std::clamp(distance, -kMaxDistance, kMaxDistance) * rate_);
  }
  const Braid::Anchor& last() const { return last_; }

 private:
  static constexpr double kMaxRate = 1000.0;      // nanoseconds: every counter has at least 1 MHz
  static constexpr double kMaxDistance = 9.0e15;  // ticks: the product fits 64 bits
  Braid::Anchor last_;
  double rate_ = 0;
};

class Sites {
 public:
  Sites(const RingFile& file, const Header& header)
      : area_(std::min<std::uint64_t>(header.sitesUsed, Braid::kSiteAreaBytes)) {
    file.read(area_.data(), area_.size(), Braid::kPageBytes);
  }

  std::shared_ptr<const TraceSite> site(std::uint32_t number) {
    auto& known = known_[number];
    if (known == nullptr) known = std::make_shared<const TraceSite>(decoded(number));
    return known;
  }

 private:
  TraceSite decoded(std::uint32_t number) const {
    const std::size_t at =
        (std::size_t{number} - 1) * Braid::kRecordAlignment;  // number 0 is beyond the area
    if (at > area_.size() || area_.size() - at < sizeof(SiteHeader)) return {};
    SiteHeader header;
    std::memcpy(&header, area_.data() + at, sizeof header);
    const std::size_t textBytes = std::size_t{header.sourceBytes} + header.functionBytes + header.formatBytes;
    if (area_.size() - at - sizeof header < textBytes) return {};
    const std::size_t checked = sizeof header - sizeof header.checksum + textBytes;
    if (Cairn::checksum(area_.data() + at + sizeof header.checksum, checked) != header.checksum) return {};
    const char* text = area_.data() + at + sizeof header;
    const auto next = [&text](std::size_t bytes) {
      return std::string(std::exchange(text, text + bytes), bytes);
    };
    TraceSite site;
    site.line = header.line;
    site.source = next(header.sourceBytes);
    site.function = next(header.functionBytes);
    site.format = next(header.formatBytes);
    return site;
  }

  std::vector<char> area_;
  std::map<std::uint32_t, std::shared_ptr<const TraceSite>> known_;
};

/// Decodes the values of a record; false if their lengths do not add up.
bool decodeValues(std::string_view bytes, std::vector<std::string>& values) {
  while (!bytes.empty()) {
    std::uint16_t length = 0;
    if (bytes.size() < sizeof length) return false;
    std::memcpy(&length, bytes.data(), sizeof length);
    bytes.remove_prefix(sizeof length);
    if (bytes.size() < length) return false;
    values.emplace_back(bytes.substr(0, length));
    bytes.remove_prefix(length);
  }
  return true;
}

bool plausible(const RecordHeader& header, std::uint64_t position, std::uint64_t head) {
  return header.position == position && header.bytes % Braid::kRecordAlignment == 0 &&
         header.bytes <= Braid::kMaxRecordBytes && header.bytes <= head - position &&
         header.bytes >= sizeof header + header.valueBytes;
}

void appendPrintable(std::string& out, std::string_view text) {
  static constexpr char kDigits[] = "0123456789abcdef";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte < 0x7f) {
      out += c;
    } else {
      out += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15]};
    }
  }
}

}  // namespace

std::string TraceRecord::text() const {
  std::string out;
  std::string_view format = site->format;
  std::size_t used = 0;
  while (used < values.size()) {
    const std::size_t place = format.find("%s");
    if (place == std::string_view::npos) break;
    appendPrintable(out, format.substr(0, place));
    appendPrintable(out, values[used++]);
    format.remove_prefix(place + 2);
  }
  appendPrintable(out, format);
  for (; used < values.size(); ++used) {
    if (!out.empty()) out += ' ';
    appendPrintable(out, values[used]);
  }
  return out;
}

std::vector<TraceRecord> readTrace(const std::string& path) {
  TraceProgress none;
  return readTrace(path, none);
}

std::vector<TraceRecord> readTrace(const std::string& path, TraceProgress& progress) {
  const RingFile file(path);
  const Header before = file.header();
  file.check(before);
  std::uint64_t& from = progress.of(before.pid, before.first.ticks);
  if (before.head == from) return {};
  const std::uint64_t size = before.ringBytes;
  // The beginning is repeated behind the end, because records may wrap.
  std::vector<char> area(size + Braid::kMaxRecordBytes);
  file.read(area.data(), size, Braid::kPageBytes + before.siteBytes);
  std::memcpy(area.data() + size, area.data(), Braid::kMaxRecordBytes);
  const Header after = file.header();  // read after the records, to skip those overwritten meanwhile
  if (before.head % Braid::kRecordAlignment != 0 || after.head < before.head || after.head > kMaxHead) {
    file.damaged("head out of order");
  }
  Sites sites(file, after);
  const Clock clock(after);
  auto process = std::make_shared<TraceProcess>();
  process->pid = after.pid;
  process->name.assign(after.process, strnlen(after.process, sizeof after.process));

  std::vector<TraceRecord> records;
  std::uint64_t latest = 0;
  const std::uint64_t overwritten = after.head + kInProgress;
  std::uint64_t position = std::max(overwritten > size ? overwritten - size : 0, from);
  from = before.head;
  while (position < before.head && before.head - position >= sizeof(RecordHeader)) {
    const char* const at = area.data() + (position & (size - 1));
    RecordHeader header;
    std::memcpy(&header, at, sizeof header);
    std::vector<std::string> values;
    if (!plausible(header, position, before.head) ||
        !decodeValues({at + sizeof header, header.valueBytes}, values)) {
      position += Braid::kRecordAlignment;  // inside an older record
      continue;
    }
    const std::int64_t distance = clock.fromLast(header.ticks);
    latest = std::max(latest, clock.last().monotonic + static_cast<std::uint64_t>(distance));
    records.push_back({latest, clock.last().wall + static_cast<std::uint64_t>(distance), process,
                       sites.site(header.site), std::move(values)});
    position += header.bytes;
  }
  return records;
}

void sortByTime(std::vector<TraceRecord>& records) {
  std::stable_sort(records.begin(), records.end(),
                   [](const TraceRecord& a, const TraceRecord& b) { return a.monotonic < b.monotonic; });
}

}  // namespace Skein
