// One trace message beside the copy of as many bytes into a ring of the same size, and the clock's share.
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "skein/Skein.h"

namespace {

constexpr std::size_t kRingBytes = 1 << 20;

constinit const Skein::Site kEntry{"./P4RuntimePlugin/VrfSm", 14, "handleL3IifTH3ConfigEntry", "handleEntry"};
constinit const Skein::Site kKey{"./P4RuntimePlugin/VrfSm", 17, "handleL3IifTH3ConfigEntry", "add key %s"};
constinit const Skein::Site kPair{"./P4RuntimePlugin/VrfSm", 24, "handleL3IifTH3ConfigEntry",
                                  "add vrf %s for %s"};

void useRingFile() {
  static const bool once = [] {
    std::string folder = "/tmp/skein_bench_XXXXXX";
    if (mkdtemp(folder.data()) == nullptr) return false;
    Skein::ringIs(folder + "/ring", kRingBytes);
    return std::system(("rm -r " + folder).c_str()) == 0;  // the mapping outlives the name
  }();
  benchmark::DoNotOptimize(once);
}

void copyOfRecord(benchmark::State& state) {
  const auto bytes = static_cast<std::size_t>(state.range(0));
  const auto ring = std::make_unique<char[]>(kRingBytes + Braid::kMaxRecordBytes);
  const std::string record(bytes, 'r');
  std::size_t at = 0;
  for (auto _ : state) {
    std::memcpy(ring.get() + at, record.data(), bytes);
    at = (at + bytes) & (kRingBytes - 1);
    benchmark::ClobberMemory();
  }
}

void clockAlone(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(Braid::ticks());
}

void messageWithoutValue(benchmark::State& state) {
  useRingFile();
  for (auto _ : state) Skein::message(kEntry);
}

void messageWithKey(benchmark::State& state) {
  useRingFile();
  std::string_view key = "281474976710656";
  for (auto _ : state) {
    benchmark::DoNotOptimize(key);
    Skein::message(kKey, key);
  }
}

void messageWithTwoNumbers(benchmark::State& state) {
  useRingFile();
  std::uint64_t vrf = 1021;
  for (auto _ : state) {
    benchmark::DoNotOptimize(vrf);
    Skein::message(kPair, vrf, vrf);
  }
}

BENCHMARK(copyOfRecord)->Arg(24)->Arg(40)->Arg(48);
BENCHMARK(clockAlone);
BENCHMARK(messageWithoutValue);    // 24 bytes
BENCHMARK(messageWithKey);         // 48 bytes
BENCHMARK(messageWithTwoNumbers);  // 40 bytes

}  // namespace

BENCHMARK_MAIN();
