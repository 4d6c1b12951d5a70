#include "apps/p4/ErrorDetails.h"

#include <fmt/format.h>
#include <google/protobuf/any.pb.h>

#include <algorithm>
#include <string_view>

#include "google/rpc/status.pb.h"
#include "p4/v1/p4runtime.pb.h"

namespace Wire {

using Agent::UpdateStatus;

namespace {

constexpr std::string_view kCut = "...";
/// What the other trailers of an answer take, the text of the call included.
constexpr std::size_t kOtherTrailers = 512;

/// At most `length` bytes of `text`, a cut text with dots at its end. No character is cut in two.
std::string_view shortened(std::string_view text, std::size_t length, std::string& scratch) {
  if (text.size() <= length) return text;
  std::size_t kept = length > kCut.size() ? length - kCut.size() : 0;
  while (kept > 0 && (static_cast<unsigned char>(text[kept]) & 0xc0u) == 0x80u) --kept;
  scratch.assign(text.substr(0, kept)).append(kCut.substr(0, length));
  return scratch;
}

/// Serialises entries one at a time into messages that it keeps.
class EntryWriter {
 public:
  EntryWriter() {
    packed_.set_type_url("type.googleapis.com/p4.v1.Error");
    writeOk();
  }

  /// Appends the entry as one more element of Status.details.
  void append(const UpdateStatus& outcome, std::size_t textLength, std::string& out) {
    if (outcome.ok()) {
      out += ok_;
      return;
    }
    const std::string_view text = shortened(outcome.message, textLength, scratch_);
    error_.set_canonical_code(static_cast<int>(outcome.code));
    error_.set_message(text.data(), text.size());
    if (outcome.hardwareCode != 0) error_.set_space(kHardwareSpace);
    error_.set_code(outcome.hardwareCode);
    appendPacked(out);
    error_.Clear();
  }

 private:
  void writeOk() { appendPacked(ok_); }
  void appendPacked(std::string& out) {
    error_.SerializeToString(packed_.mutable_value());
    // A message whose only field is this element: messages are merged by appending their bytes.
    google::rpc::Status element;
    element.add_details()->Swap(&packed_);
    element.AppendToString(&out);
    element.mutable_details(0)->Swap(&packed_);
  }

  p4::v1::Error error_;
  google::protobuf::Any packed_;
  std::string ok_;
  std::string scratch_;
};

std::string packed(std::span<const UpdateStatus> outcomes, std::string out, std::size_t textLength) {
  EntryWriter writer;
  for (const UpdateStatus& outcome : outcomes) writer.append(outcome, textLength, out);
  return out;
}

/// Bytes to be saved in `excess`: the greatest length that texts can keep.
std::size_t affordableLength(std::span<const UpdateStatus> outcomes, std::size_t excess) {
  std::size_t low = 0;
  std::size_t high = 0;
  for (const UpdateStatus& outcome : outcomes) high = std::max(high, outcome.message.size());
  while (low < high) {
    const std::size_t length = low + (high - low + 1) / 2;
    std::size_t saved = 0;
    for (const UpdateStatus& outcome : outcomes) {
      if (outcome.message.size() > length) saved += outcome.message.size() - length;
    }
    (saved >= excess ? low : high) = saved >= excess ? length : length - 1;
  }
  return low;
}

}  // namespace

ErrorDetails packErrors(std::span<const UpdateStatus> outcomes, const DetailsBudget& budget,
                        std::string_view what) {
  const auto isFailed = [](const UpdateStatus& outcome) { return !outcome.ok(); };
  const auto failed = std::count_if(outcomes.begin(), outcomes.end(), isFailed);
  ErrorDetails details;
  details.status = {Agent::StatusCode::unknown,
                    fmt::format("{} of {} {} failed; see the details", failed, outcomes.size(), what)};
  google::rpc::Status head;
  head.set_code(static_cast<int>(details.status.code));
  head.set_message(details.status.message);
  const std::string headBytes = head.SerializeAsString();
  const std::size_t trailers = budget.fixed + budget.perUpdate * outcomes.size();
  const std::size_t allowed = trailers > kOtherTrailers ? (trailers - kOtherTrailers) / 4 * 3 : 0;
  details.bytes = packed(outcomes, headBytes, std::string::npos);
  if (details.bytes.size() <= allowed) return details;
  const std::size_t length = affordableLength(outcomes, details.bytes.size() - allowed);
  details.bytes = packed(outcomes, headBytes, length);
  details.shortened = static_cast<std::size_t>(
      std::count_if(outcomes.begin(), outcomes.end(),
                    [length](const UpdateStatus& outcome) { return outcome.message.size() > length; }));
  return details;
}

}  // namespace Wire
