// What an update costs on its way into a row, and a row on its way out, table by table; beside it what
// protobuf alone takes to parse the same message, on an arena as the server does it.
#include <benchmark/benchmark.h>
#include <google/protobuf/arena.h>

#include "apps/p4/Decoder.h"
#include "apps/p4/Encoder.h"
#include "apps/p4/ErrorDetails.h"
#include "tests/p4/Entries.h"

namespace {

constexpr int kUpdates = 1000;

std::string requestFor(std::size_t table) {
  Entries::Random random(table);
  p4::v1::WriteRequest request;
  for (int i = 0; i < kUpdates; ++i) {
    *request.add_updates() =
        Entries::updateOf(Entries::randomEntry(Entries::pipeline().tables()[table], random));
  }
  return request.SerializeAsString();
}

/// Parses the request; the rate is that of its updates.
p4::v1::WriteRequest& parsed(google::protobuf::Arena& arena, const std::string& bytes) {
  auto& request = *google::protobuf::Arena::CreateMessage<p4::v1::WriteRequest>(&arena);
  if (!request.ParseFromString(bytes)) std::abort();
  return request;
}

void countUpdates(benchmark::State& state) {
  state.SetItemsProcessed(state.iterations() * kUpdates);
  state.SetLabel(Entries::pipeline().tables()[static_cast<std::size_t>(state.range(0))].name);
}

void Parse(benchmark::State& state) {
  const std::string bytes = requestFor(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    google::protobuf::Arena arena;
    benchmark::DoNotOptimize(&parsed(arena, bytes));
  }
  countUpdates(state);
}
BENCHMARK(Parse)->DenseRange(0, 3);

void Decode(benchmark::State& state) {
  google::protobuf::Arena arena;
  const auto& request = parsed(arena, requestFor(static_cast<std::size_t>(state.range(0))));
  const Wire::Decoder decoder(Entries::pipeline());
  std::vector<Wire::DecodedUpdate> decoded(kUpdates);
  for (auto _ : state) {
    for (int i = 0; i < kUpdates; ++i) {
      if (!decoder.decode(request.updates(i), decoded[static_cast<std::size_t>(i)]).ok()) std::abort();
    }
    benchmark::ClobberMemory();
  }
  countUpdates(state);
}
BENCHMARK(Decode)->DenseRange(0, 3);

void Encode(benchmark::State& state) {
  google::protobuf::Arena source;
  const auto& request = parsed(source, requestFor(static_cast<std::size_t>(state.range(0))));
  const Wire::Decoder decoder(Entries::pipeline());
  std::vector<Wire::DecodedUpdate> decoded(kUpdates);
  for (int i = 0; i < kUpdates; ++i) {
    if (!decoder.decode(request.updates(i), decoded[static_cast<std::size_t>(i)]).ok()) std::abort();
  }
  for (auto _ : state) {
    google::protobuf::Arena arena;
    auto& response = *google::protobuf::Arena::CreateMessage<p4::v1::ReadResponse>(&arena);
    for (const Wire::DecodedUpdate& update : decoded) {
      Wire::encodeEntry(*update.table, update.row, update.metadata,
                        *response.add_entities()->mutable_table_entry());
    }
    benchmark::DoNotOptimize(&response);
  }
  countUpdates(state);
}
BENCHMARK(Encode)->DenseRange(0, 3);

void PackErrors(benchmark::State& state) {
  std::vector<Agent::UpdateStatus> outcomes(kUpdates);
  for (std::size_t i = 0; i < outcomes.size(); i += 2) {
    outcomes[i] = {{Agent::StatusCode::notFound, std::string(static_cast<std::size_t>(state.range(0)), 'x')},
                   0};
  }
  for (auto _ : state) benchmark::DoNotOptimize(Wire::packErrors(outcomes, {}));
  state.SetItemsProcessed(state.iterations() * kUpdates);
}
BENCHMARK(PackErrors)->Arg(30)->Arg(300);

}  // namespace
