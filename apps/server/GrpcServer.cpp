#include "apps/server/GrpcServer.h"

#include <fmt/format.h>
#include <grpc/grpc.h>
#include <grpcpp/ext/proto_server_reflection_plugin.h>
#include <grpcpp/health_check_service_interface.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <future>
#include <sstream>

#include "cairn/Exception.h"

namespace Server {

namespace {

using namespace std::chrono_literals;

constexpr const char* kServiceName = "p4.v1.P4Runtime";

std::string contentsOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream contents;
  contents << file.rdbuf();
  if (!file || contents.str().empty()) {
    throw Cairn::Exception(fmt::format("expected a file in PEM, got {}, which cannot be read", path));
  }
  return contents.str();
}

std::shared_ptr<grpc::ServerCredentials> credentialsOf(const std::optional<TlsFiles>& tls) {
  if (!tls) return grpc::InsecureServerCredentials();
  grpc::SslServerCredentialsOptions options(tls->clientCa.empty()
                                                ? GRPC_SSL_DONT_REQUEST_CLIENT_CERTIFICATE
                                                : GRPC_SSL_REQUEST_AND_REQUIRE_CLIENT_CERTIFICATE_AND_VERIFY);
  options.pem_key_cert_pairs.push_back({contentsOf(tls->key), contentsOf(tls->certificate)});
  if (!tls->clientCa.empty()) options.pem_root_certs = contentsOf(tls->clientCa);
  return grpc::SslServerCredentials(options);
}

// So that a client which reads no answers cannot let calls pile up.
constexpr int kMaxCallsOnConnection = 4096;

/// A connection whose peer has vanished is closed within half a minute.
void limit(grpc::ServerBuilder& builder, const Listening& listening) {
  builder.SetMaxReceiveMessageSize(listening.maxMessageBytes);
  builder.AddChannelArgument(GRPC_ARG_MAX_CONCURRENT_STREAMS, kMaxCallsOnConnection);
  builder.AddChannelArgument(GRPC_ARG_KEEPALIVE_TIME_MS, 20'000);
  builder.AddChannelArgument(GRPC_ARG_KEEPALIVE_TIMEOUT_MS, 10'000);
  builder.AddChannelArgument(GRPC_ARG_KEEPALIVE_PERMIT_WITHOUT_CALLS, 1);
  builder.AddChannelArgument(GRPC_ARG_HTTP2_MIN_RECV_PING_INTERVAL_WITHOUT_DATA_MS, 1'000);
}

}  // namespace

GrpcServer::GrpcServer(Quill::EventLoop& loop, Device& device, const Listening& listening)
    : loop_(loop), device_(device), service_(device) {
  // Never undone: the last grpc_shutdown() waits up to 10 s for gRPC's own threads if a socket has been full.
  grpc_init();
  grpc::EnableDefaultHealthCheckService(true);
  grpc::reflection::InitProtoReflectionServerBuilderPlugin();
  grpc::ServerBuilder builder;
  limit(builder, listening);
  builder.RegisterService(&service_);
  if (!listening.unixSocket.empty()) {
    unix_.emplace(listening.unixSocket);
    add(builder, unix_->descriptor(), true, grpc::InsecureServerCredentials());
  }
  for (const std::string& address : listening.addresses) {
    tcp_.push_back(std::make_unique<TcpSocket>(address));
    if (!tcp_.back()->isLoopback() && !listening.tls && !listening.isInsecureAllowed) {
      throw Cairn::Exception(
          fmt::format("expected a loopback address, TLS or --insecure, got {} without", address));
    }
    add(builder, tcp_.back()->descriptor(), false, credentialsOf(listening.tls));
  }
  server_ = builder.BuildAndStart();
  if (!server_) throw Cairn::Exception("the gRPC server could not be started");
  server_->GetHealthCheckService()->SetServingStatus(kServiceName, true);
  for (const Endpoint& endpoint : endpoints_) accept(loop, endpoint, listening.maxConnections);
  watchConnections();
}

/// gRPC keeps a call that has ended, and its memory, while it waits for room in the socket.
void GrpcServer::watchConnections() {
  const std::chrono::milliseconds timeout = device_.clientTimeout();
  timer_ = loop_.periodicTimerIs(std::max(timeout / 20, 50ms), [this, timeout] {
    const auto now = Acceptor::Clock::now();
    for (const auto& acceptor : acceptors_) acceptor->endStalled(now, timeout);
  });
}

void GrpcServer::add(grpc::ServerBuilder& builder, int listener, bool isUnix,
                     const std::shared_ptr<grpc::ServerCredentials>& credentials) {
  endpoints_.push_back(
      {listener, isUnix,
       builder.experimental().AddExternalConnectionAcceptor(
           grpc::ServerBuilder::experimental_type::ExternalConnectionType::FROM_FD, credentials)});
}

void GrpcServer::accept(Quill::EventLoop& loop, const Endpoint& endpoint, std::size_t maxConnections) {
  Acceptor::Settings settings;
  settings.maxConnections = maxConnections;
  if (endpoint.isUnix) settings.user = ::geteuid();
  acceptors_.push_back(
      std::make_unique<Acceptor>(loop, endpoint.listener, settings, [&endpoint](int descriptor) {
        grpc::experimental::ExternalConnectionAcceptor::NewConnectionParameters connection;
        connection.listener_fd = endpoint.listener;
        connection.fd = descriptor;
        endpoint.connections->HandleNewConnection(&connection);
      }));
}

GrpcServer::~GrpcServer() { loop_.timerDel(timer_); }

void GrpcServer::count(Counters::ServerWords<Counters::Counter>& counters) const {
  std::uint64_t accepted = 0;
  std::uint64_t refused = 0;
  for (const auto& acceptor : acceptors_) {
    accepted += acceptor->counts().accepted;
    refused += acceptor->counts().overLimit + acceptor->counts().otherUsers;
  }
  counters.connections.set(accepted);
  counters.connectionsRefused.set(refused);
}

void GrpcServer::stop(std::chrono::steady_clock::time_point deadline) {
  for (const auto& acceptor : acceptors_) acceptor->stop();
  server_->GetHealthCheckService()->SetServingStatus(false);
  device_.stop();
  while (device_.requestsInFlight() != 0 && std::chrono::steady_clock::now() < deadline) loop_.step(20ms);
  device_.abandon();
  // gRPC closes no connection before a write that it has begun is done, and a client that is stopped itself
  // never takes it.
  const auto ended =
      std::async(std::launch::async, [this] { server_->Shutdown(std::chrono::system_clock::now() + 500ms); });
  if (ended.wait_for(600ms) == std::future_status::ready) return;
  for (const auto& acceptor : acceptors_) acceptor->endAll();
  ended.wait();
}

}  // namespace Server
