// The server as one object: sockets, gRPC, calls.
#pragma once

#include <grpcpp/grpcpp.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "apps/server/Acceptor.h"
#include "apps/server/Device.h"
#include "apps/server/Service.h"
#include "apps/server/TcpSocket.h"
#include "apps/server/UnixSocket.h"

namespace Server {

/// Files in PEM.
struct TlsFiles {
  std::string certificate;
  std::string key;
  std::string clientCa;  ///< clients must have a certificate of it; empty: they need none
};

struct Listening {
  std::string unixSocket;              ///< path; empty: none
  std::vector<std::string> addresses;  ///< "ADDRESS:PORT"
  std::optional<TlsFiles> tls;         ///< of the addresses
  bool isInsecureAllowed = false;      ///< without TLS on other addresses than loopback
  std::size_t maxConnections = 512;    ///< of each socket; more than streams, for clients without one
  int maxMessageBytes = 16 << 20;
};

class GrpcServer {
 public:
  /// Serves from here on. `loop` is not owned. Throws Cairn::Exception for what cannot be listened at and for
  /// files that cannot be used.
  GrpcServer(Quill::EventLoop& loop, Device& device, const Listening& listening);
  /// stop() comes first.
  ~GrpcServer();
  GrpcServer(const GrpcServer&) = delete;
  GrpcServer& operator=(const GrpcServer&) = delete;

  /// Copies what is known of connections to the counters; to be called periodically.
  void count(Counters::ServerWords<Counters::Counter>& counters) const;
  /// Takes no more connections and calls, answers what is in flight, running the loop for that, and ends
  /// what is left at the deadline.
  void stop(std::chrono::steady_clock::time_point deadline);

 private:
  using Connections = std::unique_ptr<grpc::experimental::ExternalConnectionAcceptor>;
  struct Endpoint {
    int listener;
    bool isUnix;
    Connections connections;
  };

  void add(grpc::ServerBuilder& builder, int listener, bool isUnix,
           const std::shared_ptr<grpc::ServerCredentials>& credentials);
  void accept(Quill::EventLoop& loop, const Endpoint& endpoint, std::size_t maxConnections);
  void watchConnections();

  Quill::EventLoop& loop_;
  Device& device_;
  Service service_;
  std::optional<UnixSocket> unix_;
  std::vector<std::unique_ptr<TcpSocket>> tcp_;
  std::vector<Endpoint> endpoints_;
  std::unique_ptr<grpc::Server> server_;
  std::vector<std::unique_ptr<Acceptor>> acceptors_;
  Quill::EventLoop::TimerId timer_ = 0;
};

}  // namespace Server
