#pragma once

#include <grpcpp/grpcpp.h>

#include <cstddef>
#include <map>
#include <memory>
#include <string>

#include "p4/v1/p4runtime.grpc.pb.h"

/// A client of one server, with a connection of its own. What it modifies are entries of l3IifTH3.
class Controller {
 public:
  enum class Arbitration { none, primary };

  /// Becomes primary if asked to. Throws Cairn::Exception when the server refuses that.
  Controller(const std::string& socket, Arbitration arbitration);
  ~Controller();
  Controller(const Controller&) = delete;
  Controller& operator=(const Controller&) = delete;

  /// Fills the table of that name. Throws Cairn::Exception for an answer other than OK, like the next.
  void fill(const std::string& table);
  /// Fills all tables and returns the number of entries.
  std::size_t fillAll();
  /// Sends `count` requests of `updates` modifications each, `inFlight` of which are outstanding at a time.
  /// Requests that are outstanding together have entries of their own as far as these reach.
  void modify(std::size_t count, std::size_t updates, std::size_t inFlight);

 private:
  using Request = p4::v1::WriteRequest;
  struct Call;

  const Request& request(std::size_t updates, std::size_t place);
  void start(const Request& request);
  void finish();

  std::unique_ptr<p4::v1::P4Runtime::Stub> stub_;
  grpc::ClientContext streamContext_;
  std::unique_ptr<grpc::ClientReaderWriter<p4::v1::StreamMessageRequest, p4::v1::StreamMessageResponse>>
      stream_;
  grpc::CompletionQueue answers_;
  std::map<std::pair<std::size_t, std::size_t>, Request> requests_;  // by updates and place, as often used
};
