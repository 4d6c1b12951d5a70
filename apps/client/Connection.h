#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "apps/client/Outcome.h"
#include "p4/v1/p4runtime.pb.h"

namespace Client {

/// Where the server is, and as whom it is addressed.
struct Target {
  std::string address;  ///< path of a Unix socket, which has a slash in it, or HOST:PORT
  std::string tlsCa;    ///< files in PEM; the first turns TLS on
  std::string tlsCert;
  std::string tlsKey;
  std::chrono::milliseconds wait{0};  ///< for a server to come
  std::uint64_t device = 1;
  std::string role;
  std::optional<std::uint64_t> electionId;  ///< none: one above the highest that the server knows
};

/// A connection to a P4Runtime server. It is not re-established after it breaks.
///
/// Thread safety: write() from any thread.
class Connection {
 public:
  /// Connects. A Unix socket must be served by this user. Throws Cairn::Exception when that fails.
  explicit Connection(Target target);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  /// The P4Info in force. Throws Cairn::Exception saying what the server answered.
  p4::config::v1::P4Info p4Info();
  /// Becomes the primary controller of the role for the life of the connection, waiting until it is. Throws
  /// Cairn::Exception saying what the server answered.
  void becomePrimary();

  enum class Atomicity { continueOnError, rollbackOnError };
  /// Sends the updates and waits for the outcome of each.
  std::vector<Outcome> write(std::vector<p4::v1::Update> updates, Atomicity atomicity);
  /// Hands out what the server has of these entries. Throws Cairn::Exception saying what the server answered.
  void read(const std::vector<p4::v1::TableEntry>& wanted,
            const std::function<void(const p4::v1::TableEntry&)>& use);

 private:
  class Grpc;
  Target target_;
  std::unique_ptr<Grpc> grpc_;
};

}  // namespace Client
