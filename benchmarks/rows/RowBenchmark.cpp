// Rows beside the yardstick in the same run: a packed struct of the same fields, and the same record as a
// protobuf message and a flatbuffer where these are installed. Read the figures as ratios within a group:
//   Build_*   14 fields into a fresh piece of memory     row / packed   at most 1.5
//   Read_*    14 fields into an entry                    row / packed   at most 2
//   Share_*   one more owner, and back                   row / shared   at most 2
//   KeyHash_* operations / bare steps                                   at most 1.5 for each kind
#include <benchmark/benchmark.h>

#include <memory>

#include "P4RuntimeTolmar/P4RuntimeTolmarTypes.h"
#include "benchmarks/rows/BareKeyHash.h"
#include "benchmarks/rows/PackedEntry.h"

namespace TolmarHwLib {
namespace {

void Build_Packed(benchmark::State& state) {
  const L3IifTH3ConfigEntry entry = sampleEntry();
  const L3IifTH3ConfigEntry* source = &entry;
  for (auto _ : state) {
    benchmark::DoNotOptimize(source);
    auto* const packed = static_cast<PackedEntry*>(std::calloc(1, sizeof(PackedEntry)));
    fillPacked(*packed, *source);
    benchmark::DoNotOptimize(packed);
    benchmark::ClobberMemory();
    std::free(packed);
  }
}
BENCHMARK(Build_Packed);

void Build_Row(benchmark::State& state) {
  const L3IifTH3ConfigEntry entry = sampleEntry();
  const L3IifTH3ConfigEntry* source = &entry;
  for (auto _ : state) {
    benchmark::DoNotOptimize(source);
    const L3IifTH3ConfigEntry& e = *source;
    L3IifTH3ConfigEntryRow row(e.genId, e.entryHandle, e.valid, e.l3Iif, e.classId, e.ecnDecapMappingPtr,
                               e.flexCtrBaseCounterIdx, e.flexCtrOffsetMode, e.flexCtrPoolNumber, e.intEnable,
                               e.ipmcL3Iif, e.ipOptionProfileIndex, e.l3IifProfileIndex, e.vrf);
    benchmark::DoNotOptimize(row.bytes().data);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(Build_Row);

void Refill_Row(benchmark::State& state) {
  const L3IifTH3ConfigEntry entry = sampleEntry();
  L3IifTH3ConfigEntryRow row;
  for (auto _ : state) {
    row.fill(entry);
    benchmark::DoNotOptimize(row.bytes().data);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(Refill_Row);

void SetColumns_Row(benchmark::State& state) {
  L3IifTH3ConfigEntryRow row;
  std::uint64_t value = 1;
  for (auto _ : state) {
    benchmark::DoNotOptimize(value);
    row.setColumn(4, value, 43);
    row.setColumn(12, value, 43);
    row.setColumn(21, value, 43);
    row.setColumn(41, static_cast<std::uint16_t>(value), 43);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(SetColumns_Row);

void Read_Packed(benchmark::State& state) {
  PackedEntry packed;
  fillPacked(packed, sampleEntry());
  const PackedEntry* source = &packed;
  L3IifTH3ConfigEntry entry;
  for (auto _ : state) {
    benchmark::DoNotOptimize(source);
    readPacked(*source, entry);
    benchmark::DoNotOptimize(entry);
  }
}
BENCHMARK(Read_Packed);

void Read_Row(benchmark::State& state) {
  const L3IifTH3ConfigEntryRow row = L3IifTH3ConfigEntryRow::fromEntry(sampleEntry());
  const L3IifTH3ConfigEntryRow* source = &row;
  L3IifTH3ConfigEntry entry;
  for (auto _ : state) {
    benchmark::DoNotOptimize(source);
    source->readInto(entry);
    benchmark::DoNotOptimize(entry);
  }
}
BENCHMARK(Read_Row);

void Copy_Packed(benchmark::State& state) {
  PackedEntry packed;
  fillPacked(packed, sampleEntry());
  for (auto _ : state) {
    auto* const copy = static_cast<PackedEntry*>(std::malloc(sizeof(PackedEntry)));
    std::memcpy(copy, &packed, sizeof packed);
    benchmark::DoNotOptimize(copy);
    benchmark::ClobberMemory();
    std::free(copy);
  }
}
BENCHMARK(Copy_Packed);

void Copy_RowOnWrite(benchmark::State& state) {
  const L3IifTH3ConfigEntryRow row = L3IifTH3ConfigEntryRow::fromEntry(sampleEntry());
  for (auto _ : state) {
    L3IifTH3ConfigEntryRow copy = row;
    copy.setColumn(20, false, 43);
    benchmark::DoNotOptimize(copy.bytes().data);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(Copy_RowOnWrite);

void Share_SharedPtr(benchmark::State& state) {
  const auto owner = std::make_shared<PackedEntry>();
  const std::shared_ptr<PackedEntry>* source = &owner;
  for (auto _ : state) {
    benchmark::DoNotOptimize(source);
    std::shared_ptr<PackedEntry> copy = *source;
    benchmark::DoNotOptimize(copy);
  }
}
BENCHMARK(Share_SharedPtr);

void Share_Row(benchmark::State& state) {
  const L3IifTH3ConfigEntryRow row = L3IifTH3ConfigEntryRow::fromEntry(sampleEntry());
  const L3IifTH3ConfigEntryRow* source = &row;
  for (auto _ : state) {
    benchmark::DoNotOptimize(source);
    L3IifTH3ConfigEntryRow copy = *source;
    benchmark::DoNotOptimize(copy);
  }
}
BENCHMARK(Share_Row);

template <class Row>
Row keyRow();
template <>
L3TunnelTH3ConfigEntryRow keyRow() {
  return L3TunnelTH3ConfigEntryRow::key(IpGenAddr::ipv4({192, 0, 2, 1}), IpGenAddr::ipv4({192, 0, 2, 2}), 17,
                                        4789, 1024);
}
template <>
MyStationTcamTH3ConfigEntryRow keyRow() {
  return MyStationTcamTH3ConfigEntryRow::key({{0, 0, 0x5e, 0, 0x53, 1}}, 100, 5, true,
                                             {{255, 255, 255, 255, 255, 255}}, 4095, 255, true, 10);
}
template <>
L3IifTH3ConfigEntryRow keyRow() {
  return L3IifTH3ConfigEntryRow::key(4711);
}

template <class Row>
void KeyHash_BareSteps(benchmark::State& state) {
  const Row row = keyRow<Row>();
  const std::unique_ptr<BareKeyHash> steps = bareKeyHash(Row::rowTypeName());
  const BareKeyHash* hasher = steps.get();
  const std::byte* bytes = row.bytes().data;
  if (hasher->hash(bytes) != row.hash()) state.SkipWithError("the yardstick computes another hash");
  for (auto _ : state) {
    benchmark::DoNotOptimize(hasher);
    benchmark::DoNotOptimize(bytes);
    benchmark::DoNotOptimize(hasher->hash(bytes));
  }
}

template <class Row>
void KeyHash_Operations(benchmark::State& state) {
  const Row row = keyRow<Row>();
  const std::shared_ptr<Lumen::RowOpsBase> ops = Lumen::rowOps(Row::rowTypeName());
  const Lumen::RowOpsBase* hasher = ops.get();
  const Lumen::BaseRow* source = &row;
  for (auto _ : state) {
    benchmark::DoNotOptimize(hasher);
    benchmark::DoNotOptimize(source);
    benchmark::DoNotOptimize(hasher->keyHash(*source));
  }
}

template <class Row>
void Compare_Rows(benchmark::State& state) {
  const Row row = keyRow<Row>();
  const Row other = row.clone();
  for (auto _ : state) benchmark::DoNotOptimize(row.rowEqual(other));
}

BENCHMARK(KeyHash_BareSteps<L3TunnelTH3ConfigEntryRow>);
BENCHMARK(KeyHash_Operations<L3TunnelTH3ConfigEntryRow>);
BENCHMARK(KeyHash_BareSteps<MyStationTcamTH3ConfigEntryRow>);
BENCHMARK(KeyHash_Operations<MyStationTcamTH3ConfigEntryRow>);
BENCHMARK(KeyHash_BareSteps<L3IifTH3ConfigEntryRow>);
BENCHMARK(KeyHash_Operations<L3IifTH3ConfigEntryRow>);
BENCHMARK(Compare_Rows<L3TunnelTH3ConfigEntryRow>);
BENCHMARK(Compare_Rows<L3IifTH3ConfigEntryRow>);

}  // namespace
}  // namespace TolmarHwLib

BENCHMARK_MAIN();
