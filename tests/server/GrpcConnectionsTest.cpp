// Connections of the server's own socket under gRPC.
#include <grpcpp/grpcpp.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "apps/server/Acceptor.h"
#include "apps/server/UnixSocket.h"
#include "p4/v1/p4runtime.grpc.pb.h"
#include "tests/RuntimeFolder.h"

namespace {

using namespace std::chrono_literals;
using p4::v1::P4Runtime;

class Answers final : public P4Runtime::Service {
  grpc::Status Capabilities(grpc::ServerContext*, const p4::v1::CapabilitiesRequest*,
                            p4::v1::CapabilitiesResponse* response) override {
    response->set_p4runtime_api_version("1.4.1");
    return grpc::Status::OK;
  }
};

/// A server on a socket of ours, its acceptor on a loop in another thread.
class GrpcConnections : public testing::Test {
 protected:
  GrpcConnections() {
    grpc::ServerBuilder builder;
    builder.RegisterService(&service_);
    connections_ = builder.experimental().AddExternalConnectionAcceptor(
        grpc::ServerBuilder::experimental_type::ExternalConnectionType::FROM_FD,
        grpc::InsecureServerCredentials());
    server_ = builder.BuildAndStart();
    thread_ = std::thread([this] {
      Quill::EventLoop loop;
      Server::Acceptor::Settings settings;
      settings.maxConnections = 2;
      settings.user = ::geteuid();
      Server::Acceptor acceptor(loop, socket_.descriptor(), settings, [this](int descriptor) {
        grpc::experimental::ExternalConnectionAcceptor::NewConnectionParameters connection;
        connection.listener_fd = socket_.descriptor();
        connection.fd = descriptor;
        connections_->HandleNewConnection(&connection);
      });
      while (!isStopped_) {
        loop.step(2ms);
        open_ = acceptor.open();
      }
    });
  }
  ~GrpcConnections() override {
    server_->Shutdown(std::chrono::system_clock::now() + 1s);
    isStopped_ = true;
    thread_.join();
  }

  using Client = std::unique_ptr<P4Runtime::Stub>;
  Client connect() {
    grpc::ChannelArguments arguments;
    arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);  // a connection of its own
    return P4Runtime::NewStub(
        grpc::CreateCustomChannel("unix:" + path_, grpc::InsecureChannelCredentials(), arguments));
  }
  static grpc::StatusCode ask(const Client& client) {
    grpc::ClientContext context;
    context.set_deadline(std::chrono::system_clock::now() + 10s);
    p4::v1::CapabilitiesResponse response;
    return client->Capabilities(&context, {}, &response).error_code();
  }
  /// Waits until that many connections are open.
  bool becomes(std::size_t open) {
    for (int i = 0; i < 5000 && open_ != open; ++i) std::this_thread::sleep_for(2ms);
    return open_ == open;
  }

  RuntimeFolder folder_{"/dev/shm"};
  std::string path_ = folder_.path() + "/p4runtime.sock";
  Server::UnixSocket socket_{path_};
  Answers service_;
  std::unique_ptr<grpc::experimental::ExternalConnectionAcceptor> connections_;
  std::unique_ptr<grpc::Server> server_;
  std::atomic<bool> isStopped_{false};
  std::atomic<std::size_t> open_{0};
  std::thread thread_;
};

TEST_F(GrpcConnections, AreServedUpToTheLimit) {
  Client first = connect();
  Client second = connect();
  EXPECT_EQ(ask(first), grpc::StatusCode::OK);
  EXPECT_EQ(ask(second), grpc::StatusCode::OK);
  EXPECT_EQ(ask(connect()), grpc::StatusCode::UNAVAILABLE);
  first.reset();
  EXPECT_TRUE(becomes(1));
  EXPECT_EQ(ask(connect()), grpc::StatusCode::OK);
  EXPECT_TRUE(becomes(1));
  second.reset();
  EXPECT_TRUE(becomes(0));
}

}  // namespace
