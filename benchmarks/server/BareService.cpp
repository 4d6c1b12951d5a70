#include "BareService.h"

#include <grpcpp/grpcpp.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <vector>

#include "apps/bridge/Inbox.h"
#include "apps/server/Acceptor.h"
#include "apps/server/UnixSocket.h"
#include "apps/server/WriteMessages.h"
#include "benchmarks/end_to_end/Yardstick.h"
#include "p4/v1/p4runtime.grpc.pb.h"
#include "quill/EventLoop.h"

namespace {

using p4::v1::WriteRequest;
using p4::v1::WriteResponse;

constexpr std::size_t kFields = 16;
constexpr std::size_t kWorksAtOnce = 64;

struct Entry {
  p4::v1::Update::Type type;
  std::uint32_t table;
  std::array<std::uint64_t, kFields> match;
  std::array<std::uint64_t, kFields> parameters;
};

std::uint64_t numberOf(const std::string& bytes) {
  std::uint64_t number = 0;
  for (const char byte : bytes) number = number << 8 | static_cast<unsigned char>(byte);
  return number;
}

Entry entryOf(const p4::v1::Update& update) {
  const p4::v1::TableEntry& from = update.entity().table_entry();
  Entry entry{update.type(), from.table_id(), {}, {}};
  for (const auto& match : from.match()) {
    entry.match.at(match.field_id() - 1) = numberOf(match.exact().value());
  }
  for (const auto& parameter : from.action().action().params()) {
    entry.parameters.at(parameter.param_id() - 1) = numberOf(parameter.value());
  }
  return entry;
}

class Call final : public grpc::ServerUnaryReactor, private Bridge::Work {
 public:
  Call(Bridge::Inbox& inbox, Yardstick::TwoTables* tables, const WriteRequest& request) : tables_(tables) {
    entries_.reserve(static_cast<std::size_t>(request.updates_size()));
    for (const auto& update : request.updates()) entries_.push_back(entryOf(update));
    if (!inbox.post(*this)) std::abort();
  }

 private:
  void run() noexcept override {
    if (tables_ != nullptr) {
      tables_->prepare(entries_.size());
      tables_->batch();
    }
    Finish(grpc::Status::OK);
  }
  void OnDone() override { delete this; }

  Yardstick::TwoTables* tables_;  // not owned; may be null
  std::vector<Entry> entries_;
};

class Service final : public p4::v1::P4Runtime::CallbackService {
 public:
  Service(Bridge::Inbox& inbox, Yardstick::TwoTables* tables) : inbox_(inbox), tables_(tables) {
    SetMessageAllocatorFor_Write(&writeMessages_);
  }
  grpc::ServerUnaryReactor* Write(grpc::CallbackServerContext*, const WriteRequest* request,
                                  WriteResponse*) override {
    return new Call(inbox_, tables_, *request);
  }

 private:
  Bridge::Inbox& inbox_;
  Yardstick::TwoTables* tables_;         // not owned; may be null
  Server::WriteMessages writeMessages_;  // as the agent has them
};

}  // namespace

void serveBare(const std::string& socket, bool withTables) {
  std::optional<Yardstick::TwoTables> tables;
  if (withTables) tables.emplace(std::chrono::microseconds(0));
  Quill::EventLoop loop;
  Bridge::Inbox inbox;
  Service service(inbox, tables ? &*tables : nullptr);
  grpc::ServerBuilder builder;
  builder.SetMaxReceiveMessageSize(16 << 20);
  builder.RegisterService(&service);
  const auto connections = builder.experimental().AddExternalConnectionAcceptor(
      grpc::ServerBuilder::experimental_type::ExternalConnectionType::FROM_FD,
      grpc::InsecureServerCredentials());
  const Server::UnixSocket listener(socket);
  const auto server = builder.BuildAndStart();
  Server::Acceptor::Settings settings;
  settings.user = ::geteuid();
  const Server::Acceptor acceptor(loop, listener.descriptor(), settings, [&](int descriptor) {
    grpc::experimental::ExternalConnectionAcceptor::NewConnectionParameters connection;
    connection.listener_fd = listener.descriptor();
    connection.fd = descriptor;
    connections->HandleNewConnection(&connection);
  });
  loop.descriptorIs(inbox.descriptor(), [&inbox] { inbox.run(kWorksAtOnce); });
  std::puts("serving");
  std::fflush(stdout);
  loop.run();
  std::abort();  // nothing stops the loop
}
