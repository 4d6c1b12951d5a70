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

#ifdef TOLMAR_BENCH_PROTOBUF
#include "iif_entry.pb.h"
#endif
#ifdef TOLMAR_BENCH_FLATBUFFERS
#include "iif_entry_generated.h"
#endif

namespace TolmarHwLib {
namespace {

L3IifTH3ConfigEntry sampleEntry() {
  L3IifTH3ConfigEntry entry;
  entry.genId = 0x1122334455667788;
  entry.entryHandle = 0x99aabbccddeeff00;
  entry.valid = true;
  entry.l3Iif = 4711;
  entry.classId = 12;
  entry.ecnDecapMappingPtr = 3;
  entry.flexCtrBaseCounterIdx = 2047;
  entry.flexCtrOffsetMode = 2;
  entry.flexCtrPoolNumber = 9;
  entry.ipmcL3Iif = 4711;
  entry.ipOptionProfileIndex = 1;
  entry.l3IifProfileIndex = 7;
  entry.vrf = 300;
  return entry;
}

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

// The same with memory that the C library hands out faster: malloc and memset.
void Build_PackedByMalloc(benchmark::State& state) {
  const L3IifTH3ConfigEntry entry = sampleEntry();
  const L3IifTH3ConfigEntry* source = &entry;
  for (auto _ : state) {
    benchmark::DoNotOptimize(source);
    void* const memory = std::malloc(sizeof(PackedEntry));
    benchmark::DoNotOptimize(std::memset(memory, 0, sizeof(PackedEntry)));
    auto* const packed = static_cast<PackedEntry*>(memory);
    fillPacked(*packed, *source);
    benchmark::DoNotOptimize(packed);
    benchmark::ClobberMemory();
    std::free(packed);
  }
}
BENCHMARK(Build_PackedByMalloc);

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

#ifdef TOLMAR_BENCH_PROTOBUF
void fillMessage(tolmar_bench::IifEntry& message, const L3IifTH3ConfigEntry& entry) {
  message.set_gen_id(entry.genId);
  message.set_entry_handle(entry.entryHandle);
  message.set_valid(entry.valid);
  message.set_l3_iif(entry.l3Iif);
  message.set_class_id(entry.classId);
  message.set_ecn_decap_mapping_ptr(entry.ecnDecapMappingPtr);
  message.set_flex_ctr_base_counter_idx(entry.flexCtrBaseCounterIdx);
  message.set_flex_ctr_offset_mode(entry.flexCtrOffsetMode);
  message.set_flex_ctr_pool_number(entry.flexCtrPoolNumber);
  message.set_int_enable(entry.intEnable);
  message.set_ipmc_l3_iif(entry.ipmcL3Iif);
  message.set_ip_option_profile_index(entry.ipOptionProfileIndex);
  message.set_l3_iif_profile_index(entry.l3IifProfileIndex);
  message.set_vrf(entry.vrf);
}

// A row is its own wire form, so the message is built with its bytes, and read from them.
void Build_Protobuf(benchmark::State& state) {
  const L3IifTH3ConfigEntry entry = sampleEntry();
  for (auto _ : state) {
    tolmar_bench::IifEntry message;
    fillMessage(message, entry);
    const std::string bytes = message.SerializeAsString();
    benchmark::DoNotOptimize(bytes.data());
    benchmark::ClobberMemory();
  }
}
BENCHMARK(Build_Protobuf);

void Read_Protobuf(benchmark::State& state) {
  tolmar_bench::IifEntry message;
  fillMessage(message, sampleEntry());
  const std::string bytes = message.SerializeAsString();
  for (auto _ : state) {
    tolmar_bench::IifEntry read;
    benchmark::DoNotOptimize(read.ParseFromString(bytes));
    L3IifTH3ConfigEntry entry;
    entry.genId = read.gen_id();
    entry.entryHandle = read.entry_handle();
    entry.valid = read.valid();
    entry.l3Iif = read.l3_iif();
    entry.classId = static_cast<std::uint16_t>(read.class_id());
    entry.ecnDecapMappingPtr = static_cast<std::uint8_t>(read.ecn_decap_mapping_ptr());
    entry.flexCtrBaseCounterIdx = static_cast<std::uint16_t>(read.flex_ctr_base_counter_idx());
    entry.flexCtrOffsetMode = static_cast<std::uint8_t>(read.flex_ctr_offset_mode());
    entry.flexCtrPoolNumber = static_cast<std::uint8_t>(read.flex_ctr_pool_number());
    entry.intEnable = read.int_enable();
    entry.ipmcL3Iif = static_cast<std::uint16_t>(read.ipmc_l3_iif());
    entry.ipOptionProfileIndex = static_cast<std::uint8_t>(read.ip_option_profile_index());
    entry.l3IifProfileIndex = static_cast<std::uint8_t>(read.l3_iif_profile_index());
    entry.vrf = static_cast<std::uint16_t>(read.vrf());
    benchmark::DoNotOptimize(entry);
  }
}
BENCHMARK(Read_Protobuf);
#endif

#ifdef TOLMAR_BENCH_FLATBUFFERS
void fillTable(flatbuffers::FlatBufferBuilder& builder, const L3IifTH3ConfigEntry& entry) {
  builder.Finish(tolmar_bench::fb::CreateIifEntry(
      builder, entry.genId, entry.entryHandle, entry.valid, entry.l3Iif, entry.classId,
      entry.ecnDecapMappingPtr, entry.flexCtrBaseCounterIdx, entry.flexCtrOffsetMode, entry.flexCtrPoolNumber,
      entry.intEnable, entry.ipmcL3Iif, entry.ipOptionProfileIndex, entry.l3IifProfileIndex, entry.vrf));
}

void Build_Flatbuffer(benchmark::State& state) {
  const L3IifTH3ConfigEntry entry = sampleEntry();
  for (auto _ : state) {
    flatbuffers::FlatBufferBuilder builder(128);
    fillTable(builder, entry);
    benchmark::DoNotOptimize(builder.GetBufferPointer());
    benchmark::ClobberMemory();
  }
}
BENCHMARK(Build_Flatbuffer);

void Read_Flatbuffer(benchmark::State& state) {
  flatbuffers::FlatBufferBuilder builder(128);
  fillTable(builder, sampleEntry());
  const void* bytes = builder.GetBufferPointer();
  for (auto _ : state) {
    benchmark::DoNotOptimize(bytes);
    const auto* const read = flatbuffers::GetRoot<tolmar_bench::fb::IifEntry>(bytes);
    L3IifTH3ConfigEntry entry;
    entry.genId = read->gen_id();
    entry.entryHandle = read->entry_handle();
    entry.valid = read->valid();
    entry.l3Iif = read->l3_iif();
    entry.classId = read->class_id();
    entry.ecnDecapMappingPtr = read->ecn_decap_mapping_ptr();
    entry.flexCtrBaseCounterIdx = read->flex_ctr_base_counter_idx();
    entry.flexCtrOffsetMode = read->flex_ctr_offset_mode();
    entry.flexCtrPoolNumber = read->flex_ctr_pool_number();
    entry.intEnable = read->int_enable();
    entry.ipmcL3Iif = read->ipmc_l3_iif();
    entry.ipOptionProfileIndex = read->ip_option_profile_index();
    entry.l3IifProfileIndex = read->l3_iif_profile_index();
    entry.vrf = read->vrf();
    benchmark::DoNotOptimize(entry);
  }
}
BENCHMARK(Read_Flatbuffer);
#endif

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
