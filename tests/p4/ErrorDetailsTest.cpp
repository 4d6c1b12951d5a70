#include "apps/p4/ErrorDetails.h"

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

TEST(ErrorDetails, HoldOneErrorPerUpdateInOrder) {
  const UpdateStatus outcomes[] = {
      {}, {{StatusCode::notFound, "no such key"}, 0}, {{StatusCode::internal, "refused"}, 7}, {}};
  const Wire::ErrorDetails details = Wire::packErrors(outcomes, {});
  google::rpc::Status status;
  const auto errors = errorsIn(details, status);
  EXPECT_EQ(details.status.code, StatusCode::unknown);
  EXPECT_EQ(details.status.message, "2 of 4 updates failed; see the details");
  EXPECT_EQ(status.code(), 2);
  EXPECT_EQ(status.message(), details.status.message);
  ASSERT_EQ(errors.size(), 4u);
  EXPECT_EQ(errors[0].ByteSizeLong(), 0u);  // OK and nothing else
  EXPECT_EQ(errors[1].ShortDebugString(), "canonical_code: 5 message: \"no such key\"");
  EXPECT_EQ(errors[2].ShortDebugString(),
            "canonical_code: 13 message: \"refused\" space: \"tolmar-hardware\" code: 7");
  EXPECT_EQ(errors[3].ByteSizeLong(), 0u);
  EXPECT_EQ(details.shortened, 0u);
}

struct BudgetCase {
  const char* name;
  std::size_t updates;
  std::string text;
  Wire::DetailsBudget budget;
  std::size_t shortened;
  const char* ending;  // of the cut texts
};

const BudgetCase kBudgets[] = {
    {"Fits", 100, std::string(60, 'x'), {}, 0, "x"},
    {"LongTexts", 1000, std::string(200, 'x'), {}, 500, "x..."},
    {"ManyLongTexts", 8192, std::string(2000, 'x'), {}, 4096, "x..."},
    {"NoCharacterIsSplit",
     1000,
     [] {
       std::string t;
       for (int i = 0; i < 90; ++i) t += "\u00e9";
       return t;
     }(),
     {},
     500,
     "\u00e9..."},
    {"NothingAffordable", 100, std::string(50, 'x'), {0, 1}, 50, ""},
};

TEST(ErrorDetails, AreShortenedToTheBudgetButComplete) {
  for (const BudgetCase& tried : kBudgets) {
    SCOPED_TRACE(tried.name);
    std::vector<UpdateStatus> outcomes(tried.updates);
    for (std::size_t i = 0; i < tried.updates; i += 2) outcomes[i] = {{StatusCode::notFound, tried.text}, 0};
    outcomes.back() = {{StatusCode::internal, "short"}, 65535};
    const Wire::ErrorDetails details = Wire::packErrors(outcomes, tried.budget);
    google::rpc::Status status;
    const auto errors = errorsIn(details, status);
    ASSERT_EQ(errors.size(), tried.updates);
    EXPECT_EQ(details.shortened, tried.shortened + (tried.budget.fixed == 0 ? 1 : 0));
    const std::size_t allowed = tried.budget.fixed + tried.budget.perUpdate * tried.updates;
    const std::size_t base64 = (details.bytes.size() + 2) / 3 * 4;
    if (tried.budget.fixed != 0) {
      EXPECT_LE(base64 + status.message().size() + 200, allowed);
      EXPECT_TRUE(tried.shortened == 0 || base64 + 600 + 4 * tried.updates > allowed)
          << base64 << " " << allowed;
      EXPECT_EQ(errors.back().message(), "short");
    }
    for (std::size_t i = 0; i + 1 < tried.updates; ++i) {
      ASSERT_EQ(errors[i].canonical_code(), i % 2 == 0 ? 5 : 0);
      ASSERT_TRUE(i % 2 != 0 || errors[i].message().ends_with(tried.ending)) << errors[i].message();
    }
  }
}

TEST(StreamError, SaysWhatCameAndReturnsIt) {
  p4::v1::StreamMessageRequest request;
  EXPECT_EQ(Wire::streamErrorFor(request).ShortDebugString(),
            "canonical_code: 3 message: \"expected an arbitration, got an empty message\"");
  request.mutable_digest_ack()->set_list_id(7);
  p4::v1::StreamError error = Wire::streamErrorFor(request);
  EXPECT_EQ(error.canonical_code(), 12);
  EXPECT_EQ(error.digest_list_ack().digest_list_ack().list_id(), 7u);
  request.mutable_other()->set_type_url("x/y");
  error = Wire::streamErrorFor(request);
  EXPECT_EQ(error.canonical_code(), 12);
  EXPECT_TRUE(error.has_other());
  for (const std::size_t size : {2048u, 2049u}) {
    request.mutable_packet()->set_payload(std::string(size, 'p'));
    request.mutable_packet()->add_metadata()->set_metadata_id(3);
    error = Wire::streamErrorFor(request);
    EXPECT_EQ(error.canonical_code(), 12);
    EXPECT_EQ(error.packet_out().packet_out().payload().size(), size == 2048 ? size : 0);
    EXPECT_EQ(error.packet_out().packet_out().metadata(0).metadata_id(), 3u);
    EXPECT_FALSE(error.message().empty());
  }
}

}  // namespace
