#include "apps/server/ReadCall.h"

#include <set>
#include <string_view>
#include <utility>

#include "apps/p4/Encoder.h"
#include "apps/server/OutOfMemory.h"
#include "apps/server/UnaryCall.h"
#include "cairn/Exception.h"

namespace Server {

using Agent::Status;
using Agent::StatusCode;

namespace {

// Of rows and metadata in one message; encoded, a row takes up to four times as much. Clients accept 4 MiB.
constexpr std::size_t kRowBytesAtOnce = std::size_t{256} << 10;

std::string_view textOf(const Lumen::BaseRow& row) {
  return {reinterpret_cast<const char*>(row.bytes().data), row.rowLength()};
}

}  // namespace

template <class Step>
void ReadCall::attempt(const Step& step) noexcept {
  withMemory(step, [this] { end(outOfMemory()); });
}

ReadCall::ReadCall(Device& device, grpc_call* call, const p4::v1::ReadRequest& request)
    : device_(device), watch_(device.stalledCalls(), call), deviceId_(request.device_id()) {
  attempt([&] {
    Status status = device_.checkDevice(deviceId_);
    if (status.ok()) status = device_.quota().take(bytesOf(request, request.entities_size()), share_);
    if (status.ok()) {
      decode(request);
      if (device_.inbox().post(*this)) return;
      status = {StatusCode::unavailable, "the agent is stopping"};
    }
    reject(status);
  });
}

void ReadCall::reject(const Status& status) {
  device_.quota().rejected();
  end(grpcStatus(status));
}

void ReadCall::decode(const p4::v1::ReadRequest& request) {
  for (const p4::v1::Entity& entity : request.entities()) {
    Wire::ReadFilter filter;
    Agent::UpdateStatus outcome;
    static_cast<Status&>(outcome) = device_.decoder().decode(entity, filter);
    filters_.push_back(std::move(filter));
    outcomes_.push_back(std::move(outcome));
  }
}

void ReadCall::run() noexcept {
  attempt([this] {
    if (isCancelled_) return end(grpc::Status::CANCELLED);
    refuseTablesLeftOut();
    copyAll();
    const Status status = device_.quota().grow(share_, bytes_.size());
    if (!status.ok()) return reject(status);
    StartSendInitialMetadata();  // brings the call back to a gRPC thread
  });
}

void ReadCall::refuseTablesLeftOut() {
  for (std::size_t i = 0; i < filters_.size(); ++i) {
    if (!outcomes_[i].ok() || filters_[i].table == nullptr) continue;
    static_cast<Status&>(outcomes_[i]) = device_.config().checkTable(*filters_[i].table);
  }
}

/// Each entry once, however many elements ask for it.
void ReadCall::copyAll() {
  const auto& tables = device_.pipeline().tables();
  std::vector<bool> whole(tables.size());
  for (std::size_t i = 0; i < filters_.size(); ++i) {
    if (!outcomes_[i].ok() || !filters_[i].key.isNull()) continue;
    for (const Wire::Table& table : tables) {
      if (filters_[i].table == nullptr || filters_[i].table == &table) whole[table.index] = true;
    }
  }
  for (const Wire::Table& table : tables) {
    if (!whole[table.index]) continue;
    device_.core().eachDecidedRow(device_.table(table),
                                  [&](const Lumen::BaseRow& row) { copyRow(table, row); });
  }
  std::set<std::pair<std::size_t, std::string_view>> copied;
  for (std::size_t i = 0; i < filters_.size(); ++i) {
    const auto& [table, key] = filters_[i];
    if (!outcomes_[i].ok() || key.isNull() || whole[table->index]) continue;
    if (!copied.emplace(table->index, textOf(key)).second) continue;
    const Lumen::BaseRow row = device_.core().decidedRow(device_.table(*table), key);
    if (!row.isNull()) copyRow(*table, row);
  }
}

void ReadCall::copyRow(const Wire::Table& table, const Lumen::BaseRow& row) {
  const std::string_view metadata = device_.core().metadata(device_.table(table), row);
  copies_.push_back({&table, row.rowLength(), static_cast<std::uint32_t>(metadata.size())});
  bytes_.append(textOf(row)).append(metadata);
}

void ReadCall::OnSendInitialMetadataDone(bool sent) {
  if (!sent) return end(grpc::Status::CANCELLED);
  sendNext();
}

void ReadCall::OnWriteDone(bool written) {
  watch_.sent();
  if (!written) return end(grpc::Status::CANCELLED);
  sendNext();
}

void ReadCall::sendNext() noexcept {
  attempt([this] {
    if (nextCopy_ == copies_.size()) return end(statusOf(device_, outcomes_, "entities"));
    try {
      encodeNext();
    } catch (const Cairn::MemoryResourceException&) {
      throw;
    } catch (const Cairn::Exception& failure) {
      return reject({StatusCode::internal, failure.what()});
    }
    watch_.sending();
    StartWrite(&response_);
  });
}

void ReadCall::encodeNext() {
  response_.Clear();
  const std::size_t end = nextByte_ + kRowBytesAtOnce;
  while (nextCopy_ < copies_.size() && nextByte_ < end) {
    const Copy& copy = copies_[nextCopy_++];
    const char* const at = bytes_.data() + nextByte_;
    nextByte_ += copy.rowBytes + copy.metadataBytes;
    const auto row = Lumen::BaseRow::fromBytes({reinterpret_cast<const std::byte*>(at), copy.rowBytes});
    Wire::encodeEntry(*copy.table, row, {at + copy.rowBytes, copy.metadataBytes},
                      *response_.add_entities()->mutable_table_entry());
  }
}

}  // namespace Server
