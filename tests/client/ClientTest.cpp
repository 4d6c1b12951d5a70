// What the client makes of texts, and whom it trusts.
#include <gmock/gmock.h>
#include <google/protobuf/util/message_differencer.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <optional>

#include "apps/client/Script.h"
#include "apps/client/UnixConnection.h"
#include "apps/p4/P4Info.h"
#include "apps/server/UnixSocket.h"
#include "cairn/Exception.h"
#include "tests/RuntimeFolder.h"
#include "tests/p4/Entries.h"

namespace {

using namespace Client;
using namespace std::string_literals;
using testing::HasSubstr;

const Catalogue& catalogue() {
  static const Catalogue made(Wire::p4InfoOf(Entries::pipeline()));
  return made;
}

template <class Call>
std::string refusal(const Call& call) {
  try {
    call();
    return "";
  } catch (const Cairn::Exception& error) {
    return error.message();
  }
}

TEST(Values, AreWrittenInManyWaysAndPrintedInOne) {
  const struct {
    const char* text;
    unsigned bits;
    std::string bytes;
    Format format;
    const char* printed;
  } rows[] = {
      {"0", 16, "\0"s, Format::number, "0"},
      {"0x00ff", 16, "\xff", Format::number, "255"},
      {"65536", 16, "\1\0\0"s, Format::number, "65536"},  // for the server to refuse
      {"", 16, "", Format::number, ""},
      {"18446744073709551616", 64, "\1\0\0\0\0\0\0\0\0"s, Format::number, "0x010000000000000000"},
      {"true", 1, "\1", Format::boolean, "true"},
      {"0", 1, "\0"s, Format::boolean, "false"},
      {"192.0.2.1", 32, "\xc0\0\2\1"s, Format::ipv4, "192.0.2.1"},
      {"192.0.2.1", 32, "\xc0\0\2\1"s, Format::number, "3221225985"},
      {"0.0.0.7", 32, "\7", Format::ipv4, "0.0.0.7"},
      {"::1", 128, "\1", Format::ipv6, "::1"},
      {"00:00:5e:00:53:01", 48, "\x5e\0\x53\1"s, Format::mac, "00:00:5e:00:53:01"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(bytesOf(row.text, row.bits), row.bytes) << row.text;
    EXPECT_EQ(textOf(row.bytes, row.format), row.printed);
  }
  const std::pair<const char*, unsigned> unreadable[] = {
      {"twelve", 16},     {"0x", 16},          {"-1", 16},  {"true", 8},
      {"192.0.2.1", 128}, {"192.0.2.256", 32}, {"::1", 32}, {"00:00:5e", 48}};
  for (const auto& [text, bits] : unreadable) {
    EXPECT_THAT(refusal([text = text, bits = bits] { bytesOf(text, bits); }),
                HasSubstr("got \""s + text + "\""));
  }
}

TEST(Entries, ArePrintedAsTheyCanBeRead) {
  Entries::Random random(7);
  for (const Wire::Table& table : Entries::pipeline().tables()) {
    for (int i = 0; i < 200; ++i) {
      p4::v1::TableEntry entry = Entries::randomEntry(table, random);
      if (i % 2 == 0) entry.set_metadata("0x"s + static_cast<char>(i));
      const Table& known = catalogue().table(table.name);
      const auto texts = fieldsOf(known, entry, Part::whole);
      const p4::v1::TableEntry read = entryOf(known, texts, Part::whole);
      EXPECT_EQ(joined(fieldsOf(known, read, Part::whole)), joined(texts));
      google::protobuf::util::MessageDifferencer differencer;
      differencer.set_repeated_field_comparison(google::protobuf::util::MessageDifferencer::AS_SET);
      EXPECT_TRUE(differencer.Compare(entry, read)) << joined(texts);
    }
  }
}

TEST(Entries, GeneratedOnesHoldTheirNumber) {
  EXPECT_EQ(joined(generatedFields(catalogue().table("l3TunnelIpv4TH3"), 0x10203, {}, Part::key)),
            "sip=10.1.2.3 dip=10.1.2.3 protocol=3 l4DestPort=515 l4SrcPort=515");
  const std::vector<FieldText> given = {{"portNum", "0"}};
  EXPECT_THAT(joined(generatedFields(catalogue().table("myStationTcamTH3"), 258, given, Part::whole)),
              testing::StartsWith("portNum=0 macAddr=02:00:00:00:01:02 vlanId=258 t=false priority=259 "));
}

/// The steps of a script: "W" and the updates of a Write, by line or problem, "R" or "P".
std::string stepsOf(std::string_view text) {
  std::string all;
  for (const ScriptStep& step : parseScript(text)) {
    const auto* batch = std::get_if<BatchStep>(&step);
    if (batch == nullptr) {
      all += std::holds_alternative<ReadStep>(step) ? "R" : "P";
      continue;
    }
    std::vector<ScriptUpdate> updates;
    for (const Line& line : batch->lines) resolve(line, catalogue(), updates);
    all += batch->isRollback ? "W!" : "W";
    for (const ScriptUpdate& update : updates) {
      all += " " + (update.problem.empty() ? std::to_string(update.line) : "(" + update.problem + ")");
    }
    all += ";";
  }
  return all;
}

TEST(Script, HasEachLineInItsPlace) {
  const struct {
    const char* text;
    const char* steps;
  } rows[] = {
      {"# none\n\ninsert l3IifTH3 l3Iif=1 # one\nprint expect\nread\n", "W 3;PR"},
      {"batch\nload insert l3IifTH3 1..9/4\ndelete l3IifTH3 l3Iif=1\nend\nbatch rollback\nend",
       "W 2 2 2 3;W!;"},
      {"load insert l3IifTH3 2..1\n", "W (expected FIRST..LAST or FIRST..LAST/STEP, got \"2..1\");"},
      {"batch\nprint x\n",
       "W (expected insert, modify, delete, load or end in the batch of line 1, got \"print\") (expected "
       "\"end\" for line 1, got the end of the script);"},
      {"end", "W (expected a statement, got \"end\" without \"batch\");"},
      {"batch now", "W (expected the end of the line, got \"now\");"},
      {"insrt l3IifTH3",
       "W (expected insert, modify, delete, load, batch, end, read or print, got \"insrt\");"},
      {"insert l3IifTH3 l3Iif", "W (expected FIELD=VALUE, got \"l3Iif\");"},
      {"insert l3IifTH3 l3Iif=1 l3Iif=2", "W (expected each field once, got \"l3Iif\" twice);"},
      {"insert l3IifTH3 l3Iif=1 expect not_found", "W 1;"},
  };
  for (const auto& row : rows) EXPECT_EQ(stepsOf(row.text), row.steps) << row.text;
  EXPECT_THAT(stepsOf("insert l3IifTH3 l3Iif=1 expect FOUND"),
              testing::MatchesRegex("W .expected one of OK, .*, LOST, HARDWARE_ERROR, got \"FOUND\".;"));
}

// The socket of somebody else may be in a folder that is open to all.
TEST(Socket, OfAnotherUserIsNotTrusted) {
  const RuntimeFolder folder;
  const std::string path = folder.path() + "/sock";
  std::optional<Server::UnixSocket> listener(path);
  const uid_t me = ::geteuid();
  EXPECT_EQ(::close(connectedTo(path, me, {})), 0);
  EXPECT_THAT(refusal([&] { connectedTo(path, me + 1, {}); }),
              HasSubstr("expected one that user " + std::to_string(me + 1) + " serves, got one of user " +
                        std::to_string(me)));
  listener.reset();
  EXPECT_THAT(refusal([&] { connectedTo(path, me, {}); }), HasSubstr("No such file or directory"));
  EXPECT_THAT(refusal([] { connectedTo(std::string(200, 'x'), 0, {}); }),
              HasSubstr("1 to 107 characters, got 200"));
}

}  // namespace
