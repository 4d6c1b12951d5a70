#pragma once

#include <google/protobuf/arena.h>
#include <grpcpp/grpcpp.h>

#include "p4/v1/p4runtime.pb.h"

namespace Server {

/// Has gRPC parse requests to write on arenas: the messages of one Write are freed as a whole, and most take
/// few allocations. For SetMessageAllocatorFor_Write(), which does not own it.
class WriteMessages final : public grpc::MessageAllocator<p4::v1::WriteRequest, p4::v1::WriteResponse> {
 public:
  using Holder = grpc::MessageHolder<p4::v1::WriteRequest, p4::v1::WriteResponse>;

  Holder* AllocateMessages() override { return new OnArena; }

 private:
  class OnArena final : public Holder {
   public:
    OnArena() : arena_(options()) {
      set_request(google::protobuf::Arena::CreateMessage<p4::v1::WriteRequest>(&arena_));
      set_response(google::protobuf::Arena::CreateMessage<p4::v1::WriteResponse>(&arena_));
    }
    void Release() override { delete this; }

   private:
    static google::protobuf::ArenaOptions options() {
      google::protobuf::ArenaOptions options;
      options.start_block_size = 2048;
      options.max_block_size = std::size_t{256} << 10;
      return options;
    }
    google::protobuf::Arena arena_;
  };
};

}  // namespace Server
