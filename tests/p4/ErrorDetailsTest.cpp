#include "apps/p4/ErrorDetails.h"

#include <google/protobuf/text_format.h>
#include <gtest/gtest.h>

#include "apps/p4/StreamErrors.h"
#include "google/rpc/status.pb.h"
#include "p4/v1/p4runtime.pb.h"

namespace {

using Agent::StatusCode;
using Agent::UpdateStatus;

std::vector<p4::v1::Error> errorsIn(const Wire::ErrorDetails& details, google::rpc::Status& status) {
  EXPECT_TRUE(status.ParseFromString(details.bytes));
  std::vector<p4::v1::Error> errors;
  for (const auto& detail : status.details()) {
    EXPECT_EQ(detail.type_url(), "type.googleapis.com/p4.v1.Error");
    EXPECT_TRUE(detail.UnpackTo(&errors.emplace_back()));
  }
  return errors;
}

struct BudgetCase {
  const char* name;
  std::size_t updates;
  std::string text;
  Wire::DetailsBudget budget;
  std::size_t shortened;
  const char* ending;  // of the cut texts
};

std::string repeated(const char* text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) all += text;
  return all;
}

TEST(ErrorDetails, AreShortenedToTheBudgetButComplete) {
  const BudgetCase cases[] = {
      {"Fits", 100, repeated("x", 60), {}, 0, "x"},
      {"FewLongTexts", 20, repeated("x", 2000), {}, 10, "x..."},
      {"LongTexts", 1000, repeated("x", 200), {}, 500, "x..."},
      {"ManyLongTexts", 8192, repeated("x", 2000), {}, 4096, "x..."},
      {"NoCharacterIsSplit", 1000, repeated("\u00e9", 90), {}, 500, "\u00e9..."},
      {"NothingAffordable", 100, repeated("x", 50), {0, 1}, 51, ""},
  };
  for (const BudgetCase& tried : cases) {
    SCOPED_TRACE(tried.name);
    std::vector<UpdateStatus> outcomes(tried.updates);
    for (std::size_t i = 0; i < tried.updates; i += 2) outcomes[i] = {{StatusCode::notFound, tried.text}, 0};
    outcomes.back() = {{StatusCode::internal, "short"}, 65535};
    const Wire::ErrorDetails details = Wire::packErrors(outcomes, tried.budget);
    google::rpc::Status status;
    const auto errors = errorsIn(details, status);
    ASSERT_EQ(errors.size(), tried.updates);
    EXPECT_EQ(details.shortened, tried.shortened);
    EXPECT_EQ(details.status.code, StatusCode::unknown);
    EXPECT_EQ(details.status.message, std::to_string(tried.updates / 2 + 1) + " of " +
                                          std::to_string(tried.updates) + " updates failed; see the details");
    EXPECT_EQ(status.code(), 2);
    EXPECT_EQ(status.message(), details.status.message);
    EXPECT_EQ(errors[1].ByteSizeLong(), 0u) << "OK and nothing else";
    EXPECT_EQ(errors.back().space() + std::to_string(errors.back().code()), "tolmar-hardware65535");
    for (std::size_t i = 0; i + 1 < tried.updates; ++i) {
      ASSERT_EQ(errors[i].canonical_code(), i % 2 == 0 ? 5 : 0);
      ASSERT_TRUE(i % 2 != 0 || errors[i].message().ends_with(tried.ending)) << errors[i].message();
    }
    if (tried.budget.fixed == 0) continue;
    const std::size_t allowed = tried.budget.fixed + tried.budget.perUpdate * tried.updates;
    const std::size_t base64 = (details.bytes.size() + 2) / 3 * 4;
    EXPECT_LE(base64 + 512, allowed) << "there are other trailers";
    EXPECT_TRUE(tried.shortened == 0 || base64 + 600 + 4 * tried.updates > allowed) << base64;
    EXPECT_EQ(errors.back().message(), "short");
  }
}

TEST(StreamError, SaysWhatCameAndReturnsIt) {
  const std::string large(2048, 'p');
  const struct {
    std::string sent;
    int code;
    const char* got;
    std::string details;
  } cases[] = {
      {"", 3, "an empty message", ""},
      {"digest_ack { list_id: 7 }", 12, "the acknowledgement of a digest: this agent has none",
       "digest_list_ack { digest_list_ack { list_id: 7 } }"},
      {"other { type_url: 'x/y' }", 12, "a message of type \"x/y\"", "other { }"},
      {"packet { payload: '" + large + "' }", 12, "a packet: this agent sends none",
       "packet_out { packet_out { payload: \"" + large + "\" } }"},
      {"packet { payload: 'p" + large + "' metadata { metadata_id: 3 } }", 12,
       "a packet: this agent sends none", "packet_out { packet_out { metadata { metadata_id: 3 } } }"},
  };
  for (const auto& [sent, code, got, details] : cases) {
    p4::v1::StreamMessageRequest request;
    ASSERT_TRUE(google::protobuf::TextFormat::ParseFromString(sent, &request));
    p4::v1::StreamError error = Wire::streamErrorFor(request);
    EXPECT_EQ(error.canonical_code(), code);
    EXPECT_EQ(error.message(), std::string("expected an arbitration, got ") + got);
    error.clear_canonical_code();
    error.clear_message();
    EXPECT_EQ(error.ShortDebugString(), details);
  }
}

}  // namespace
